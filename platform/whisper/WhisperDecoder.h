#pragma once

// WhisperDecoder is one whisper.cpp model loaded for decoding: the context (the model's weights,
// shared by nothing else) and one decoding state. It decodes on the CPU with the language forced
// (never detected), no carried-over context (the transcriber passes its prompt every time), no
// timestamps, and non-speech tokens suppressed. Partial hypotheses are decoded for speed: one
// greedy pass without temperature fallback, and an encoder context cut to the audio's length
// plus a margin (whisper otherwise encodes a full 30 s window however short the audio). Finals
// get the same cut context (the full window made a 5 s utterance wait seconds for its text on a
// 2-core machine, see bench/WhisperBench) and a bounded fallback (two more temperatures, two
// candidates each). Used by one thread at a time (see SegmentDecoder); frees the model when
// destroyed.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/model/SegmentDecoder.h"

struct whisper_context;
struct whisper_state;

namespace kelvo::platform {

class WhisperDecoder final : public SegmentDecoder {
  public:
    // How it decodes; the defaults are the product's (bench/WhisperBench measures the others).
    struct Settings {
        int threads = 1;
        // whisper.cpp's flash attention kernels.
        bool flashAttention = true;
        // Cut a final's encoder context to its audio as well, instead of a full 30 s window.
        bool trimFinalContext = true;
    };

    // Throws SpeechEngineError when the file is not a model whisper.cpp can load.
    static std::shared_ptr<WhisperDecoder> load(const std::filesystem::path& model,
                                                Settings settings);
    static std::shared_ptr<WhisperDecoder> load(const std::filesystem::path& model, int threads) {
        return load(model, Settings{.threads = threads});
    }
    ~WhisperDecoder() override;

    // For benchmarks on whisper.cpp's weightless for-tests models, which stop after one token:
    // from now on every decode also runs the decoder steps for the tokens of `text` spoken at
    // `charactersPerSecond` for the length of its audio, and returns those characters, as a real
    // model would on speech. Returns the tokens per second that makes (whisper's tokenizer, a
    // byte it has no token for counted as one token, as byte-level BPE would).
    double imitateSpeech(const std::string& text, double charactersPerSecond);

    WhisperDecoder(const WhisperDecoder&) = delete;
    WhisperDecoder& operator=(const WhisperDecoder&) = delete;

    std::string decode(std::span<const float> samples, const std::string& language,
                       const std::string& prompt, Purpose purpose,
                       const std::atomic<bool>& abort) override;
    std::size_t promptTokenCount(const std::string& text) override;
    std::size_t promptTokenLimit() override;

  private:
    WhisperDecoder(whisper_context* context, whisper_state* state, Settings settings)
        : context_(context), state_(state), settings_(settings) {}

    std::string imitateDecoding(std::size_t samples, const std::string& prompt,
                                const std::atomic<bool>& abort);

    whisper_context* context_;
    whisper_state* state_;
    const Settings settings_;
    std::vector<int> imitatedTokens_;
    std::string imitatedText_;
    double imitatedCharactersPerSecond_ = 0;
    double imitatedTokensPerCharacter_ = 0;
};

}  // namespace kelvo::platform
