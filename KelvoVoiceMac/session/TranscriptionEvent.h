#pragma once

// TranscriptionEvent is one recogniser event on the event stream from SpeechService to its reader:
// `partial` carries the current hypothesis of the utterance so far (it replaces the previous
// partial) and `final_` a settled segment (appended to the confirmed text). A plain value; copy
// it freely between threads.

#include <string>
#include <utility>

namespace kelvo::app {

struct TranscriptionEvent {
    enum class Kind { partial, final_ };

    Kind kind = Kind::partial;
    std::string text;

    static TranscriptionEvent partial(std::string text) {
        return TranscriptionEvent{Kind::partial, std::move(text)};
    }
    static TranscriptionEvent final_(std::string text) {
        return TranscriptionEvent{Kind::final_, std::move(text)};
    }

    friend bool operator==(const TranscriptionEvent&, const TranscriptionEvent&) = default;
};

}  // namespace kelvo::app
