#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace kelvo::bench {

/// A fresh temporary folder for one benchmark's files, removed with its contents when it goes.
class BenchFolder {
  public:
    BenchFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kelvo-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = pattern;
    }
    ~BenchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    BenchFolder(const BenchFolder&) = delete;
    BenchFolder& operator=(const BenchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

}  // namespace kelvo::bench
