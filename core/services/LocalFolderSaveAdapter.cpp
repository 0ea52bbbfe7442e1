#include "core/services/LocalFolderSaveAdapter.h"

#include <cmath>
#include <cstdint>
#include <system_error>
#include <utility>

#include "core/support/AtomicFile.h"
#include "core/support/PathContainment.h"
#include "core/support/Unicode.h"

namespace kelvo {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFileNameDatePattern = "%Y-%m-%d-%H%M";  // yyyy-MM-dd-HHmm
constexpr const char* kFileExtension = ".md";

/// Ends the scoped folder access on every path out of a save, exactly once.
class ReleaseOnExit {
  public:
    explicit ReleaseOnExit(std::function<void()> release) : release_(std::move(release)) {}
    ~ReleaseOnExit() {
        if (!release_) {
            return;
        }
        try {
            release_();
        } catch (...) {
            // A failing release cannot turn a finished save into a failed one.
        }
    }
    ReleaseOnExit(const ReleaseOnExit&) = delete;
    ReleaseOnExit& operator=(const ReleaseOnExit&) = delete;

  private:
    std::function<void()> release_;
};

SaveResult failure(const std::string& description) {
    return SaveResult{false, std::nullopt, SaveDestinationType::localFolder, description};
}

/// Whether `inner`, with the symbolic links of its existing part followed, lies in `outer`.
bool staysInside(const fs::path& outer, const fs::path& inner, std::error_code& error) {
    const fs::path resolvedOuter = fs::weakly_canonical(outer, error);
    if (error) {
        return false;
    }
    const fs::path resolvedInner = fs::weakly_canonical(inner, error);
    return !error && isWithin(resolvedOuter, resolvedInner);
}

/// The destination folder for a request; throws Error when the subpath would leave `base`.
fs::path destinationFolder(const fs::path& base, const std::optional<std::string>& subpath) {
    if (!subpath || subpath->empty()) {
        return base;
    }
    const fs::path relative(*subpath);
    // Checked before anything is created: create_directories follows links in existing parts.
    if (relative.is_absolute() || hasParentComponent(relative)) {
        throw LocalFolderSaveAdapter::Error::subpathOutsideFolder(*subpath);
    }
    const fs::path folder = base / relative;
    std::error_code error;
    if (!staysInside(base, folder, error)) {
        if (error) {
            throw LocalFolderSaveAdapter::Error::directoryCreationFailed(error.message());
        }
        throw LocalFolderSaveAdapter::Error::subpathOutsideFolder(*subpath);
    }
    return folder;
}

void ensureFolderExists(const fs::path& folder) {
    std::error_code error;
    if (fs::exists(fs::status(folder, error))) {
        return;
    }
    error.clear();
    fs::create_directories(folder, error);
    if (error) {
        throw LocalFolderSaveAdapter::Error::directoryCreationFailed(error.message());
    }
}

/// Anything at all at `path`, a dangling symbolic link included.
bool somethingExistsAt(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    return status.type() != fs::file_type::not_found && status.type() != fs::file_type::none;
}

// File systems accept names of up to 255 bytes. The longest name made from a title is
// "yyyy-MM-dd-HHmm" + "-" + title + "-" + Unix seconds (at most 20 digits) + ".md".
constexpr std::size_t kMaximumFileNameBytes = 255;
constexpr std::size_t kMaximumTitleBytes = kMaximumFileNameBytes - 15 - 1 - 21 - 3;

std::string cleanedTitle(std::string_view title) {
    std::string cleaned;
    cleaned.reserve(title.size());
    unicode::forEachCodePoint(title,
                              [&](char32_t codePoint, std::size_t offset, std::size_t length) {
                                  if (codePoint == U' ') {
                                      cleaned += '-';
                                  } else if (codePoint == U'-' || codePoint == U'_' ||
                                             unicode::isLetterMarkOrDigit(codePoint)) {
                                      cleaned.append(title.substr(offset, length));
                                  }
                              });
    // Cut at a character boundary, so a long title still saves and its name stays valid text.
    return std::string(unicode::characterPrefixWithinBytes(cleaned, kMaximumTitleBytes));
}

void appendFrontmatterEntry(std::string& text, const std::string& key,
                            const FrontmatterValue& value) {
    text += key;
    if (const auto scalar = value.scalarText()) {
        text += ": " + *scalar;
    } else if (const auto* array = value.asArray()) {
        if (array->empty()) {
            text += ": []";
        } else {
            text += ':';
            for (const std::string& item : *array) {
                text += "\n  - " + FrontmatterValue::quotedText(item);
            }
        }
    }
    text += '\n';
}

}  // namespace

LocalFolderSaveAdapter::Error::Error(Case errorCase, const std::string& description)
    : kelvo::Error(description), case_(errorCase) {}

LocalFolderSaveAdapter::Error LocalFolderSaveAdapter::Error::fileAlreadyExists(
    const fs::path& url) {
    return Error(Case::fileAlreadyExists, "File already exists at " + url.string());
}

LocalFolderSaveAdapter::Error LocalFolderSaveAdapter::Error::directoryCreationFailed(
    const std::string& message) {
    return Error(Case::directoryCreationFailed, "Failed to create directory: " + message);
}

LocalFolderSaveAdapter::Error LocalFolderSaveAdapter::Error::writeFailed(
    const std::string& message) {
    return Error(Case::writeFailed, "Failed to write file: " + message);
}

LocalFolderSaveAdapter::Error LocalFolderSaveAdapter::Error::subpathOutsideFolder(
    const std::string& subpath) {
    return Error(Case::subpathOutsideFolder,
                 "Subpath leads outside the destination folder: " + subpath);
}

LocalFolderSaveAdapter::LocalFolderSaveAdapter(BaseURLResolver baseURLResolver,
                                               fs::path fallbackBaseURL, Clock now)
    : baseURLResolver_(std::move(baseURLResolver)),
      fallbackBaseURL_(std::move(fallbackBaseURL)),
      now_(std::move(now)) {}

std::string LocalFolderSaveAdapter::fileText(const MarkdownDocument& document) {
    std::string text(kFrontmatterDelimiter);
    text += '\n';
    // std::map orders keys byte-wise, which for UTF-8 is code-point order.
    for (const auto& [key, value] : document.frontmatter) {
        appendFrontmatterEntry(text, key, value);
    }
    if (!document.tags.empty()) {
        text += "tags:\n";
        for (const std::string& tag : document.tags) {
            text += "  - " + FrontmatterValue::bareText(tag) + "\n";
        }
    }
    text += kFrontmatterDelimiter;
    text += "\n\n";
    text += document.body;
    return text;
}

std::string LocalFolderSaveAdapter::fileName(const MarkdownDocument& document) {
    return document.createdAt.formatLocal(kFileNameDatePattern) + "-" +
           cleanedTitle(document.title) + kFileExtension;
}

SaveResult LocalFolderSaveAdapter::save(const MarkdownDocument& document,
                                        const SaveRequest& request) noexcept {
    std::optional<ScopedURL> scoped;
    try {
        if (baseURLResolver_) {
            scoped = baseURLResolver_();
        }
    } catch (...) {
        // A resolver that cannot produce a folder gives none; the fallback folder serves.
        scoped.reset();
    }
    ReleaseOnExit releaseAccess(scoped ? std::move(scoped->release) : std::function<void()>());

    try {
        const fs::path folder =
            destinationFolder(scoped ? scoped->url : fallbackBaseURL_, request.subpath);
        ensureFolderExists(folder);

        fs::path target = folder / fileName(document);
        switch (request.overwritePolicy) {
            case OverwritePolicy::createNew:
                if (somethingExistsAt(target)) {
                    throw Error::fileAlreadyExists(target);
                }
                break;
            case OverwritePolicy::overwrite:
                break;
            case OverwritePolicy::appendTimestamp:
                if (somethingExistsAt(target)) {
                    // Whole seconds, truncated toward zero; this second name is not checked again.
                    const auto unixSeconds =
                        static_cast<std::int64_t>(std::trunc(now_().unixSeconds()));
                    target = folder / (document.createdAt.formatLocal(kFileNameDatePattern) + "-" +
                                       cleanedTitle(document.title) + "-" +
                                       std::to_string(unixSeconds) + kFileExtension);
                }
                break;
        }

        try {
            writeFileAtomically(target, fileText(document), WriteCoordination::exclusiveLock);
        } catch (const FileError& error) {
            throw Error::writeFailed(error.what());
        }
        return SaveResult{true, target, SaveDestinationType::localFolder, std::nullopt};
    } catch (const Error& error) {
        return failure(error.what());
    } catch (const std::exception& error) {
        return failure(Error::writeFailed(error.what()).what());
    } catch (...) {
        return failure("Failed to write file: unknown error");
    }
}

}  // namespace kelvo
