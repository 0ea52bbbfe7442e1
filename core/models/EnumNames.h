#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "core/models/Json.h"

namespace kelvo {

/// Specialised by every enumeration of the core: `cases` lists each case with its name, in
/// declaration order, and `typeName` is what error messages call the enumeration.
template <typename E>
struct EnumNames;

/// The case name, e.g. "voiceInput".
template <typename E>
constexpr std::string_view enumName(E value) {
    for (const auto& [candidate, name] : EnumNames<E>::cases) {
        if (candidate == value) {
            return name;
        }
    }
    return {};
}

/// The case with exactly this name (case-sensitive), if any.
template <typename E>
constexpr std::optional<E> enumFromName(std::string_view name) {
    for (const auto& [candidate, candidateName] : EnumNames<E>::cases) {
        if (candidateName == name) {
            return candidate;
        }
    }
    return std::nullopt;
}

/// Every case in declaration order.
template <typename E>
constexpr auto allCases() {
    std::array<E, EnumNames<E>::cases.size()> values{};
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = EnumNames<E>::cases[i].first;
    }
    return values;
}

/// "a|b|c": the case names for usage texts.
template <typename E>
std::string enumNameList() {
    std::string list;
    for (const auto& entry : EnumNames<E>::cases) {
        if (!list.empty()) {
            list += '|';
        }
        list += entry.second;
    }
    return list;
}

namespace json {

template <typename E>
void encodeByName(Json& out, E value) {
    out = std::string(enumName(value));
}

template <typename E>
void decodeByName(const Json& in, E& value) {
    const std::string name = Decode<std::string>::from(in);
    const auto found = enumFromName<E>(name);
    if (!found) {
        throw DecodingError("\"" + name + "\" is not a " + EnumNames<E>::typeName);
    }
    value = *found;
}

}  // namespace json

}  // namespace kelvo
