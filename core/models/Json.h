#pragma once

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/support/Date.h"
#include "core/support/Error.h"
#include "core/support/FileUrl.h"
#include "core/support/Uuid.h"

namespace kelvo {

/// The JSON value type of every record. Insertion-ordered, so encoded objects list their members
/// in the records' declaration order and files read like the records.
using Json = nlohmann::ordered_json;

/// Strict decoding of single JSON values: a text must be a JSON string, an integer an integral
/// number, a truth value a JSON boolean. (nlohmann's own conversions would accept 3.7 as 3 and
/// true as 1, which would let a damaged file load as something it never said.)
namespace json {

template <typename T>
struct Decode;

template <>
struct Decode<std::string> {
    static std::string from(const Json& value) {
        if (!value.is_string()) {
            throw DecodingError(std::string("expected a string, found ") + value.type_name());
        }
        return value.get<std::string>();
    }
};

template <>
struct Decode<bool> {
    static bool from(const Json& value) {
        if (!value.is_boolean()) {
            throw DecodingError(std::string("expected true or false, found ") + value.type_name());
        }
        return value.get<bool>();
    }
};

template <>
struct Decode<std::int64_t> {
    static std::int64_t from(const Json& value) {
        if (value.is_number_integer()) {
            if (value.is_number_unsigned() &&
                value.get<std::uint64_t>() >
                    static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                throw DecodingError("integer out of range");
            }
            return value.get<std::int64_t>();
        }
        if (value.is_number_float()) {
            const double number = value.get<double>();
            if (std::trunc(number) == number && number >= -9.2233720368547758e18 &&
                number < 9.2233720368547758e18) {
                return static_cast<std::int64_t>(number);
            }
            throw DecodingError("expected an integer, found " + value.dump());
        }
        throw DecodingError(std::string("expected an integer, found ") + value.type_name());
    }
};

template <>
struct Decode<double> {
    static double from(const Json& value) {
        if (!value.is_number()) {
            throw DecodingError(std::string("expected a number, found ") + value.type_name());
        }
        return value.get<double>();
    }
};

template <>
struct Decode<Date> {
    static Date from(const Json& value) { return Date{Decode<double>::from(value)}; }
};

template <typename T>
struct Decode<std::vector<T>> {
    static std::vector<T> from(const Json& value) {
        if (!value.is_array()) {
            throw DecodingError(std::string("expected an array, found ") + value.type_name());
        }
        std::vector<T> items;
        items.reserve(value.size());
        for (std::size_t i = 0; i < value.size(); ++i) {
            try {
                items.push_back(Decode<T>::from(value[i]));
            } catch (const DecodingError& error) {
                throw DecodingError("element " + std::to_string(i) + ": " + error.what());
            }
        }
        return items;
    }
};

template <>
struct Decode<Json> {
    static Json from(const Json& value) { return value; }
};

/// Records and enumerations decode through their own from_json.
template <typename T>
struct Decode {
    static T from(const Json& value) {
        T result{};
        from_json(value, result);
        return result;
    }
};

inline const Json& requireObject(const Json& value) {
    if (!value.is_object()) {
        throw DecodingError(std::string("expected an object, found ") + value.type_name());
    }
    return value;
}

/// A required member: missing is an error, and so is a value of the wrong kind.
template <typename T>
T required(const Json& object, const char* key) {
    requireObject(object);
    const auto found = object.find(key);
    if (found == object.end()) {
        throw DecodingError(std::string("missing required member \"") + key + "\"");
    }
    try {
        return Decode<T>::from(*found);
    } catch (const DecodingError& error) {
        throw DecodingError(std::string("member \"") + key + "\": " + error.what());
    }
}

/// An optional member: missing or null gives no value; any other value must decode.
template <typename T>
std::optional<T> optional(const Json& object, const char* key) {
    requireObject(object);
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) {
        return std::nullopt;
    }
    try {
        return Decode<T>::from(*found);
    } catch (const DecodingError& error) {
        throw DecodingError(std::string("member \"") + key + "\": " + error.what());
    }
}

/// Writes an optional member only when it has a value (absent optionals are left out, not null).
template <typename T>
void putOptional(Json& object, const char* key, const std::optional<T>& value) {
    if (value) {
        object[key] = *value;
    }
}

/// Identifiers travel as canonical upper-case UUID text.
inline std::string uuidMember(const Json& object, const char* key) {
    const std::string text = required<std::string>(object, key);
    try {
        return canonicalUuid(text);
    } catch (const DecodingError& error) {
        throw DecodingError(std::string("member \"") + key + "\": " + error.what());
    }
}

inline std::filesystem::path fileUrlFrom(const Json& value) {
    return pathFromFileUrl(Decode<std::string>::from(value));
}

}  // namespace json

inline void to_json(Json& out, const Date& date) {
    out = date.secondsSinceReferenceDate;
}

}  // namespace kelvo
