#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/core/TemporaryFolder.h"

namespace kelvo::testing {

/// A fresh temporary folder that stands in as the temporary folder ($TMPDIR) while the object
/// lives, so a test sees exactly the files the code under test left behind. $TMPDIR is restored,
/// then the folder removed, on destruction.
class RecorderTestFolder {
  public:
    const std::filesystem::path& path() const { return folder_.path(); }

    /// File names in the folder, sorted.
    std::vector<std::string> fileNames() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

  private:
    TemporaryFolder folder_;
    ScopedEnvironment tmpdir_{"TMPDIR", folder_.path().string()};
};

}  // namespace kelvo::testing
