#pragma once

// WhisperDecoder is one whisper.cpp model loaded for decoding: the context (the model's weights,
// shared by nothing else) and one decoding state. It decodes on the CPU with the language forced
// (never detected), no carried-over context (the transcriber passes its prompt every time), no
// timestamps, and non-speech tokens suppressed. Partial hypotheses are decoded for speed: one
// greedy pass without temperature fallback, and an encoder context cut to the audio's length
// (whisper otherwise encodes a full 30 s window however short the audio). Finals get the full
// window and a bounded fallback (two more temperatures, two candidates each). Used by one thread
// at a time (see SegmentDecoder); frees the model when destroyed.

#include <filesystem>
#include <memory>

#include "platform/model/SegmentDecoder.h"

struct whisper_context;
struct whisper_state;

namespace kelvo::platform {

class WhisperDecoder final : public SegmentDecoder {
  public:
    // Throws SpeechEngineError when the file is not a model whisper.cpp can load.
    static std::shared_ptr<WhisperDecoder> load(const std::filesystem::path& model, int threads);
    ~WhisperDecoder() override;

    WhisperDecoder(const WhisperDecoder&) = delete;
    WhisperDecoder& operator=(const WhisperDecoder&) = delete;

    std::string decode(std::span<const float> samples, const std::string& language,
                       const std::string& prompt, Purpose purpose,
                       const std::atomic<bool>& abort) override;
    std::size_t promptTokenCount(const std::string& text) override;
    std::size_t promptTokenLimit() override;

  private:
    WhisperDecoder(whisper_context* context, whisper_state* state, int threads)
        : context_(context), state_(state), threads_(threads) {}

    whisper_context* context_;
    whisper_state* state_;
    int threads_;
};

}  // namespace kelvo::platform
