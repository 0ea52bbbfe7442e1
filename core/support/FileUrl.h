#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kelvo {

/// The absolute "file://" URL text of a local path, percent-encoding every byte outside the
/// characters a URL path may carry as they are (so spaces and Japanese names survive a round trip).
/// A relative path is made absolute against the current directory first.
std::string fileUrlString(const std::filesystem::path& path);

/// The local path named by a "file://" URL text (an empty or "localhost" host only).
/// Throws DecodingError for any other scheme or a malformed percent escape.
std::filesystem::path pathFromFileUrl(std::string_view url);

}  // namespace kelvo
