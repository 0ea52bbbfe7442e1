#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kelvo {

/// How a write cooperates with other writers of the same file.
enum class WriteCoordination {
    none,
    /// Hold an exclusive advisory lock (a FolderLock) on the target's folder while the new
    /// contents replace it, so that cooperating writers never interleave with this write. Not for
    /// a caller that already holds that lock: it would wait for itself.
    exclusiveLock,
};

/// Replaces `target` with `data` so that a reader sees the old file or the new one whole, never a
/// mixture: the data goes to a temporary file in the same folder, is flushed to disk, and is then
/// renamed over the target. The folder must exist. Throws FileError naming the file on failure;
/// the target is then unchanged and no temporary file is left behind.
void writeFileAtomically(const std::filesystem::path& target, std::string_view data,
                         WriteCoordination coordination = WriteCoordination::none);

/// The whole contents of a regular file. Throws FileError naming the file and saying what is
/// wrong when it cannot be read, is not a regular file (a FIFO or a device is refused at once,
/// never waited on or read without end) or does not fit in memory.
std::string readWholeFile(const std::filesystem::path& path);

/// The file that `path` ends up naming once every symbolic link on its last component is
/// followed (relative links against their own folder); `path` itself when it is no link. The
/// target need not exist. Throws FileError for a link that cannot be read or a loop.
std::filesystem::path followSymlinks(const std::filesystem::path& path);

/// Removes the temporary files a killed writeFileAtomically of `target` left in its folder. Call
/// it only while holding the folder's lock, so no cooperating writer's file is taken. Failures are
/// ignored: a leftover only wastes space.
void removeLeftoverTemporaryFiles(const std::filesystem::path& target);

}  // namespace kelvo
