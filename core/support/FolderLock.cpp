#include "core/support/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "core/support/Error.h"

namespace kelvo {

FolderLock::FolderLock(const std::filesystem::path& folder,
                       const std::filesystem::path& lockedFor) {
    // The folder, not the file: locking the file would have to create it, and the atomic rename
    // replaces the file's inode under any lock held on it.
    fd_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd_ < 0) {
        throw FileError("Could not open the folder of \"" + lockedFor.string() +
                        "\" to lock it: " + std::strerror(errno));
    }
    while (::flock(fd_, LOCK_EX) != 0) {
        if (errno == EINTR) {
            continue;  // a signal arrived while waiting for the other writer
        }
        const int error = errno;
        ::close(fd_);
        throw FileError("Could not lock \"" + lockedFor.string() + "\": " + std::strerror(error));
    }
}

FolderLock::~FolderLock() {
    ::close(fd_);  // releases the lock
}

}  // namespace kelvo
