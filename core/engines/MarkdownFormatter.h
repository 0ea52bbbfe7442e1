#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/models/MarkdownDocument.h"
#include "core/models/ProcessingMode.h"
#include "core/models/SummaryLevel.h"
#include "core/models/VoiceInputResult.h"
#include "core/support/Date.h"

namespace kelvo {

/// Turns a pipeline result into a Markdown note (title, front matter, tags, body) and renders a
/// note as Markdown text with a "---" front matter block. A value type: every operation is a pure
/// function apart from reading the clock given at construction, and is safe on any thread.
class MarkdownFormatter {
  public:
    using Clock = std::function<Date()>;

    /// The tag a note gets when the caller gives none.
    static constexpr const char* kDefaultTag = "kelvo-voice";

    explicit MarkdownFormatter(Clock now = Date::now);

    /// Full front matter: title, created, source, summary_level, processing_mode and, when any
    /// dictionary entry was used, dictionary_corrections. Empty `tags` become "kelvo-voice".
    MarkdownDocument makeDocument(const VoiceInputResult& result,
                                  const std::vector<std::string>& tags) const;

    /// Front matter with title and created only; body and tags exactly as given.
    MarkdownDocument makeSimpleDocument(const VoiceInputResult& result,
                                        const std::vector<std::string>& tags) const;

    /// Front matter (sorted by key), tags, title heading and body, joined with line feeds; no
    /// trailing line feed. Values are written as they are, without escaping.
    static std::string render(const MarkdownDocument& document);

    /// The body for a mode: the todo conversion for `todo`, the text unchanged otherwise.
    static std::string body(std::string_view text, ProcessingMode processingMode);

    /// Every non-empty line as a "- [ ] " task; existing "- [ ]" / "- [x]" boxes are kept and
    /// "- " / "* " bullets become boxes.
    static std::string todoList(std::string_view text);

    /// The first sentence or line of `text`, at most 40 characters, trimmed of spaces and tabs.
    static std::string title(std::string_view text);

  private:
    Clock now_;
};

}  // namespace kelvo
