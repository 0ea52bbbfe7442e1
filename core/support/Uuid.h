#pragma once

#include <string>
#include <string_view>

namespace kelvo {

/// A fresh random (version 4) UUID in canonical upper-case text form, 36 characters.
std::string makeUuid();

/// True when `text` is a canonical 8-4-4-4-12 hexadecimal UUID (either case).
bool isUuid(std::string_view text) noexcept;

/// The canonical upper-case form of a UUID text; throws DecodingError when it is not a UUID.
std::string canonicalUuid(std::string_view text);

}  // namespace kelvo
