#pragma once

// FolderLock holds an exclusive advisory lock (flock) on a folder for as long as it lives, so that
// cooperating writers of the files in that folder (two kelvo processes, the app and kelvo, two
// threads with their own FolderLock) run their read-modify-write one after the other. The lock
// belongs to this object's own open descriptor: a second FolderLock on the same folder waits even
// in the same process. Not copyable; created and destroyed on one thread.

#include <filesystem>

namespace kelvo {

class FolderLock {
  public:
    /// Blocks until the lock is held; an interrupted wait (EINTR) is retried. Throws FileError
    /// naming `lockedFor` (the file the lock protects) when the folder cannot be opened or locked.
    FolderLock(const std::filesystem::path& folder, const std::filesystem::path& lockedFor);
    ~FolderLock();

    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

  private:
    int fd_ = -1;
};

}  // namespace kelvo
