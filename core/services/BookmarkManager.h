#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/services/JsonFile.h"
#include "core/services/ScopedURL.h"
#include "core/support/Error.h"

namespace kelvo {

/// Remembers folders the user picked (a save folder, a notes vault) across launches and hands them
/// back. Bookmarks live in a user-defaults suite: one JSON file per suite name,
/// $XDG_CONFIG_HOME/KelvoVoiceMac/<suiteName>.json (default ~/.config), an object mapping each key
/// to its bookmark data text. A bookmark records the folder's canonical absolute path and its
/// identity (device and inode number); it is stale when the folder found at that path is no longer
/// the same one (replaced, or moved away and another put in its place). Linux has no way to find a
/// moved folder from its inode short of a full scan, so resolution always goes by the recorded
/// path: a stale bookmark resolves to whatever directory is now there and is rewritten with that
/// directory's identity; a path that no longer names a directory resolves to nothing.
///
/// A suite file that cannot be decoded reads as empty, so lookups find nothing; the next write
/// moves it aside ("<suiteName>.json.damaged-<UTC time>" beside it) and tells `onDamaged`, rather
/// than writing over bookmarks the user may still recover.
///
/// The manager holds no state beyond the suite's location, so every call sees the file as it is
/// now and several managers (or processes) on one suite agree. Any thread may call any operation:
/// writes are atomic renames done under an exclusive advisory lock on the suite folder, so
/// concurrent updates of different keys are not lost.
class BookmarkManager {
  public:
    /// What went wrong in saveBookmark (or, for callers that must not work without access,
    /// securityScopedAccessDenied). `what()` is the description shown to the user.
    class Error : public kelvo::Error {
      public:
        enum class Case {
            userDefaultsUnavailable,
            securityScopedAccessDenied,
            bookmarkCreationFailed
        };

        static Error userDefaultsUnavailable(const std::string& suiteName);
        static Error securityScopedAccessDenied(const std::filesystem::path& url);
        static Error bookmarkCreationFailed(const std::string& message);

        Case errorCase() const noexcept { return case_; }

      private:
        Error(Case errorCase, const std::string& description);
        Case case_;
    };

    /// Opens the suite. Never fails: a name that cannot be a file name (empty, ".", "..", or
    /// containing "/" or a NUL) or a missing home folder leaves the suite absent, and then saves
    /// fail and lookups find nothing.
    explicit BookmarkManager(std::string suiteName, jsonfile::DamagedFileObserver onDamaged = {});

    const std::string& suiteName() const noexcept { return suiteName_; }
    /// The suite's file, or nothing when the suite was refused.
    const std::optional<std::filesystem::path>& defaults() const noexcept { return defaults_; }

    /// Stores a bookmark of the folder `url` under `key`, replacing any earlier one.
    /// Throws Error: userDefaultsUnavailable when the suite is absent or its file cannot be
    /// written; bookmarkCreationFailed with the system's message when `url` is not an existing
    /// folder.
    void saveBookmark(const std::filesystem::path& url, const std::string& key) const;

    /// The folder bookmarked under `key`, or nothing (no suite, no entry, unreadable data, or no
    /// directory at the recorded path any more). A stale bookmark is refreshed on the way; a
    /// failed refresh is ignored.
    std::optional<std::filesystem::path> resolveURL(const std::string& key) const noexcept;

    /// As resolveURL, wrapped with the access to release once done.
    std::optional<ScopedURL> resolveScopedURL(const std::string& key) const noexcept;

    /// Deletes the entry; does nothing when there is none or the suite is absent.
    void removeBookmark(const std::string& key) const noexcept;

    /// Whether the suite holds bookmark data (readable or not) under `key`.
    bool hasBookmark(const std::string& key) const noexcept;

  private:
    std::string suiteName_;
    std::optional<std::filesystem::path> defaults_;
    jsonfile::DamagedFileObserver onDamaged_;
};

}  // namespace kelvo
