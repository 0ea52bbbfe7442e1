#pragma once

// FieldEditWatcher is the seam for following the user's edits of a text field right after a
// dictation went into it, so that a correction of a misrecognised word can be learnt. It watches
// the focused field only, reads only the dictated text and a few characters either side of it,
// and reports each change of the field's text as the field's accessibility interface announces
// it (AT-SPI text-changed events on Linux), with the field's own offsets in characters. Fields for
// secrets are never watched. Nothing is kept once the watch ends.
//
// One watch at a time: watch() ends the previous one. Handlers run on the main thread, never
// after stop() returned. Owned by the application's wiring; called from the main thread.

#include <QCoroTask>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace kelvo::platform {

class FieldEditWatcher {
  public:
    struct Baseline {
        // The field's text from character `offset` on, holding the dictated text at characters
        // [spanStart, spanEnd) and at most the asked neighbourhood on either side.
        std::string text;
        std::size_t offset = 0;
        std::size_t spanStart = 0;
        std::size_t spanEnd = 0;
    };

    struct Handlers {
        std::function<void(std::size_t offset, const std::string& text)> inserted;
        std::function<void(std::size_t offset, std::size_t length)> deleted;
        // The focus left the field, or the field went away: the watch is over.
        std::function<void()> ended;
    };

    virtual ~FieldEditWatcher() = default;

    // Starts watching the focused field, which has just received `dictated` (it ends at the
    // caret, or lies within the neighbourhood around it). Yields nothing, watching nothing, when
    // no field with readable text has the focus, it is a field for secrets, or the dictated text
    // is not (yet, within a short wait) in it.
    virtual QCoro::Task<std::optional<Baseline>> watch(std::string dictated,
                                                       std::size_t neighbourhood,
                                                       Handlers handlers) = 0;

    // Ends the watch, if any; no handler runs after this.
    virtual void stop() = 0;
};

}  // namespace kelvo::platform
