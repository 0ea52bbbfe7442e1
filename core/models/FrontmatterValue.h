#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/models/Json.h"

namespace kelvo {

/// The line that opens and closes a note's front matter.
inline constexpr std::string_view kFrontmatterDelimiter = "---";

/// One value of a note's front matter: a text, an integer, a truth value or a list of texts.
/// Stored in JSON as the bare value, without a tag.
class FrontmatterValue {
  public:
    using Array = std::vector<std::string>;
    using Storage = std::variant<std::string, std::int64_t, bool, Array>;

    FrontmatterValue() : value_(std::string()) {}
    static FrontmatterValue string(std::string text) { return FrontmatterValue(std::move(text)); }
    static FrontmatterValue integer(std::int64_t number) { return FrontmatterValue(number); }
    static FrontmatterValue boolean(bool flag) { return FrontmatterValue(flag); }
    static FrontmatterValue array(Array items) { return FrontmatterValue(std::move(items)); }

    const std::string* asString() const { return std::get_if<std::string>(&value_); }
    const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&value_); }
    const bool* asBoolean() const { return std::get_if<bool>(&value_); }
    const Array* asArray() const { return std::get_if<Array>(&value_); }
    const Storage& storage() const { return value_; }

    /// The value as every front-matter writer puts it after "key: ": a text as quotedText(), an
    /// integer in decimal, a truth value as true or false. std::nullopt for a list, which each
    /// writer lays out its own way.
    std::optional<std::string> scalarText() const {
        if (const auto* text = asString()) {
            return quotedText(*text);
        }
        if (const auto* number = asInteger()) {
            return std::to_string(*number);
        }
        if (const auto* flag = asBoolean()) {
            return *flag ? "true" : "false";
        }
        return std::nullopt;
    }

    /// A text in double quotes, as it is (quotes and backslashes inside included) unless it holds
    /// a line break or another control character, which would break the note: such a text is
    /// written as a JSON string, also a YAML double-quoted one, so it stays on its line (a line
    /// break inside reads "\n", and no "---" in it can end the front matter) and decodes back to
    /// the text.
    static std::string quotedText(std::string_view text) {
        if (!needsEscaping(text)) {
            return "\"" + std::string(text) + "\"";
        }
        std::string escaped =
            Json(std::string(text)).dump(-1, ' ', false, Json::error_handler_t::replace);
        // JSON leaves the Unicode line separators as they are; some YAML readers break lines there.
        for (const auto& [raw, escape] :
             {std::pair<std::string_view, std::string_view>{"\u0085", "\\u0085"},
              {"\u2028", "\\u2028"},
              {"\u2029", "\\u2029"}}) {
            for (auto at = escaped.find(raw); at != std::string::npos;
                 at = escaped.find(raw, at + escape.size())) {
                escaped.replace(at, raw.size(), escape);
            }
        }
        return escaped;
    }

    /// For the places where a writer puts a text without quotes (tags, bracketed lists): the text
    /// as it is, or quotedText() when it would break the note.
    static std::string bareText(std::string_view text) {
        return needsEscaping(text) ? quotedText(text) : std::string(text);
    }

    friend bool operator==(const FrontmatterValue&, const FrontmatterValue&) = default;

  private:
    static bool needsEscaping(std::string_view text) {
        for (std::size_t i = 0; i < text.size(); ++i) {
            const auto c = static_cast<unsigned char>(text[i]);
            const std::string_view rest = text.substr(i);
            if (c < 0x20 || rest.starts_with("\u0085") || rest.starts_with("\u2028") ||
                rest.starts_with("\u2029")) {
                return true;
            }
        }
        return false;
    }

    template <typename T>
    explicit FrontmatterValue(T value) : value_(std::move(value)) {}

    Storage value_;
};

inline void to_json(Json& out, const FrontmatterValue& value) {
    std::visit([&out](const auto& payload) { out = payload; }, value.storage());
}

/// Tries a truth value, then an integer, then a text, then a list of texts, as the stored forms
/// are untagged.
inline void from_json(const Json& in, FrontmatterValue& value) {
    if (in.is_boolean()) {
        value = FrontmatterValue::boolean(in.get<bool>());
        return;
    }
    if (in.is_number()) {
        try {
            value = FrontmatterValue::integer(json::Decode<std::int64_t>::from(in));
            return;
        } catch (const DecodingError&) {
            // A fractional number fits none of the forms; reported below.
        }
    }
    if (in.is_string()) {
        value = FrontmatterValue::string(in.get<std::string>());
        return;
    }
    if (in.is_array()) {
        value = FrontmatterValue::array(json::Decode<FrontmatterValue::Array>::from(in));
        return;
    }
    throw DecodingError("expected a string, integer, boolean or array of strings, found " +
                        in.dump());
}

}  // namespace kelvo
