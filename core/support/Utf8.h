#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kelvo {

/// True when `bytes` is well-formed UTF-8: shortest-form sequences only, no surrogate code
/// points, nothing above U+10FFFF, no truncated sequence at the end. The empty text is valid.
bool isValidUtf8(std::string_view bytes) noexcept;

/// `bytes` made safe to show on one line of a terminal: control characters (C0, DEL, C1) and
/// bytes that are not UTF-8 appear as backslash escapes (\n, \x1B, \u0085) and a backslash
/// itself as two, so the escapes are unambiguous; a text longer than
/// `maximumBytes` is cut at a character boundary and ends in an ellipsis (U+2026).
std::string visibleText(std::string_view bytes, std::size_t maximumBytes = SIZE_MAX);

}  // namespace kelvo
