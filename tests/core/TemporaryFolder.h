#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace kelvo::testing {

/// A fresh folder under the system's temporary folder, removed with everything in it when the
/// object goes. Paths are canonical, so tests can compare them with what the code resolves.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kelvo-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = std::filesystem::canonical(pattern);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// Writes `contents` to `relative`, creating its folders.
    std::filesystem::path write(const std::filesystem::path& relative,
                                std::string_view contents) const {
        const std::filesystem::path file = path_ / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << contents;
        return file;
    }

  private:
    std::filesystem::path path_;
};

/// The whole contents of a file, or "<missing>" when there is none.
inline std::string contentsOf(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return "<missing>";
    }
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// Sets an environment variable for the life of the object, restoring the old value after.
class ScopedEnvironment {
  public:
    ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
        if (const char* old = ::getenv(name)) {
            old_ = old;
        }
        ::setenv(name, value.c_str(), 1);
    }
    ~ScopedEnvironment() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    const char* name_;
    std::optional<std::string> old_;
};

}  // namespace kelvo::testing
