#include "platform/whisper/WhisperDecoder.h"

#include <malloc.h>
#include <whisper.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <vector>

#include "platform/SpeechEngineError.h"

namespace kelvo::platform {
namespace {

// The abort flag of the decode running on this thread. whisper.cpp reports an abort it was asked
// for as an encoder or decoder failure, on the thread that called it; that is not worth a line.
thread_local const std::atomic<bool>* runningDecodeAbort = nullptr;

// whisper.cpp reports every step of loading and decoding; only its errors are worth a line.
void logErrorsOnly(ggml_log_level level, const char* text, void*) {
    if (level == GGML_LOG_LEVEL_ERROR && !(runningDecodeAbort && runningDecodeAbort->load())) {
        std::fputs(text, stderr);
    }
}

void quietenWhisperOnce() {
    static std::once_flag once;
    std::call_once(once, [] { whisper_log_set(&logErrorsOnly, nullptr); });
}

bool abortRequested(void* flag) {
    return static_cast<const std::atomic<bool>*>(flag)->load();
}

// The encoder reads 50 frames a second; a partial only needs the audio it has, plus a margin
// that keeps whisper from inventing an ending for audio cut short.
constexpr int kEncoderFramesPerSecond = 50;
constexpr int kEncoderMarginFrames = 128;
constexpr int kFullEncoderFrames = 1500;
constexpr float kFinalTemperatureStep = 0.4f;
constexpr int kFinalCandidates = 2;

}  // namespace

std::shared_ptr<WhisperDecoder> WhisperDecoder::load(const std::filesystem::path& model,
                                                     int threads) {
    quietenWhisperOnce();
    whisper_context_params parameters = whisper_context_default_params();
    parameters.use_gpu = false;
    whisper_context* context =
        whisper_init_from_file_with_params_no_state(model.c_str(), parameters);
    if (!context) {
        throw SpeechEngineError("Could not load the speech model " + model.string());
    }
    whisper_state* state = whisper_init_state(context);
    if (!state) {
        whisper_free(context);
        throw SpeechEngineError("Could not prepare the speech model " + model.string() +
                                " (out of memory?)");
    }
    return std::shared_ptr<WhisperDecoder>(new WhisperDecoder(context, state, threads));
}

WhisperDecoder::~WhisperDecoder() {
    whisper_free_state(state_);
    whisper_free(context_);
    // The model's buffers are freed, but the C library keeps much of them for later allocations;
    // releasing an idle model is about giving that memory back to the system.
    malloc_trim(0);
}

std::string WhisperDecoder::decode(std::span<const float> samples, const std::string& language,
                                   const std::string& prompt, Purpose purpose,
                                   const std::atomic<bool>& abort) {
    whisper_full_params parameters = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    parameters.n_threads = threads_;
    parameters.language = language.c_str();
    parameters.detect_language = false;
    parameters.translate = false;
    parameters.no_context = true;
    parameters.no_timestamps = true;
    parameters.single_segment = purpose == Purpose::partial;
    parameters.print_special = false;
    parameters.print_progress = false;
    parameters.print_realtime = false;
    parameters.print_timestamps = false;
    parameters.suppress_blank = true;
    parameters.suppress_nst = true;
    parameters.initial_prompt = prompt.empty() ? nullptr : prompt.c_str();
    parameters.abort_callback = &abortRequested;
    parameters.abort_callback_user_data = const_cast<void*>(static_cast<const void*>(&abort));
    if (purpose == Purpose::final_) {
        // whisper's own fallback re-decodes at five more temperatures with five candidates each
        // when a result looks unreliable (on noise it always does): up to 26 decoder passes. Two
        // more temperatures with two candidates keep most of the benefit at a bounded cost.
        parameters.temperature_inc = kFinalTemperatureStep;
        parameters.greedy.best_of = kFinalCandidates;
    } else {
        parameters.temperature_inc = 0.0f;
        const int seconds = static_cast<int>((samples.size() + 15999) / 16000);
        parameters.audio_ctx =
            std::min(kFullEncoderFrames, seconds * kEncoderFramesPerSecond + kEncoderMarginFrames);
    }

    runningDecodeAbort = &abort;
    const int status = whisper_full_with_state(context_, state_, parameters, samples.data(),
                                               static_cast<int>(samples.size()));
    runningDecodeAbort = nullptr;
    if (abort) {
        return {};
    }
    if (status != 0) {
        throw SpeechEngineError("The speech model failed to decode (whisper.cpp error " +
                                std::to_string(status) + ")");
    }
    std::string text;
    const int segments = whisper_full_n_segments_from_state(state_);
    for (int i = 0; i < segments; ++i) {
        text += whisper_full_get_segment_text_from_state(state_, i);
    }
    return text;
}

std::size_t WhisperDecoder::promptTokenCount(const std::string& text) {
    std::vector<whisper_token> tokens(text.size() + 8);
    const int count =
        whisper_tokenize(context_, text.c_str(), tokens.data(), static_cast<int>(tokens.size()));
    return count < 0 ? static_cast<std::size_t>(-count) : static_cast<std::size_t>(count);
}

std::size_t WhisperDecoder::promptTokenLimit() {
    return static_cast<std::size_t>(whisper_n_text_ctx(context_) / 2);
}

}  // namespace kelvo::platform
