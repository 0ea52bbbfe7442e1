#include "core/support/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "core/support/Error.h"

namespace kelvo {
namespace {

std::string duration(std::chrono::milliseconds wait) {
    return wait.count() % 1000 == 0 ? std::to_string(wait.count() / 1000) + " s"
                                    : std::to_string(wait.count()) + " ms";
}

}  // namespace

FolderLock::FolderLock(const std::filesystem::path& folder, const std::filesystem::path& lockedFor,
                       std::chrono::milliseconds wait) {
    // The folder, not the file: locking the file would have to create it, and the atomic rename
    // replaces the file's inode under any lock held on it.
    fd_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd_ < 0) {
        throw FileError("Could not open the folder of \"" + lockedFor.string() +
                        "\" to lock it: " + std::strerror(errno));
    }
    // Polled, not a blocking flock: a writer that hangs or is stopped must not hang us too.
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if (error == EINTR) {
            continue;
        }
        if (error == EWOULDBLOCK && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        ::close(fd_);
        if (error == EWOULDBLOCK) {
            throw FileError("Could not lock \"" + lockedFor.string() + "\": another program has " +
                            "been writing in its folder for " + duration(wait) +
                            "; try again when it has finished");
        }
        throw FileError("Could not lock \"" + lockedFor.string() + "\": " + std::strerror(error));
    }
}

FolderLock::~FolderLock() {
    ::close(fd_);  // releases the lock
}

}  // namespace kelvo
