#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "core/models/SaveDestinationAdapter.h"
#include "core/services/ScopedURL.h"
#include "core/support/Date.h"
#include "core/support/Error.h"

namespace kelvo {

/// Writes a MarkdownDocument as a Markdown file into a folder on disk, usually one the user picked
/// once and kept as a bookmark (a notes vault). The folder comes from `baseURLResolver`, called
/// once per save, or `fallbackBaseURL` when it gives nothing; the scoped access it hands out is
/// released exactly once before the save returns, whatever the outcome.
///
/// The file is "<created yyyy-MM-dd-HHmm, local time>-<cleaned title>.md" in the folder (plus the
/// request's `subpath`, created with its parents when missing); the request's `overwritePolicy`
/// decides what happens to an existing file. The write is atomic and coordinated (an exclusive
/// advisory lock on the folder while the new file is renamed into place). Of the request only
/// `subpath` and `overwritePolicy` are read. A `subpath` that would lead out of the folder
/// (absolute, with a ".." component, or through a symbolic link pointing elsewhere) fails the save
/// without writing or creating anything.
///
/// A save never throws and logs nothing: failures come back as a SaveResult with `success` false
/// and the description of an Error. The adapter is immutable after construction, so saves may run
/// on several threads at once provided the resolver and clock may.
class LocalFolderSaveAdapter : public SaveDestinationAdapter {
  public:
    /// Why a save failed; its description is what SaveResult::error carries.
    class Error : public kelvo::Error {
      public:
        enum class Case {
            fileAlreadyExists,
            directoryCreationFailed,
            writeFailed,
            subpathOutsideFolder
        };

        static Error fileAlreadyExists(const std::filesystem::path& url);
        static Error directoryCreationFailed(const std::string& message);
        static Error writeFailed(const std::string& message);
        static Error subpathOutsideFolder(const std::string& subpath);

        Case errorCase() const noexcept { return case_; }

      private:
        Error(Case errorCase, const std::string& description);
        Case case_;
    };

    using BaseURLResolver = std::function<std::optional<ScopedURL>()>;
    /// The current time; only the appendTimestamp policy reads it.
    using Clock = std::function<Date()>;

    LocalFolderSaveAdapter(BaseURLResolver baseURLResolver, std::filesystem::path fallbackBaseURL,
                           Clock now = &Date::now);

    SaveDestinationType destinationType() const override {
        return SaveDestinationType::localFolder;
    }
    SaveResult save(const MarkdownDocument& document, const SaveRequest& request) noexcept override;

    /// The file text written for a document: "---", the front matter sorted by key, the tags,
    /// "---", an empty line, the body; lines joined by LF, no LF after the body. Lists and tags are
    /// laid out one item a line, unlike MarkdownFormatter::render.
    static std::string fileText(const MarkdownDocument& document);

    /// The file name before any overwrite policy: the creation date, "-", the title with spaces
    /// turned into "-" and everything but letters, marks, digits, "-" and "_" dropped, ".md".
    static std::string fileName(const MarkdownDocument& document);

  private:
    BaseURLResolver baseURLResolver_;
    std::filesystem::path fallbackBaseURL_;
    Clock now_;
};

}  // namespace kelvo
