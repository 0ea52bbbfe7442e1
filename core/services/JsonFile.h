#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "core/models/Json.h"
#include "core/support/AtomicFile.h"

namespace kelvo {

/// Reading and writing the stores' JSON files: one pretty-printed top-level value per file.
/// Every error names the file, so a message on its own tells the user which file is damaged.
namespace jsonfile {

/// Deeper than any record nests. Copying and writing JSON recurse once per level, and stores
/// write members they do not know back as read, so deeper files are refused as damaged.
inline constexpr std::size_t maximumNestingDepth = 512;

/// Parses a file's contents. Throws DecodingError "<path>: invalid JSON: ..." on malformed data,
/// including arrays and objects nested deeper than `maximumNestingDepth`.
Json parse(const std::filesystem::path& path, std::string_view data);

/// Reads and decodes a whole file as T. Throws FileError when it cannot be read and DecodingError
/// "<path>: <what is wrong>" when it is not valid JSON or does not fit T.
/// Errors name `shownAs` (the path the user gave, when `path` is where its link points).
template <typename T>
T read(const std::filesystem::path& path, const std::filesystem::path& shownAs = {}) {
    const std::filesystem::path& name = shownAs.empty() ? path : shownAs;
    const Json document = parse(name, readWholeFile(path));
    try {
        return json::Decode<T>::from(document);
    } catch (const DecodingError& error) {
        throw DecodingError(name.string() + ": " + error.what());
    }
}

/// Throws FileError naming `shownAs` when something other than a regular file (a FIFO, a device,
/// a folder) is at `path`: such a thing is never read, replaced or moved aside.
void requireRegularFile(const std::filesystem::path& path, const std::filesystem::path& shownAs);

/// The folder holding `file` ("." for a bare name).
std::filesystem::path folderOf(const std::filesystem::path& file);

/// Two-space indented JSON; non-ASCII text is written as UTF-8, not escaped. Malformed UTF-8 in
/// a text is written as U+FFFD rather than failing, as such text cannot be typed in the first
/// place.
std::string prettyPrinted(const Json& value);

/// Told when a store found its file unreadable or undecodable and moved it aside before writing:
/// the file as the user named it, where it now lies, and what was wrong with it.
using DamagedFileObserver =
    std::function<void(const std::filesystem::path& damaged, const std::filesystem::path& movedTo,
                       const std::string& reason)>;

/// How many copies of one damaged file are kept: older ones are deleted when another is set aside.
inline constexpr std::size_t keptDamagedCopies = 3;

/// Renames the damaged file at `path` to "<name>.damaged-<UTC time>" beside it ("...Z-2" and on
/// when that name is taken), deletes all but the newest `keptDamagedCopies` of those copies and
/// returns where it went. Throws FileError "Could not move the
/// damaged <kind> "<shownAs>" aside: <why>" when it cannot, leaving the file where it was.
std::filesystem::path moveDamagedAside(const std::filesystem::path& path,
                                       const std::filesystem::path& shownAs, std::string_view kind);

/// Whether something exists at `path`. A path whose status cannot be determined (for example a
/// folder without search permission) counts as existing, so the read reports the real error.
bool exists(const std::filesystem::path& path);

}  // namespace jsonfile

}  // namespace kelvo
