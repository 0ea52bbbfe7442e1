#pragma once

// ModelTranscriber is one dictation's session with a ModelEngine: the analyser and transcriber
// module of the macOS Speech framework rolled into one (WhisperTranscriber on Linux). Life cycle:
// setContextualStrings() (optional), prepare(), then two worker threads run at once: the input
// feeder calls analyze() for every 16 kHz mono int16 buffer and finishInput() when the audio ends,
// and the result reader calls nextResult() until it returns std::nullopt. Results are volatile
// partial hypotheses (isFinal false, each replacing the last) and settled segments (isFinal true).
// finalizeThroughEndOfInput() blocks until finishInput() was called and every final result for
// the input has been queued, then ends the result sequence. cancel() may be called from any
// thread at any time: it abandons pending work, makes analyze() and finishInput() no-ops,
// finalizeThroughEndOfInput() return and nextResult() return std::nullopt. Failing operations throw
// SpeechEngineError. Owned by SpeechService through a shared_ptr held by each of its threads.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kelvo::platform {

class ModelTranscriber {
  public:
    struct Result {
        std::string text;
        bool isFinal = false;
    };

    virtual ~ModelTranscriber() = default;

    virtual const std::string& locale() const = 0;

    // Vocabulary the engine should favour (whisper.cpp: the initial prompt). May throw.
    virtual void setContextualStrings(const std::vector<std::string>& strings) = 0;

    // Loads the model; may take seconds. Throws when the model cannot be loaded.
    virtual void prepare() = 0;

    // Input feeder thread. May throw when the engine fails; the input loop then ends. analyze() may
    // wait while the engine is far behind (until it has decoded some, or is cancelled).
    virtual void analyze(std::span<const std::int16_t> samples16kMono) = 0;
    virtual void finishInput() = 0;

    // Result reader thread: blocks for the next result; std::nullopt at the end of the sequence.
    // Throws when the engine fails while producing results.
    virtual std::optional<Result> nextResult() = 0;

    virtual void finalizeThroughEndOfInput() = 0;
    virtual void cancel() = 0;
};

}  // namespace kelvo::platform
