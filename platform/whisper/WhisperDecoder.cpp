#include "platform/whisper/WhisperDecoder.h"

#include <ggml-backend.h>
#include <malloc.h>
#include <unistd.h>
#include <whisper.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <system_error>
#include <vector>

#include "core/support/Unicode.h"
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

// A whisper.cpp built with ggml's CPU variants (cmake/KelvoWhisper.cmake) has no CPU backend
// until one of its modules is loaded: the best for this CPU, from lib/kelvovoice next to the
// program's bin/ (installed), else from the build tree. A system whisper.cpp has its backend
// linked in, or knows its own module folder (ggml's default search).
void loadComputeBackendOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (ggml_backend_reg_by_name("CPU")) {
            return;
        }
        std::vector<std::filesystem::path> folders;
        std::array<char, 4096> self{};
        const ssize_t length = ::readlink("/proc/self/exe", self.data(), self.size() - 1);
        if (length > 0) {
            const std::filesystem::path program(std::string(self.data(), length));
            folders.push_back(program.parent_path().parent_path() / "lib" / "kelvovoice");
        }
#ifdef KELVO_WHISPER_BUILD_LIBRARY_DIR
        folders.emplace_back(KELVO_WHISPER_BUILD_LIBRARY_DIR);
#endif
        for (const std::filesystem::path& folder : folders) {
            std::error_code error;
            if (std::filesystem::is_directory(folder, error)) {
                ggml_backend_load_all_from_path(folder.c_str());
                if (ggml_backend_reg_by_name("CPU")) {
                    return;
                }
            }
        }
        ggml_backend_load_all();
    });
}

bool abortRequested(void* flag) {
    return static_cast<const std::atomic<bool>*>(flag)->load();
}

// The encoder reads 50 frames a second; a partial only needs the audio it has, plus a margin
// that keeps whisper from inventing an ending for audio cut short.
constexpr int kEncoderFramesPerSecond = 50;
constexpr int kEncoderMarginFrames = 128;
constexpr std::size_t kSampleRate = 16000;
constexpr int kFullEncoderFrames = 1500;
constexpr float kFinalTemperatureStep = 0.4f;
constexpr int kFinalCandidates = 2;

}  // namespace

std::shared_ptr<WhisperDecoder> WhisperDecoder::load(const std::filesystem::path& model,
                                                     Settings settings) {
    quietenWhisperOnce();
    loadComputeBackendOnce();
    if (!ggml_backend_reg_by_name("CPU")) {
        throw SpeechEngineError(
            "The speech engine found no CPU backend (libggml-cpu-*.so in lib/kelvovoice)");
    }
    whisper_context_params parameters = whisper_context_default_params();
    parameters.use_gpu = false;
    parameters.flash_attn = settings.flashAttention;
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
    return std::shared_ptr<WhisperDecoder>(new WhisperDecoder(context, state, settings));
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
    parameters.n_threads = settings_.threads;
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
    }
    if (purpose == Purpose::partial || settings_.trimFinalContext) {
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
    if (!imitatedTokens_.empty()) {
        return imitateDecoding(samples.size(), prompt, abort);
    }
    std::string text;
    const int segments = whisper_full_n_segments_from_state(state_);
    for (int i = 0; i < segments; ++i) {
        text += whisper_full_get_segment_text_from_state(state_, i);
    }
    return text;
}

std::string WhisperDecoder::imitateDecoding(std::size_t samples, const std::string& prompt,
                                            const std::atomic<bool>& abort) {
    // whisper_full() ran the encoder and the first decoder step, then stopped: a weightless model
    // always does. These are the other steps of a real decode, one token each on the cached
    // context (the prompt, four task tokens and the tokens so far).
    const double characters =
        imitatedCharactersPerSecond_ * static_cast<double>(samples) / kSampleRate;
    const auto steps = static_cast<std::size_t>(
        std::max(1.0, std::round(characters * imitatedTokensPerCharacter_)));
    int past = static_cast<int>(promptTokenCount(prompt)) + 5;
    for (std::size_t i = 1; i < steps && !abort; ++i) {
        whisper_token token = imitatedTokens_[i % imitatedTokens_.size()];
        if (whisper_decode_with_state(context_, state_, &token, 1, past++, settings_.threads) !=
            0) {
            throw SpeechEngineError("The speech model failed to decode");
        }
    }
    if (abort) {
        return {};
    }
    const auto wanted = static_cast<std::size_t>(std::round(characters));
    std::string text;
    while (unicode::characterCount(text) < wanted) {
        text += imitatedText_;
    }
    return std::string(unicode::characterPrefix(text, wanted));
}

double WhisperDecoder::imitateSpeech(const std::string& text, double charactersPerSecond) {
    std::vector<whisper_token> tokens(text.size() + 8);
    const int count =
        whisper_tokenize(context_, text.c_str(), tokens.data(), static_cast<int>(tokens.size()));
    tokens.resize(static_cast<std::size_t>(std::max(count, 0)));
    std::size_t covered = 0;
    for (const whisper_token token : tokens) {
        covered += std::strlen(whisper_token_to_str(context_, token));
    }
    imitatedText_ = text;
    imitatedTokensPerCharacter_ =
        static_cast<double>(tokens.size() + (text.size() - std::min(covered, text.size()))) /
        static_cast<double>(std::max<std::size_t>(1, unicode::characterCount(text)));
    imitatedCharactersPerSecond_ = charactersPerSecond;
    imitatedTokens_ = std::move(tokens);
    return imitatedTokensPerCharacter_ * charactersPerSecond;
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
