#pragma once

// SegmentDecoder is one loaded speech model as the progressive transcriber sees it: it turns a
// window of at most 30 s of 16 kHz mono audio into text, in one language, with an initial prompt.
// WhisperDecoder implements it over a whisper.cpp context; tests use scripted decoders. decode()
// is called on one transcriber's worker thread at a time (the model cache hands a decoder to one
// dictation at a time); it returns early with whatever it has when `abort` becomes true. The
// token functions may be called from that thread too. Failures throw platform::SpeechEngineError.

#include <atomic>
#include <cstddef>
#include <span>
#include <string>

namespace kelvo::platform {

class SegmentDecoder {
  public:
    enum class Purpose {
        // A volatile hypothesis of the open segment, decoded again and again: speed matters most.
        partial,
        // The settled text of a closed segment.
        final_,
    };

    virtual ~SegmentDecoder() = default;

    // `language` is a whisper language code ("ja"); never detected automatically.
    virtual std::string decode(std::span<const float> samples, const std::string& language,
                               const std::string& prompt, Purpose purpose,
                               const std::atomic<bool>& abort) = 0;

    // How many tokens `text` takes as a prompt, and how many the model reads at most.
    virtual std::size_t promptTokenCount(const std::string& text) = 0;
    virtual std::size_t promptTokenLimit() = 0;
};

}  // namespace kelvo::platform
