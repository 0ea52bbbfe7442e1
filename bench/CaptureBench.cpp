// Conversion cost of the microphone path: one 4096-frame interleaved stereo float read (85.3 ms
// of audio at 48 kHz) downmixed and resampled to 16 kHz mono int16, as the capture thread does for
// every read. The "core_percent" counter is the share of one core this takes in real time, from
// CPU time (Google Benchmark prints an inverted rate with an "s" suffix: read "0.02s" as 0.02 %);
// the goal is well under 0.5 % (0.43 ms per read).

#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "KelvoVoiceMac/session/AudioConverter.h"
#include "platform/AudioInput.h"

namespace {

using kelvo::app::AudioConverter;
using kelvo::platform::AudioInput;

constexpr std::uint32_t framesPerRead = 4096;

void convertReads(benchmark::State& state, double rateHz, std::uint32_t channels) {
    const AudioInput::Format format{rateHz, channels, AudioInput::SampleFormat::float32};
    auto converter = AudioConverter::make(format);
    // Speech-like content: two tones and a little noise, so the resampler does real work.
    std::vector<float> samples(framesPerRead * channels);
    std::uint32_t noise = 12345;
    for (std::uint32_t i = 0; i < framesPerRead; ++i) {
        const double t = i / rateHz;
        noise = noise * 1664525u + 1013904223u;
        const float value = static_cast<float>(0.3 * std::sin(2 * std::numbers::pi * 220 * t) +
                                               0.2 * std::sin(2 * std::numbers::pi * 1800 * t)) +
                            static_cast<float>(noise >> 8) / 16777216.0f * 0.01f;
        for (std::uint32_t c = 0; c < channels; ++c) {
            samples[i * channels + c] = value;
        }
    }
    AudioInput::Frames frames;
    frames.format = format;
    frames.frameCount = framesPerRead;
    frames.float32Samples = samples;

    std::size_t outputFrames = 0;
    for (auto _ : state) {
        std::optional<kelvo::app::AudioBuffer> buffer = converter->convert(frames);
        if (buffer) {
            outputFrames += buffer->samples.size();
        }
        benchmark::DoNotOptimize(buffer);
    }
    const double audioSecondsPerRead = framesPerRead / rateHz;
    state.counters["core_percent"] = benchmark::Counter(
        audioSecondsPerRead / 100.0,
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["out_frames_per_read"] =
        static_cast<double>(outputFrames) / static_cast<double>(state.iterations());
}

void BM_Convert48kHzStereoFloatRead(benchmark::State& state) {
    convertReads(state, 48000, 2);
}
void BM_Convert44100HzStereoFloatRead(benchmark::State& state) {
    convertReads(state, 44100, 2);
}
void BM_Convert16kHzMonoFloatRead(benchmark::State& state) {
    convertReads(state, 16000, 1);
}

BENCHMARK(BM_Convert48kHzStereoFloatRead)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Convert44100HzStereoFloatRead)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Convert16kHzMonoFloatRead)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
