#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvo::unicode {

// Text is UTF-8 throughout. Invalid sequences are treated as U+FFFD by the functions that decode.

/// Canonical composition (NFC). Two canonically equivalent texts have the same NFC form, so
/// byte-wise search over NFC texts matches composed and decomposed spellings alike.
std::string toNfc(std::string_view text);

/// Replaces every occurrence of `from` (non-empty) in `text`, scanning left to right without
/// rescanning inserted text. Plain byte comparison: case-, width- and kana-sensitive.
/// Returns how many occurrences were replaced.
std::size_t replaceAll(std::string& text, std::string_view from, std::string_view to);

/// True when `text` begins with `prefix` and the prefix ends on a user-perceived character
/// boundary of `text` (so "あ、" is not a prefix of "あ、" followed by a combining mark).
bool startsWithCharacters(std::string_view text, std::string_view prefix);

/// Number of user-perceived characters (extended grapheme clusters).
std::size_t characterCount(std::string_view text);

/// The first `count` user-perceived characters of `text` (all of it when shorter).
std::string_view characterPrefix(std::string_view text, std::size_t count);

/// The longest prefix of whole user-perceived characters that fits in `maximumBytes` bytes; when
/// the first character alone is longer, the longest prefix of whole code points.
std::string_view characterPrefixWithinBytes(std::string_view text, std::size_t maximumBytes);

/// Removes spaces (U+0020) and tabs (U+0009) from both ends.
std::string_view trimSpacesAndTabs(std::string_view text);

/// Removes Unicode white space and line breaks (the White_Space property) from both ends.
std::string_view trimWhitespaceAndNewlines(std::string_view text);

/// Collapses every run of two or more ordinary spaces (U+0020) into one; other white space stays.
std::string collapseSpaceRuns(std::string_view text);

/// Full Unicode lower-casing (root locale).
std::string toLower(std::string_view text);

/// Whether a code point is a letter, a mark or a digit (general categories L*, M*, Nd).
bool isLetterMarkOrDigit(char32_t codePoint);

/// Decodes UTF-8 into code points, calling `visit(codePoint, byteOffset, byteLength)` for each.
template <typename Visitor>
void forEachCodePoint(std::string_view text, Visitor&& visit);

/// One UTF-8 encoded code point.
std::string encode(char32_t codePoint);

/// Decodes the code point at `offset`; sets `length` to its byte length (1 for invalid bytes,
/// which decode as U+FFFD).
char32_t decodeAt(std::string_view text, std::size_t offset, std::size_t& length);

template <typename Visitor>
void forEachCodePoint(std::string_view text, Visitor&& visit) {
    std::size_t offset = 0;
    while (offset < text.size()) {
        std::size_t length = 0;
        const char32_t codePoint = decodeAt(text, offset, length);
        visit(codePoint, offset, length);
        offset += length;
    }
}

}  // namespace kelvo::unicode
