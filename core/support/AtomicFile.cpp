#include "core/support/AtomicFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "core/support/Error.h"

namespace kelvo {

namespace {

[[noreturn]] void fail(const std::string& action, const std::filesystem::path& path, int error) {
    throw FileError("Could not " + action + " \"" + path.string() + "\": " + std::strerror(error));
}

/// Closes a descriptor on every path out of the write.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

void writeAll(int fd, std::string_view data, const std::filesystem::path& path) {
    while (!data.empty()) {
        const ssize_t written = ::write(fd, data.data(), data.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("write", path, errno);
        }
        data.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& target, std::string_view data,
                         WriteCoordination coordination) {
    const std::filesystem::path folder =
        target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");

    // The lock is taken on the folder, not the target: locking the target would have to create
    // it (leaving an empty file behind if the write then fails), and the rename replaces the
    // target's inode anyway. Cooperating writers into one folder are serialised.
    Descriptor lock(coordination == WriteCoordination::exclusiveLock
                        ? ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                        : -1);
    if (coordination == WriteCoordination::exclusiveLock) {
        if (lock.get() < 0) {
            fail("open the folder of", target, errno);
        }
        if (::flock(lock.get(), LOCK_EX) != 0) {
            fail("lock", target, errno);
        }
    }

    std::string temporary = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
    Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (file.get() < 0) {
        fail("create a temporary file for", target, errno);
    }
    try {
        // Keep the permissions of the file being replaced; new files get the usual 0644 less umask.
        struct stat existing {};
        if (::stat(target.c_str(), &existing) == 0) {
            ::fchmod(file.get(), existing.st_mode & 07777);
        } else {
            const mode_t mask = ::umask(0);
            ::umask(mask);
            ::fchmod(file.get(), 0666 & ~mask);
        }
        writeAll(file.get(), data, target);
        if (::fsync(file.get()) != 0) {
            fail("flush", target, errno);
        }
        if (::close(file.release()) != 0) {
            fail("close", target, errno);
        }
        if (::rename(temporary.c_str(), target.c_str()) != 0) {
            fail("replace", target, errno);
        }
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    // Make the rename itself durable.
    Descriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() >= 0) {
        ::fsync(directory.get());
    }
}

std::string readWholeFile(const std::filesystem::path& path) {
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        fail("read", path, errno);
    }
    std::string contents;
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("read", path, errno);
        }
        if (count == 0) {
            return contents;
        }
        contents.append(buffer, static_cast<std::size_t>(count));
    }
}

}  // namespace kelvo
