#include "core/services/BookmarkManager.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <system_error>

#include "core/models/Json.h"
#include "core/services/JsonFile.h"
#include "core/support/AtomicFile.h"
#include "core/support/FolderLock.h"

namespace kelvo {

namespace fs = std::filesystem;

namespace {

/// The folder below the configuration home that holds every suite of the program.
constexpr const char* kSuitesFolderName = "KelvoVoiceMac";

constexpr const char* kPathMember = "path";
constexpr const char* kDeviceMember = "device";
constexpr const char* kInodeMember = "inode";

std::optional<fs::path> configurationHome() {
    // XDG base directories must be absolute; a relative value is ignored, as other tools do.
    if (const char* configured = std::getenv("XDG_CONFIG_HOME");
        configured != nullptr && configured[0] == '/') {
        return fs::path(configured);
    }
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        return fs::path(home) / ".config";
    }
    return std::nullopt;
}

bool isUsableSuiteName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
}

/// The suite's entries; an absent, unreadable or damaged file reads as an empty suite, as a
/// user-defaults suite that has never been written does. So does one nested too deeply to be
/// written back (writing recurses once per level).
Json readSuite(const fs::path& file) noexcept {
    try {
        Json suite = jsonfile::parse(file, readWholeFile(file));
        if (suite.is_object()) {
            return suite;
        }
    } catch (...) {
        // Missing or unreadable: nothing stored.
    }
    return Json::object();
}

std::optional<std::string> storedData(const fs::path& file, const std::string& key) noexcept {
    const Json suite = readSuite(file);
    const auto entry = suite.find(key);
    if (entry == suite.end() || !entry->is_string()) {
        return std::nullopt;
    }
    return entry->get<std::string>();
}

/// Applies `change` to the suite's entries and writes them back atomically. A suite file that is
/// there but cannot be decoded is moved aside first and reported to `onDamaged`, so a rewrite
/// never destroys bookmarks the user may still recover from it. Throws on failure.
void updateSuite(const fs::path& file, const std::function<void(Json&)>& change,
                 const jsonfile::DamagedFileObserver& onDamaged) {
    const fs::path folder = file.parent_path();
    fs::create_directories(folder);
    // Two updates of different keys (threads or processes) must not undo each other.
    FolderLock lock(folder, file);
    Json suite = Json::object();
    if (jsonfile::exists(file)) {
        jsonfile::requireRegularFile(file, file);
        try {
            suite = jsonfile::parse(file, readWholeFile(file));
            if (!suite.is_object()) {
                throw DecodingError(file.string() + ": not an object of bookmarks");
            }
        } catch (const DecodingError& error) {
            const fs::path movedTo = jsonfile::moveDamagedAside(file, file, "bookmark suite");
            if (onDamaged) {
                onDamaged(file, movedTo, error.what());
            }
            suite = Json::object();
        }
    }
    change(suite);
    // The lock above already serialises writers; the write itself need not take it again.
    writeFileAtomically(file, suite.dump(2) + "\n", WriteCoordination::none);
}

/// The bookmark data of an existing folder: its canonical path and identity, as JSON text.
std::string makeBookmarkData(const fs::path& url) {
    struct stat status {};
    if (::stat(url.c_str(), &status) != 0) {
        throw BookmarkManager::Error::bookmarkCreationFailed(std::strerror(errno));
    }
    if (!S_ISDIR(status.st_mode)) {
        throw BookmarkManager::Error::bookmarkCreationFailed(std::strerror(ENOTDIR));
    }
    std::error_code error;
    const fs::path canonical = fs::canonical(url, error);
    if (error) {
        throw BookmarkManager::Error::bookmarkCreationFailed(error.message());
    }
    Json data = Json::object();
    data[kPathMember] = canonical.string();
    data[kDeviceMember] = static_cast<std::uint64_t>(status.st_dev);
    data[kInodeMember] = static_cast<std::uint64_t>(status.st_ino);
    try {
        return data.dump();
    } catch (const Json::type_error&) {
        // Linux paths are bytes; the suite is JSON text and can only carry UTF-8.
        throw BookmarkManager::Error::bookmarkCreationFailed("The folder path is not valid UTF-8");
    }
}

struct ResolvedBookmark {
    fs::path url;
    bool isStale = false;
};

std::optional<ResolvedBookmark> resolveData(const std::string& data) {
    const Json bookmark = Json::parse(data, nullptr, /*allow_exceptions=*/false);
    if (!bookmark.is_object()) {
        return std::nullopt;
    }
    const auto path = bookmark.find(kPathMember);
    const auto device = bookmark.find(kDeviceMember);
    const auto inode = bookmark.find(kInodeMember);
    if (path == bookmark.end() || !path->is_string() || device == bookmark.end() ||
        !device->is_number_unsigned() || inode == bookmark.end() || !inode->is_number_unsigned()) {
        return std::nullopt;
    }
    const fs::path url = path->get<std::string>();
    if (!url.is_absolute()) {
        return std::nullopt;
    }
    struct stat status {};
    if (::stat(url.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return std::nullopt;
    }
    const bool sameFolder =
        static_cast<std::uint64_t>(status.st_dev) == device->get<std::uint64_t>() &&
        static_cast<std::uint64_t>(status.st_ino) == inode->get<std::uint64_t>();
    return ResolvedBookmark{url, !sameFolder};
}

/// There is no scoped access to end on Linux; the release only checks that its holder keeps the
/// contract, so that code written here stays correct where the release does real work.
std::function<void()> makeRelease() {
    auto released = std::make_shared<std::atomic<bool>>(false);
    return [released] {
        [[maybe_unused]] const bool alreadyReleased = released->exchange(true);
        assert(!alreadyReleased && "ScopedURL released twice");
    };
}

}  // namespace

BookmarkManager::Error::Error(Case errorCase, const std::string& description)
    : kelvo::Error(description), case_(errorCase) {}

BookmarkManager::Error BookmarkManager::Error::userDefaultsUnavailable(
    const std::string& suiteName) {
    return Error(Case::userDefaultsUnavailable, "Unable to open UserDefaults suite: " + suiteName);
}

BookmarkManager::Error BookmarkManager::Error::securityScopedAccessDenied(const fs::path& url) {
    return Error(Case::securityScopedAccessDenied,
                 "Unable to access security-scoped resource: " + url.string());
}

BookmarkManager::Error BookmarkManager::Error::bookmarkCreationFailed(const std::string& message) {
    return Error(Case::bookmarkCreationFailed, "Failed to create bookmark: " + message);
}

BookmarkManager::BookmarkManager(std::string suiteName, jsonfile::DamagedFileObserver onDamaged)
    : suiteName_(std::move(suiteName)), onDamaged_(std::move(onDamaged)) {
    if (!isUsableSuiteName(suiteName_)) {
        return;
    }
    if (const auto home = configurationHome()) {
        defaults_ = *home / kSuitesFolderName / (suiteName_ + ".json");
    }
}

void BookmarkManager::saveBookmark(const fs::path& url, const std::string& key) const {
    if (!defaults_) {
        throw Error::userDefaultsUnavailable(suiteName_);
    }
    const std::string data = makeBookmarkData(url);
    try {
        updateSuite(
            *defaults_, [&](Json& suite) { suite[key] = data; }, onDamaged_);
    } catch (const std::exception&) {
        // The suite could be named but not written (no configuration folder, read-only home).
        throw Error::userDefaultsUnavailable(suiteName_);
    }
}

std::optional<fs::path> BookmarkManager::resolveURL(const std::string& key) const noexcept {
    if (!defaults_) {
        return std::nullopt;
    }
    try {
        const auto data = storedData(*defaults_, key);
        if (!data) {
            return std::nullopt;
        }
        const auto resolved = resolveData(*data);
        if (!resolved) {
            return std::nullopt;
        }
        if (resolved->isStale) {
            try {
                const std::string refreshed = makeBookmarkData(resolved->url);
                updateSuite(
                    *defaults_, [&](Json& suite) { suite[key] = refreshed; }, onDamaged_);
            } catch (...) {
                // The folder is still usable; the old data stays and is refreshed next time.
            }
        }
        return resolved->url;
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<ScopedURL> BookmarkManager::resolveScopedURL(const std::string& key) const noexcept {
    auto url = resolveURL(key);
    if (!url) {
        return std::nullopt;
    }
    try {
        return ScopedURL{std::move(*url), makeRelease()};
    } catch (...) {
        return std::nullopt;
    }
}

void BookmarkManager::removeBookmark(const std::string& key) const noexcept {
    // Leave the file untouched (not even rewritten) when there is nothing to remove.
    if (!defaults_ || !readSuite(*defaults_).contains(key)) {
        return;
    }
    try {
        updateSuite(
            *defaults_, [&](Json& suite) { suite.erase(key); }, onDamaged_);
    } catch (...) {
        // Nothing to report through: removal is specified as never failing.
    }
}

bool BookmarkManager::hasBookmark(const std::string& key) const noexcept {
    return defaults_ && storedData(*defaults_, key).has_value();
}

}  // namespace kelvo
