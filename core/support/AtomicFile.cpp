#include "core/support/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <random>
#include <utility>

#include "core/support/Error.h"
#include "core/support/FolderLock.h"

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

constexpr std::size_t kTemporarySuffixLength = 6;

// "." + the target's name + "." + six letters or digits: hidden, and recognisable afterwards as
// a leftover of this target.
std::string temporaryPrefix(const std::filesystem::path& target) {
    return "." + target.filename().string() + ".";
}

// Creates the temporary file with O_EXCL and mode 0666, which the kernel narrows by the umask;
// the process-wide umask is never touched (another thread may be creating files meanwhile).
int createTemporaryFile(const std::filesystem::path& folder, const std::filesystem::path& target,
                        std::string& name) {
    static constexpr char kLetters[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    thread_local std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<std::size_t> pick(0, sizeof kLetters - 2);
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string suffix(kTemporarySuffixLength, ' ');
        for (char& letter : suffix) {
            letter = kLetters[pick(random)];
        }
        name = (folder / (temporaryPrefix(target) + suffix)).string();
        const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST) {
            return fd;
        }
    }
    errno = EEXIST;
    return -1;
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& target, std::string_view data,
                         WriteCoordination coordination) {
    const std::filesystem::path folder =
        target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");

    // Cooperating writers into one folder are serialised.
    std::optional<FolderLock> lock;
    if (coordination == WriteCoordination::exclusiveLock) {
        lock.emplace(folder, target);
    }

    std::string temporary;
    Descriptor file(createTemporaryFile(folder, target, temporary));
    if (file.get() < 0) {
        fail("create a temporary file for", target, errno);
    }
    try {
        // Keep the permissions of the file being replaced; a new file keeps 0666 less umask.
        struct stat existing {};
        if (::stat(target.c_str(), &existing) == 0) {
            ::fchmod(file.get(), existing.st_mode & 07777);
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
    // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer forever.
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0) {
        fail("read", path, errno);
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        fail("read", path, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        // A FIFO would block, a device such as /dev/zero never ends.
        throw FileError("Could not read \"" + path.string() + "\": " +
                        (S_ISDIR(status.st_mode) ? "it is a folder" : "it is not a regular file"));
    }
    std::string contents;
    char buffer[64 * 1024];
    try {
        contents.reserve(static_cast<std::size_t>(status.st_size));
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
    } catch (const std::bad_alloc&) {
        throw FileError("Could not read \"" + path.string() + "\": it is too large (" +
                        std::to_string(status.st_size) + " bytes) to fit in memory");
    }
}

std::filesystem::path followSymlinks(const std::filesystem::path& path) {
    std::filesystem::path current = path;
    // The same bound as the kernel's, so a loop ends in an error instead of spinning.
    for (int hops = 0; hops < 40; ++hops) {
        std::error_code error;
        if (!std::filesystem::is_symlink(current, error)) {
            return current;
        }
        const std::filesystem::path link = std::filesystem::read_symlink(current, error);
        if (error) {
            fail("follow the link", current, error.value());
        }
        current = link.is_absolute() ? link : current.parent_path() / link;
    }
    fail("follow the link", path, ELOOP);
}

void removeLeftoverTemporaryFiles(const std::filesystem::path& target) {
    const std::filesystem::path folder =
        target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");
    const std::string prefix = temporaryPrefix(target);
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (name.size() == prefix.size() + kTemporarySuffixLength && name.starts_with(prefix) &&
            it->is_regular_file(error)) {
            ::unlink(it->path().c_str());
        }
    }
}

}  // namespace kelvo
