#pragma once

#include <string_view>

namespace kelvo {

/// True when `bytes` is well-formed UTF-8: shortest-form sequences only, no surrogate code
/// points, nothing above U+10FFFF, no truncated sequence at the end. The empty text is valid.
bool isValidUtf8(std::string_view bytes) noexcept;

}  // namespace kelvo
