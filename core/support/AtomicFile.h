#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kelvo {

/// How a write cooperates with other writers of the same file.
enum class WriteCoordination {
    none,
    /// Hold an exclusive advisory lock (flock) on the target's folder while the new contents
    /// replace it, so that cooperating writers never interleave with this write.
    exclusiveLock,
};

/// Replaces `target` with `data` so that a reader sees the old file or the new one whole, never a
/// mixture: the data goes to a temporary file in the same folder, is flushed to disk, and is then
/// renamed over the target. The folder must exist. Throws FileError naming the file on failure;
/// the target is then unchanged and no temporary file is left behind.
void writeFileAtomically(const std::filesystem::path& target, std::string_view data,
                         WriteCoordination coordination = WriteCoordination::none);

/// The whole contents of a file. Throws FileError naming the file when it cannot be read.
std::string readWholeFile(const std::filesystem::path& path);

}  // namespace kelvo
