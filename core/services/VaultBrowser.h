#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/services/BookmarkManager.h"
#include "core/services/ScopedURL.h"
#include "core/services/VaultEntry.h"
#include "core/services/VaultFile.h"
#include "core/support/Error.h"

namespace kelvo {

/// Browses the Markdown notes of the folder the user picked as a vault: lists notes and folders,
/// reads one note split into front matter and body with its wiki links, and finds notes by name.
/// Every operation obtains the folder afresh (from the bookmark under `bookmarkKey`, else under
/// `fallbackBookmarkKey`) and releases its scoped access before returning, so the browser holds
/// no mutable state and any thread may call it, also concurrently.
///
/// The browser stays inside the vault: reading refuses relative paths that leave it (absolute
/// paths, ".." components, symbolic links resolving elsewhere) as not found, and listing neither
/// descends into symbolic links nor lists links whose target lies outside.
class VaultBrowser {
  public:
    /// The folder to browse, with its access to release; nothing when no folder is set.
    using FolderResolver = std::function<std::optional<ScopedURL>()>;

    /// A failure of a browser operation; `what()` is the Japanese text shown to the user.
    class Error : public kelvo::Error {
      public:
        enum class Case { notFound, readFailed, noBookmark, accessDenied };

        static Error notFound(const std::string& path);
        static Error readFailed(const std::string& message);
        static Error noBookmark();
        static Error accessDenied();

        Case errorCase() const noexcept { return case_; }

      private:
        Error(Case errorCase, const std::string& description);
        Case case_;
    };

    VaultBrowser(std::shared_ptr<BookmarkManager> bookmarkManager, std::string bookmarkKey,
                 std::optional<std::string> fallbackBookmarkKey = std::nullopt);
    /// A browser over folders found some other way (a folder given on a command line, tests).
    explicit VaultBrowser(FolderResolver folderResolver);

    /// Every folder and note (.md / .markdown, any case) below the vault, recursively, hidden
    /// items (names starting with ".") skipped and not descended into. Dated entries come first,
    /// newest first; undated ones follow in file-browser order of their names (numbers compared by
    /// value, so "note 2" before "note 10"). Items that cannot be examined are skipped.
    /// Throws Error: noBookmark, or accessDenied when the folder cannot be opened.
    std::vector<VaultEntry> list() const;

    /// The note at `relativePath` below the vault. Throws Error: noBookmark; accessDenied; notFound
    /// (with `relativePath`) when no file is there or the path leaves the vault; readFailed when it
    /// cannot be read or is not UTF-8 text.
    VaultFile read(const std::string& relativePath) const;

    /// The notes (files only; folders never match) whose file name without its extension contains
    /// `query`, trimmed of white space and compared lower-cased and canonically composed, in the
    /// order of list(). An empty query matches every note. Throws as list().
    std::vector<VaultEntry> search(const std::string& query) const;

    /// Puts entries in listing order (see list()); ties keep a stable, path-based order.
    static void sortForListing(std::vector<VaultEntry>& entries);

    /// Splits a note's text into front matter and body and collects its wiki links.
    static VaultFile parse(std::string content);

    /// The "[[target]]" and "[[target|alias]]" link targets of a text, trimmed, each once, in order
    /// of first appearance. A "#heading" part stays with its target.
    static std::vector<std::string> wikiLinks(std::string_view text);

  private:
    FolderResolver folderResolver_;
};

}  // namespace kelvo
