#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/support/Uuid.h"

namespace kelvo::testing {

/// A fresh folder that stands in as the temporary folder ($TMPDIR) while the object lives, so a
/// test sees exactly the files the code under test left behind. Removed, and $TMPDIR restored,
/// on destruction.
class RecorderTestFolder {
  public:
    RecorderTestFolder() {
        if (const char* old = std::getenv("TMPDIR")) {
            oldTmpdir_ = old;
        }
        path_ = std::filesystem::temp_directory_path() / ("kelvo-recorder-test-" + makeUuid());
        std::filesystem::create_directories(path_);
        ::setenv("TMPDIR", path_.c_str(), 1);
    }
    ~RecorderTestFolder() {
        if (oldTmpdir_) {
            ::setenv("TMPDIR", oldTmpdir_->c_str(), 1);
        } else {
            ::unsetenv("TMPDIR");
        }
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    RecorderTestFolder(const RecorderTestFolder&) = delete;
    RecorderTestFolder& operator=(const RecorderTestFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// File names in the folder, sorted.
    std::vector<std::string> fileNames() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

  private:
    std::filesystem::path path_;
    std::optional<std::string> oldTmpdir_;
};

}  // namespace kelvo::testing
