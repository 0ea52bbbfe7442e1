#pragma once

// FolderLock holds an exclusive advisory lock (flock) on a folder for as long as it lives, so that
// cooperating writers of the files in that folder (two kelvo processes, the app and kelvo, two
// threads with their own FolderLock) run their read-modify-write one after the other. The lock
// belongs to this object's own open descriptor: a second FolderLock on the same folder waits even
// in the same process. Not copyable; created and destroyed on one thread.

#include <chrono>
#include <filesystem>

namespace kelvo {

class FolderLock {
  public:
    /// Long enough for any honest writer of our small files, even on a slow disk.
    static constexpr std::chrono::milliseconds defaultWait{10'000};

    /// Waits up to `wait` for the lock. Throws FileError naming `lockedFor` (the file the lock
    /// protects) when the folder cannot be opened or locked, or when another writer still holds
    /// the lock after `wait` (a process stuck or stopped while writing).
    FolderLock(const std::filesystem::path& folder, const std::filesystem::path& lockedFor,
               std::chrono::milliseconds wait = defaultWait);
    ~FolderLock();

    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

  private:
    int fd_ = -1;
};

}  // namespace kelvo
