// The whisper.cpp model engine on this machine's CPU, per model file: load time, the engine's
// warm-up and the first real decode after it, resident memory with the model loaded (after that
// decode) and after it is released, real-time factor of a final decode (a 10 s
// segment, full 30 s encoder window) and of a partial decode (3 s of audio, encoder cut to the
// audio), the latency of partial results while somebody speaks (audio fed in real time through
// the progressive transcriber: from the moment the audio was there to the end of the decode that
// covers it), and the time from the end of input to the last final.
// ReleaseToFinal: what a user waits for, from the release of the key to the final text, for 2, 5
// and 10 s utterances, p50 and p95 over KELVO_BENCH_RUNS dictations (20); ReleaseToFinalLever: the
// same for 5 s with one setting changed (no pauses, flash attention off, the final's encoder
// context trimmed, threads, a model loaded at the key press). The weightless models are held to
// the tokens real Japanese speech yields (WhisperDecoder::imitateSpeech), so decoding costs what
// it would on speech instead of stopping at once or running to the token limit.
//
// Models: KELVO_BENCH_WHISPER_MODELS (paths separated by ':'), else KELVO_TEST_WHISPER_MODEL, else
// the pinned whisper.cpp source's for-tests tiny, base and small (built here). Those have the
// real tensor shapes and vocabulary, so the compute figures hold for the real models of the same
// size (they have no weights: accuracy is not measured here).
// Filter with --benchmark_filter=ReleaseToFinal/ and the like: every case is slow by nature.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include <whisper.h>

#include "platform/model/ProgressiveTranscriber.h"
#include "platform/whisper/WhisperDecoder.h"
#include "platform/whisper/WhisperModelEngine.h"

namespace {

using kelvo::platform::ProgressiveTranscriber;
using kelvo::platform::SegmentDecoder;
using kelvo::platform::WhisperDecoder;
using kelvo::platform::WhisperModelEngine;
using Clock = std::chrono::steady_clock;

double residentMegabytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    long resident = 0;
    statm >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1e6;
}

std::vector<float> speech(double seconds) {
    std::vector<float> samples(static_cast<std::size_t>(seconds * 16000));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = 0.1f * static_cast<float>(std::sin(2 * M_PI * 440 * i / 16000.0) *
                                               (0.6 + 0.4 * std::sin(2 * M_PI * 3 * i / 16000.0)));
    }
    return samples;
}

int threads() {
    return kelvo::platform::WhisperModelEngine::decodingThreads();
}

void BM_LoadAndRelease(benchmark::State& state, std::string model) {
    double loadSeconds = 0;
    double warmUpSeconds = 0;
    double firstFinalSeconds = 0;
    double before = 0, loaded = 0, released = 0;
    const std::vector<float> audio = speech(10.0);
    const std::atomic<bool> never = false;
    for (auto _ : state) {
        before = residentMegabytes();
        const auto start = Clock::now();
        auto decoder = WhisperDecoder::load(model, threads());
        const auto afterLoad = Clock::now();
        kelvo::platform::WhisperModelEngine::warmUp(*decoder);
        const auto afterWarmUp = Clock::now();
        // The first real decode after the warm-up, to read against FinalDecode10s (steady state).
        decoder->decode(audio, "ja", "", SegmentDecoder::Purpose::final_, never);
        firstFinalSeconds += std::chrono::duration<double>(Clock::now() - afterWarmUp).count();
        loaded = residentMegabytes();
        decoder.reset();
        released = residentMegabytes();
        loadSeconds += std::chrono::duration<double>(afterLoad - start).count();
        warmUpSeconds += std::chrono::duration<double>(afterWarmUp - afterLoad).count();
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["load_ms"] = loadSeconds / n * 1000;
    state.counters["warmup_ms"] = warmUpSeconds / n * 1000;
    state.counters["first_final10s_ms"] = firstFinalSeconds / n * 1000;
    state.counters["rss_before_MB"] = before;
    state.counters["rss_loaded_MB"] = loaded;
    state.counters["rss_released_MB"] = released;
}

void BM_DecodeRealTimeFactor(benchmark::State& state, std::string model, double seconds,
                             SegmentDecoder::Purpose purpose) {
    auto decoder = WhisperDecoder::load(model, threads());
    const std::vector<float> audio = speech(seconds);
    const std::atomic<bool> never = false;
    decoder->decode(audio, "ja", "", purpose, never);  // warm-up
    double total = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        benchmark::DoNotOptimize(decoder->decode(audio, "ja", "東京駅、渋谷", purpose, never));
        total += std::chrono::duration<double>(Clock::now() - start).count();
    }
    const double perDecode = total / static_cast<double>(state.iterations());
    state.counters["decode_ms"] = perDecode * 1000;
    state.counters["rtf"] = perDecode / seconds;
}

// What whisper.cpp's own whisper-bench measures: one encoder pass over a full 30 s window. Every
// final decode pays it once; it does not depend on the weights' values, so a for-tests model
// gives the real figure for its size.
void BM_EncoderWindow(benchmark::State& state, std::string model) {
    WhisperDecoder::load(model, threads());  // loads ggml's CPU backend for this machine
    whisper_context_params parameters = whisper_context_default_params();
    parameters.use_gpu = false;
    whisper_context* context = whisper_init_from_file_with_params(model.c_str(), parameters);
    if (!context) {
        state.SkipWithError("cannot load the model");
        return;
    }
    const int frames = 3000;  // 30 s of 10 ms mel frames
    std::vector<float> mel(static_cast<std::size_t>(frames) * whisper_model_n_mels(context), 0.0f);
    whisper_set_mel(context, mel.data(), frames, whisper_model_n_mels(context));
    whisper_encode(context, 0, threads());  // warm-up
    double total = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        whisper_encode(context, 0, threads());
        total += std::chrono::duration<double>(Clock::now() - start).count();
    }
    whisper_free(context);
    const double perWindow = total / static_cast<double>(state.iterations());
    state.counters["encode_ms"] = perWindow * 1000;
    state.counters["rtf_30s_window"] = perWindow / 30.0;
}

// Times the decoder's work so that partial latency can be read against the feeding times.
class TimedDecoder final : public SegmentDecoder {
  public:
    explicit TimedDecoder(std::shared_ptr<SegmentDecoder> inner) : inner_(std::move(inner)) {}
    struct Decode {
        Purpose purpose;
        std::size_t samples;
        Clock::time_point end;
    };
    std::string decode(std::span<const float> samples, const std::string& language,
                       const std::string& prompt, Purpose purpose,
                       const std::atomic<bool>& abort) override {
        std::string text = inner_->decode(samples, language, prompt, purpose, abort);
        std::lock_guard lock(mutex_);
        decodes_.push_back({purpose, samples.size(), Clock::now()});
        return text;
    }
    std::size_t promptTokenCount(const std::string& text) override {
        return inner_->promptTokenCount(text);
    }
    std::size_t promptTokenLimit() override { return inner_->promptTokenLimit(); }
    std::vector<Decode> decodes() {
        std::lock_guard lock(mutex_);
        return decodes_;
    }

  private:
    std::shared_ptr<SegmentDecoder> inner_;
    std::mutex mutex_;
    std::vector<Decode> decodes_;
};

void BM_LiveDictation(benchmark::State& state, std::string model) {
    std::shared_ptr<SegmentDecoder> loaded = WhisperDecoder::load(model, threads());
    kelvo::platform::WhisperModelEngine::warmUp(*loaded);
    const double speakingSeconds = 6.0;
    std::vector<std::int16_t> audio(static_cast<std::size_t>(speakingSeconds * 16000));
    const std::vector<float> tone = speech(speakingSeconds);
    for (std::size_t i = 0; i < audio.size(); ++i) {
        audio[i] = static_cast<std::int16_t>(tone[i] * 32767);
    }
    double latencySum = 0, latencyMax = 0, stopToFinal = 0;
    std::size_t partials = 0;
    for (auto _ : state) {
        auto timed = std::make_shared<TimedDecoder>(loaded);
        ProgressiveTranscriber transcriber("ja", [timed] { return timed; }, {});
        transcriber.prepare();
        std::thread reader([&] {
            while (transcriber.nextResult()) {
            }
        });
        // Capture delivers 4096 frames every 256 ms; feed at that pace and note when each
        // sample count became available.
        std::vector<std::pair<std::size_t, Clock::time_point>> fed;
        const auto start = Clock::now();
        for (std::size_t at = 0; at < audio.size(); at += 4096) {
            const std::size_t count = std::min<std::size_t>(4096, audio.size() - at);
            std::this_thread::sleep_until(
                start + std::chrono::microseconds((at + count) * 1'000'000 / 16000));
            transcriber.analyze(std::span(audio).subspan(at, count));
            fed.emplace_back(at + count, Clock::now());
        }
        const auto stopped = Clock::now();
        transcriber.finishInput();
        transcriber.finalizeThroughEndOfInput();
        const auto finalized = Clock::now();
        reader.join();
        stopToFinal += std::chrono::duration<double>(finalized - stopped).count();
        for (const auto& decode : timed->decodes()) {
            if (decode.purpose != SegmentDecoder::Purpose::partial) {
                continue;
            }
            // The newest audio this partial covers was there at the feed that completed it.
            const auto available = std::find_if(
                fed.begin(), fed.end(), [&](const auto& f) { return f.first >= decode.samples; });
            if (available == fed.end()) {
                continue;
            }
            const double latency =
                std::chrono::duration<double>(decode.end - available->second).count();
            latencySum += latency;
            latencyMax = std::max(latencyMax, latency);
            ++partials;
        }
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["partials_per_6s"] = static_cast<double>(partials) / n;
    state.counters["partial_latency_avg_ms"] = partials ? latencySum / partials * 1000 : 0;
    state.counters["partial_latency_max_ms"] = latencyMax * 1000;
    state.counters["stop_to_last_final_ms"] = stopToFinal / n * 1000;
}

// --- Key release to final text, per model shape, with the levers that shorten it ---------------

// What the weightless models are made to emit (WhisperDecoder::imitateSpeech): dictated Japanese of
// our own, with dictionary terms, katakana and numbers, and without the brackets whisper
// suppresses.
constexpr const char* kJapaneseText =
    "明日の会議では新しいプロジェクトの予算について話し合う予定です、資料は山田さんが用意してくれる"
    "ので皆さんは事前に目を通しておいてください、それから来週の出張の件ですが大阪の取引先との打ち合"
    "わ"
    "せは午後二時からに変更になりました、新幹線の切符はもう手配してありますので詳細は後ほどメールで"
    "送ります、なお経費の精算は月末までにお願いします、東京駅の八重洲口で九時に集合しましょう";
// Japanese dictation runs at about six characters (kana and kanji) a second: news readers speak
// some 300 to 350 characters a minute, conversation is faster, dictation a little slower and
// clearer. The tokens that makes come from whisper's own tokenizer (imitateSpeech).
constexpr double kJapaneseCharactersPerSecond = 6.0;
// The session keeps capturing this long after the key is released (MenuBarManager).
constexpr auto kDrain = std::chrono::milliseconds(650);

// Voiced speech as the activity detector sees it: a 140 Hz voice with harmonics, syllables at
// 7 Hz, over room noise at -60 dBFS; with `pauses`, phrases of about two seconds separated by
// 0.8 s pauses (a final is decoded at each, 0.6 s in), else one breath.
std::vector<std::int16_t> utterance(double seconds, bool pauses, std::uint32_t seed) {
    const std::size_t total = static_cast<std::size_t>(seconds * 16000);
    const double pause = 0.8;
    const int phrases = pauses ? std::max(1, static_cast<int>(std::lround(seconds / 2.7))) : 1;
    const double phrase = (seconds - pause * (phrases - 1)) / phrases;
    std::vector<std::int16_t> samples(total);
    for (std::size_t i = 0; i < total; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const double noise = 0.001 * (static_cast<double>(seed >> 8) / (1 << 24) * 2 - 1);
        const double t = static_cast<double>(i) / 16000;
        const double inPhrase = std::fmod(t, phrase + pause);
        double voice = 0;
        if (inPhrase < phrase) {
            for (int harmonic = 1; harmonic <= 5; ++harmonic) {
                voice += std::sin(2 * M_PI * 140 * harmonic * t) / harmonic;
            }
            voice *= 0.06 * (0.55 + 0.45 * std::sin(2 * M_PI * 7 * t));
        }
        samples[i] = static_cast<std::int16_t>(std::clamp(voice + noise, -1.0, 1.0) * 32767);
    }
    return samples;
}

std::vector<std::int16_t> roomNoise(std::chrono::milliseconds duration, std::uint32_t seed) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(duration.count()) * 16);
    for (auto& sample : samples) {
        seed = seed * 1664525u + 1013904223u;
        sample = static_cast<std::int16_t>(
            0.001 * (static_cast<double>(seed >> 8) / (1 << 24) * 2 - 1) * 32767);
    }
    return samples;
}

struct Lever {
    explicit Lever(std::string name = "product") : name(std::move(name)) {}
    std::string name;
    bool pauses = true;
    bool cold = false;  // the model loaded at the key press, without the engine's warm-up
    ProgressiveTranscriber::Options options;
    kelvo::platform::WhisperDecoder::Settings settings =
        kelvo::platform::WhisperModelEngine::decoderSettings();
};

int benchRuns() {
    const char* runs = std::getenv("KELVO_BENCH_RUNS");
    return runs && std::atoi(runs) > 0 ? std::atoi(runs) : 20;
}

// One dictation: the key is pressed, `speech` is fed in real time in capture-sized chunks, the key
// is released, the drain feeds room noise, input ends. Returns release to last final, in seconds.
double dictateOnce(const std::string& model, const Lever& lever,
                   const std::shared_ptr<SegmentDecoder>& warm,
                   const std::vector<std::int16_t>& speech) {
    const auto pressed = Clock::now();
    ProgressiveTranscriber transcriber(
        "ja",
        [&]() -> std::shared_ptr<SegmentDecoder> {
            if (!lever.cold) {
                return warm;
            }
            auto decoder = WhisperDecoder::load(model, lever.settings);
            decoder->imitateSpeech(kJapaneseText, kJapaneseCharactersPerSecond);
            return decoder;
        },
        lever.options);
    transcriber.setContextualStrings({"山田", "八重洲口", "新幹線"});
    transcriber.prepare();
    Clock::time_point lastFinal{};
    std::thread reader([&] {
        while (const auto result = transcriber.nextResult()) {
            if (result->isFinal) {
                lastFinal = Clock::now();
            }
        }
    });
    const auto feed = [&](const std::vector<std::int16_t>& audio, Clock::time_point from) {
        for (std::size_t at = 0; at < audio.size(); at += 4096) {
            const std::size_t count = std::min<std::size_t>(4096, audio.size() - at);
            std::this_thread::sleep_until(
                from + std::chrono::microseconds((at + count) * 1'000'000 / 16000));
            transcriber.analyze(std::span(audio).subspan(at, count));
        }
    };
    feed(speech, pressed);
    const auto released = Clock::now();
    feed(roomNoise(kDrain, 7), released);
    transcriber.finishInput();
    transcriber.finalizeThroughEndOfInput();
    reader.join();
    return std::chrono::duration<double>(std::max(lastFinal, released) - released).count();
}

void BM_ReleaseToFinal(benchmark::State& state, std::string model, double seconds, Lever lever) {
    std::shared_ptr<WhisperDecoder> warm = WhisperDecoder::load(model, lever.settings);
    const double tokensPerSecond = warm->imitateSpeech(kJapaneseText, kJapaneseCharactersPerSecond);
    kelvo::platform::WhisperModelEngine::warmUp(*warm);
    std::vector<double> runs;
    std::uint32_t seed = 1;
    for (auto _ : state) {
        runs.push_back(dictateOnce(model, lever, warm, utterance(seconds, lever.pauses, seed++)));
    }
    std::sort(runs.begin(), runs.end());
    const auto at = [&](double share) {
        return runs[std::min(runs.size() - 1,
                             static_cast<std::size_t>(std::ceil(share * runs.size())) - 1)];
    };
    state.counters["p50_ms"] = at(0.5) * 1000;
    state.counters["p95_ms"] = at(0.95) * 1000;
    state.counters["max_ms"] = runs.back() * 1000;
    state.counters["tokens_per_s"] = tokensPerSecond;
    state.counters["threads"] = lever.settings.threads;
}

std::vector<std::string> models() {
    std::vector<std::string> paths;
    const char* list = std::getenv("KELVO_BENCH_WHISPER_MODELS");
    if (!list || !*list) {
        list = std::getenv("KELVO_TEST_WHISPER_MODEL");
    }
#ifdef KELVO_BENCH_DEFAULT_WHISPER_MODELS
    if (!list || !*list) {
        list = KELVO_BENCH_DEFAULT_WHISPER_MODELS;
    }
#endif
    std::stringstream stream(list ? list : "");
    for (std::string path; std::getline(stream, path, ':');) {
        if (!path.empty()) {
            paths.push_back(path);
        }
    }
    return paths;
}

}  // namespace

int main(int argc, char** argv) {
    for (const std::string& model : models()) {
        const std::string name = std::filesystem::path(model).stem().string();
        benchmark::RegisterBenchmark(("LoadAndRelease/" + name).c_str(), BM_LoadAndRelease, model)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(2);
        benchmark::RegisterBenchmark(("EncoderWindow30s/" + name).c_str(), BM_EncoderWindow, model)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(3);
        benchmark::RegisterBenchmark(("FinalDecode10s/" + name).c_str(), BM_DecodeRealTimeFactor,
                                     model, 10.0, SegmentDecoder::Purpose::final_)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(2);
        benchmark::RegisterBenchmark(("PartialDecode3s/" + name).c_str(), BM_DecodeRealTimeFactor,
                                     model, 3.0, SegmentDecoder::Purpose::partial)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(3);
        benchmark::RegisterBenchmark(("LiveDictation6s/" + name).c_str(), BM_LiveDictation, model)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(1);
        for (const double seconds : {2.0, 5.0, 10.0}) {
            benchmark::RegisterBenchmark(
                ("ReleaseToFinal/" + name + "/" + std::to_string(int(seconds)) + "s").c_str(),
                BM_ReleaseToFinal, model, seconds, Lever("product"))
                ->Unit(benchmark::kMillisecond)
                ->Iterations(benchRuns());
        }
        // Each lever against the product's settings, on a 5 s utterance.
        std::vector<Lever> levers;
        Lever lever("continuous");
        lever.pauses = false;
        levers.push_back(lever);
        lever = Lever("flash_attention_off");
        lever.settings.flashAttention = false;
        levers.push_back(lever);
        lever = Lever("trim_final_context_" +
                      std::string(lever.settings.trimFinalContext ? "off" : "on"));
        lever.settings.trimFinalContext = !lever.settings.trimFinalContext;
        levers.push_back(lever);
        lever = Lever("partial_not_aborted_at_pause");
        lever.options.abortPartialAtPause = false;
        levers.push_back(lever);
        lever = Lever("cold_model");
        lever.cold = true;
        levers.push_back(lever);
        for (int threads = 1; threads <= 4; threads *= 2) {
            if (threads != WhisperModelEngine::decodingThreads()) {
                lever = Lever();
                lever.settings.threads = threads;
                levers.push_back(lever);
            }
        }
        for (const Lever& each : levers) {
            const std::string label = each.settings.threads != WhisperModelEngine::decodingThreads()
                                          ? "threads_" + std::to_string(each.settings.threads)
                                          : each.name;
            benchmark::RegisterBenchmark(("ReleaseToFinalLever/" + name + "/5s/" + label).c_str(),
                                         BM_ReleaseToFinal, model, 5.0, each)
                ->Unit(benchmark::kMillisecond)
                ->Iterations(benchRuns());
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
