#include "core/services/VaultBrowser.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unicode/coll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unordered_set>
#include <utility>

#include "core/models/FrontmatterValue.h"
#include "core/support/AtomicFile.h"
#include "core/support/PathContainment.h"
#include "core/support/Unicode.h"
#include "core/support/Utf8.h"

namespace kelvo {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kFinderMetadataName = ".DS_Store";

/// Ends the folder access on every path out of an operation, exactly once.
class ScopedFolder {
  public:
    explicit ScopedFolder(ScopedURL scoped) : scoped_(std::move(scoped)) {}
    ~ScopedFolder() {
        if (!scoped_.release) {
            return;
        }
        try {
            scoped_.release();
        } catch (...) {
            // Releasing is best effort; the operation's outcome stands.
        }
    }
    ScopedFolder(const ScopedFolder&) = delete;
    ScopedFolder& operator=(const ScopedFolder&) = delete;

    const fs::path& url() const { return scoped_.url; }

  private:
    ScopedURL scoped_;
};

ScopedURL obtainFolder(const VaultBrowser::FolderResolver& resolver) {
    std::optional<ScopedURL> folder;
    if (resolver) {
        folder = resolver();
    }
    if (!folder) {
        throw VaultBrowser::Error::noBookmark();
    }
    return std::move(*folder);
}

/// Closes a descriptor or directory stream on every path out of a scope.
class Directory {
  public:
    explicit Directory(int fd) : stream_(fd >= 0 ? ::fdopendir(fd) : nullptr) {
        if (fd >= 0 && stream_ == nullptr) {
            ::close(fd);
        }
    }
    ~Directory() {
        if (stream_ != nullptr) {
            ::closedir(stream_);
        }
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    bool isOpen() const { return stream_ != nullptr; }
    int fd() const { return ::dirfd(stream_); }
    const dirent* next() { return ::readdir(stream_); }

  private:
    DIR* stream_;
};

int openDirectoryAt(int parentFd, const char* name) {
    // O_NOFOLLOW: a link to a folder is never descended into, wherever it points.
    return ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

Date modificationDate(const struct stat& status) {
    return Date::fromUnixSeconds(static_cast<double>(status.st_mtim.tv_sec) +
                                 static_cast<double>(status.st_mtim.tv_nsec) / 1e9);
}

bool isNoteName(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) {
        return false;
    }
    const std::string_view extension = name.substr(dot + 1);
    std::string lowered;
    if (std::all_of(extension.begin(), extension.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        lowered.reserve(extension.size());
        for (const char c : extension) {
            lowered += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        }
    } else {
        // Full lower-casing, as the notes app would do (the Kelvin sign lowers to "k").
        lowered = unicode::toLower(extension);
    }
    return lowered == "md" || lowered == "markdown";
}

/// Walks one folder of the vault, appending its entries and those of its subfolders.
class VaultWalker {
  public:
    VaultWalker(fs::path canonicalRoot, std::vector<VaultEntry>& entries)
        : root_(std::move(canonicalRoot)), entries_(entries) {}

    void walk(Directory& directory, const std::string& prefix) {
        while (const dirent* item = directory.next()) {
            const std::string_view name = item->d_name;
            // Hidden items (".", ".." and the Finder's ".DS_Store" among them) are neither listed
            // nor descended into.
            if (name.empty() || name.front() == '.' || name == kFinderMetadataName) {
                continue;
            }
            struct stat status {};
            if (::fstatat(directory.fd(), item->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
                continue;  // Vanished or unreadable item: skipped silently.
            }
            std::string relativePath =
                prefix.empty() ? std::string(name) : prefix + "/" + item->d_name;
            if (S_ISDIR(status.st_mode)) {
                entries_.push_back(
                    VaultEntry{std::string(name), relativePath, true, modificationDate(status)});
                Directory child(openDirectoryAt(directory.fd(), item->d_name));
                if (child.isOpen()) {
                    walk(child, relativePath);
                }
            } else if (S_ISREG(status.st_mode)) {
                if (isNoteName(name)) {
                    entries_.push_back(VaultEntry{std::string(name), std::move(relativePath), false,
                                                  modificationDate(status)});
                }
            } else if (S_ISLNK(status.st_mode) && isNoteName(name)) {
                addLinkedNote(name, std::move(relativePath));
            }
        }
    }

  private:
    /// A link to a note is listed like the note when the note lies in the vault; links leading
    /// out of it, and links to folders (which could loop), are left out.
    void addLinkedNote(std::string_view name, std::string relativePath) {
        std::error_code error;
        const fs::path target = fs::canonical(root_ / relativePath, error);
        if (error || !isWithin(root_, target)) {
            return;
        }
        struct stat status {};
        if (::stat(target.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            return;
        }
        entries_.push_back(VaultEntry{std::string(name), std::move(relativePath), false,
                                      modificationDate(status)});
    }

    fs::path root_;
    std::vector<VaultEntry>& entries_;
};

/// File-browser order of names: locale-aware, digits compared by numeric value.
class NameCollator {
  public:
    NameCollator() {
        UErrorCode status = U_ZERO_ERROR;
        // The C locale maps to ICU's en_US_POSIX, whose order is code-point-like (capitals
        // first), which is not how a file browser sorts; the root order serves there.
        icu::Locale locale = icu::Locale::getDefault();
        if (std::string_view(locale.getVariant()) == "POSIX") {
            locale = icu::Locale::getRoot();
        }
        collator_.reset(icu::Collator::createInstance(locale, status));
        if (U_FAILURE(status)) {
            collator_.reset();
            return;
        }
        collator_->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    }

    /// Negative, zero or positive as `a` sorts before, with or after `b`.
    int compare(const std::string& a, const std::string& b) const {
        if (collator_) {
            UErrorCode status = U_ZERO_ERROR;
            const UCollationResult result = collator_->compareUTF8(
                icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
                icu::StringPiece(b.data(), static_cast<int32_t>(b.size())), status);
            if (U_SUCCESS(status)) {
                return static_cast<int>(result);
            }
        }
        return a.compare(b);
    }

  private:
    std::unique_ptr<icu::Collator> collator_;
};

/// Lines of a text, split at LF, CR and CRLF (a CRLF is one break, not two).
std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\n' || text[index] == '\r') {
            lines.push_back(text.substr(start, index - start));
            if (text[index] == '\r' && index + 1 < text.size() && text[index + 1] == '\n') {
                ++index;
            }
            start = index + 1;
        }
    }
    lines.push_back(text.substr(start));
    return lines;
}

std::string stemOf(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

}  // namespace

void VaultBrowser::sortForListing(std::vector<VaultEntry>& entries) {
    const NameCollator collator;
    // Ties (equal dates, or names the collator deems equal) fall back to the relative path so that
    // the order is the same on every call.
    const auto byName = [&collator](const VaultEntry& a, const VaultEntry& b) {
        const int order = collator.compare(a.name, b.name);
        return order != 0 ? order < 0 : a.relativePath < b.relativePath;
    };
    std::sort(entries.begin(), entries.end(), [&](const VaultEntry& a, const VaultEntry& b) {
        if (a.modifiedAt.has_value() != b.modifiedAt.has_value()) {
            return a.modifiedAt.has_value();
        }
        if (a.modifiedAt && *a.modifiedAt != *b.modifiedAt) {
            return *a.modifiedAt > *b.modifiedAt;
        }
        return byName(a, b);
    });
}

VaultBrowser::Error::Error(Case errorCase, const std::string& description)
    : kelvo::Error(description), case_(errorCase) {}

VaultBrowser::Error VaultBrowser::Error::notFound(const std::string& path) {
    return Error(Case::notFound, "見つかりません: " + path);
}

VaultBrowser::Error VaultBrowser::Error::readFailed(const std::string& message) {
    return Error(Case::readFailed, "読み込みに失敗しました: " + message);
}

VaultBrowser::Error VaultBrowser::Error::noBookmark() {
    return Error(Case::noBookmark, "保存先フォルダが未設定です");
}

VaultBrowser::Error VaultBrowser::Error::accessDenied() {
    return Error(Case::accessDenied, "保存先フォルダにアクセスできません");
}

VaultBrowser::VaultBrowser(std::shared_ptr<BookmarkManager> bookmarkManager,
                           std::string bookmarkKey, std::optional<std::string> fallbackBookmarkKey)
    : folderResolver_([manager = std::move(bookmarkManager), key = std::move(bookmarkKey),
                       fallbackKey = std::move(fallbackBookmarkKey)]() -> std::optional<ScopedURL> {
          if (!manager) {
              return std::nullopt;
          }
          if (auto folder = manager->resolveScopedURL(key)) {
              return folder;
          }
          if (fallbackKey) {
              return manager->resolveScopedURL(*fallbackKey);
          }
          return std::nullopt;
      }) {}

VaultBrowser::VaultBrowser(FolderResolver folderResolver)
    : folderResolver_(std::move(folderResolver)) {}

std::vector<VaultEntry> VaultBrowser::list() const {
    const ScopedFolder folder(obtainFolder(folderResolver_));
    std::error_code error;
    const fs::path root = fs::canonical(folder.url(), error);
    Directory rootDirectory(error ? -1 : ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!rootDirectory.isOpen()) {
        throw Error::accessDenied();
    }
    std::vector<VaultEntry> entries;
    VaultWalker(root, entries).walk(rootDirectory, "");
    sortForListing(entries);
    return entries;
}

VaultFile VaultBrowser::read(const std::string& relativePath) const {
    const ScopedFolder folder(obtainFolder(folderResolver_));
    std::error_code error;
    const fs::path root = fs::canonical(folder.url(), error);
    if (error || !fs::is_directory(root, error)) {
        throw Error::accessDenied();
    }

    const fs::path relative(relativePath);
    if (relativePath.empty() || relative.is_absolute() || hasParentComponent(relative)) {
        throw Error::notFound(relativePath);
    }
    const fs::path target = fs::canonical(root / relative, error);
    if (error == std::errc::permission_denied) {
        throw Error::readFailed(error.message());
    }
    // A link leading out of the vault is answered as if nothing were there: its target is none of
    // the vault's business.
    if (error || !isWithin(root, target) || !fs::is_regular_file(target, error)) {
        throw Error::notFound(relativePath);
    }

    std::string content;
    try {
        content = readWholeFile(target);
    } catch (const FileError& failure) {
        throw Error::readFailed(failure.what());
    }
    if (!isValidUtf8(content)) {
        throw Error::readFailed("\"" + relativePath + "\" is not UTF-8 text");
    }
    return parse(std::move(content));
}

std::vector<VaultEntry> VaultBrowser::search(const std::string& query) const {
    const std::string needle =
        unicode::toNfc(unicode::toLower(unicode::trimWhitespaceAndNewlines(query)));
    std::vector<VaultEntry> matches;
    for (VaultEntry& entry : list()) {
        if (entry.isDirectory) {
            continue;
        }
        const std::string stem = unicode::toNfc(unicode::toLower(stemOf(entry.name)));
        if (stem.find(needle) != std::string::npos) {
            matches.push_back(std::move(entry));
        }
    }
    return matches;
}

VaultFile VaultBrowser::parse(std::string content) {
    VaultFile file;
    file.wikiLinks = wikiLinks(content);
    const std::string_view text = content;
    if (text.substr(0, kFrontmatterDelimiter.size()) == kFrontmatterDelimiter) {
        const std::vector<std::string_view> lines = splitLines(text);
        const auto closing = std::find(lines.begin() + 1, lines.end(), kFrontmatterDelimiter);
        // Without a closing delimiter there is no front matter and the body stays whole.
        if (closing != lines.end()) {
            for (auto line = lines.begin() + 1; line != closing; ++line) {
                const std::size_t colon = line->find(':');
                if (colon == std::string_view::npos) {
                    continue;
                }
                file.frontmatter.emplace_back(
                    unicode::trimWhitespaceAndNewlines(line->substr(0, colon)),
                    unicode::trimWhitespaceAndNewlines(line->substr(colon + 1)));
            }
            for (auto line = closing + 1; line != lines.end(); ++line) {
                if (line != closing + 1) {
                    file.body += '\n';
                }
                file.body += *line;
            }
            file.content = std::move(content);
            return file;
        }
    }
    file.body = content;
    file.content = std::move(content);
    return file;
}

std::vector<std::string> VaultBrowser::wikiLinks(std::string_view text) {
    // The pattern \[\[([^\]]+)\]\] by hand: the capture cannot hold "]", so a match at "[[" ends
    // at the first "]" after it, which must be the first of two and not come at once.
    std::vector<std::string> links;
    std::unordered_set<std::string> seen;
    std::size_t position = text.find("[[");
    while (position != std::string_view::npos) {
        const std::size_t start = position + 2;
        const std::size_t end = text.find(']', start);
        if (end == std::string_view::npos) {
            break;
        }
        if (end > start && end + 1 < text.size() && text[end + 1] == ']') {
            std::string_view target = text.substr(start, end - start);
            target = target.substr(0, target.find('|'));
            const std::string trimmed(unicode::trimWhitespaceAndNewlines(target));
            if (!trimmed.empty() && seen.insert(trimmed).second) {
                links.push_back(trimmed);
            }
            position = text.find("[[", end + 2);
        } else {
            // Every "[[" before `end` stops at this same "]" and fails as well: resume after it,
            // or a long run of unclosed openings would be scanned over and over (quadratic).
            position = text.find("[[", std::max(position + 1, end));
        }
    }
    return links;
}

}  // namespace kelvo
