#include <gtest/gtest.h>

#include <QCoroTask>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "KelvoVoiceMac/session/AudioCaptureService.h"
#include "KelvoVoiceMac/session/AudioConverter.h"
#include "KelvoVoiceMac/session/CaptureError.h"
#include "fakes/FakeAudioInput.h"
#include "fakes/TestEventLoop.h"
#include "platform/AudioInputError.h"

namespace kelvo::test {
namespace {

using app::AudioBuffer;
using app::AudioCaptureService;
using app::CaptureError;
using app::Channel;
using platform::AudioInput;

constexpr double toneHz = 1000;
constexpr float toneAmplitude = 0.5f;

// QCoro 0.8's waitFor() never returns from a task that throws, so the error is caught inside.
QCoro::Task<> startInto(AudioCaptureService& service, std::shared_ptr<Channel<AudioBuffer>>& stream,
                        std::exception_ptr& failure) {
    try {
        stream = co_await service.start();
    } catch (...) {
        failure = std::current_exception();
    }
}

std::shared_ptr<Channel<AudioBuffer>> startCapture(AudioCaptureService& service) {
    std::shared_ptr<Channel<AudioBuffer>> stream;
    std::exception_ptr failure;
    QCoro::waitFor(startInto(service, stream, failure));
    if (failure) {
        std::rethrow_exception(failure);
    }
    return stream;
}

std::string startFailure(AudioCaptureService& service) {
    try {
        startCapture(service);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}

// Interleaved reads of a 1 kHz tone, the same signal in every channel.
std::vector<float> toneFloat(double rateHz, std::uint32_t channels, std::size_t firstFrame,
                             std::size_t frames) {
    std::vector<float> samples(frames * channels);
    for (std::size_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(firstFrame + i) / rateHz;
        const float value =
            toneAmplitude * static_cast<float>(std::sin(2 * std::numbers::pi * toneHz * t));
        for (std::uint32_t c = 0; c < channels; ++c) {
            samples[i * channels + c] = value;
        }
    }
    return samples;
}

std::vector<std::int16_t> drain(Channel<AudioBuffer>& stream, std::vector<std::size_t>* sizes) {
    std::vector<std::int16_t> all;
    while (std::optional<AudioBuffer> buffer = stream.receive()) {
        EXPECT_FALSE(buffer->samples.empty()) << "empty buffers are dropped, never sent";
        if (sizes) {
            sizes->push_back(buffer->samples.size());
        }
        all.insert(all.end(), buffer->samples.begin(), buffer->samples.end());
    }
    return all;
}

double rms(const std::vector<std::int16_t>& samples, std::size_t from, std::size_t to) {
    double sum = 0;
    for (std::size_t i = from; i < to; ++i) {
        sum += static_cast<double>(samples[i]) * samples[i];
    }
    return std::sqrt(sum / static_cast<double>(to - from)) / 32768.0;
}

std::size_t risingZeroCrossings(const std::vector<std::int16_t>& samples, std::size_t from,
                                std::size_t to) {
    std::size_t crossings = 0;
    for (std::size_t i = from + 1; i < to; ++i) {
        if (samples[i - 1] < 0 && samples[i] >= 0) {
            ++crossings;
        }
    }
    return crossings;
}

// A tone at the device rate comes out at 16 kHz with its length, pitch and level kept, the
// resampler's tail included once capture stops.
void expectToneSurvives(const AudioInput::Format& format, std::size_t reads) {
    ensureCoreApplication();
    FakeAudioInput input;
    input.deviceFormat = format;
    AudioCaptureService service(input);
    auto stream = startCapture(service);
    EXPECT_EQ(input.requestedFramesPerRead, 4096u);

    for (std::size_t read = 0; read < reads; ++read) {
        std::vector<float> tone =
            toneFloat(format.sampleRateHz, format.channelCount, read * 4096, 4096);
        if (format.sampleFormat == AudioInput::SampleFormat::float32) {
            input.deliver(std::span<const float>(tone));
        } else {
            std::vector<std::int16_t> pcm(tone.size());
            for (std::size_t i = 0; i < tone.size(); ++i) {
                pcm[i] = static_cast<std::int16_t>(std::lrint(tone[i] * 32767.0f));
            }
            input.deliver(std::span<const std::int16_t>(pcm));
        }
    }
    service.stop();
    std::vector<std::size_t> sizes;
    const std::vector<std::int16_t> output = drain(*stream, &sizes);

    const double expectedFrames = static_cast<double>(reads * 4096) * 16000.0 / format.sampleRateHz;
    EXPECT_NEAR(static_cast<double>(output.size()), expectedFrames, 1.0);
    // One second in the middle, away from the filter's ramp at both ends.
    const std::size_t from = output.size() / 2 - 8000;
    const std::size_t to = from + 16000;
    EXPECT_NEAR(rms(output, from, to), toneAmplitude / std::sqrt(2.0), 0.005);
    EXPECT_NEAR(static_cast<double>(risingZeroCrossings(output, from, to)), toneHz, 1.0);
}

TEST(AudioCaptureServiceTest, Converts48kHzStereoFloatAnd44100HzMonoInt16TonesTo16kHzMono) {
    expectToneSurvives({48000, 2, AudioInput::SampleFormat::float32}, 30);
    expectToneSurvives({44100, 1, AudioInput::SampleFormat::int16}, 30);
}

TEST(AudioCaptureServiceTest,
     SteadyReadsAt48kHzAverageTheNominal1365FramesAndAt16kHzKeepTheirLength) {
    ensureCoreApplication();
    {
        FakeAudioInput input;
        input.deviceFormat = AudioInput::Format{48000, 1, AudioInput::SampleFormat::float32};
        AudioCaptureService service(input);
        auto stream = startCapture(service);
        std::vector<float> tone = toneFloat(48000, 1, 0, 4096);
        for (int read = 0; read < 300; ++read) {
            input.deliver(std::span<const float>(tone));
        }
        std::size_t beforeStop = 0;
        while (std::optional<AudioBuffer> buffer = stream->tryReceive()) {
            beforeStop += buffer->samples.size();
        }
        // Everything but the resampler's held-back tail (well under one read) is out already.
        const double expectedFrames = 300 * 4096 / 3.0;
        EXPECT_GT(static_cast<double>(beforeStop), expectedFrames - 1000);
        EXPECT_LE(static_cast<double>(beforeStop), expectedFrames);
        service.stop();
        const std::size_t tail = drain(*stream, nullptr).size();
        EXPECT_NEAR(static_cast<double>(beforeStop + tail), expectedFrames, 1.0);
    }
    {
        FakeAudioInput input;
        input.deviceFormat = AudioInput::Format{16000, 1, AudioInput::SampleFormat::int16};
        AudioCaptureService service(input);
        auto stream = startCapture(service);
        std::vector<std::int16_t> pcm(4096);
        for (std::size_t i = 0; i < pcm.size(); ++i) {
            pcm[i] = static_cast<std::int16_t>((i * 37) % 20000 - 10000);
        }
        input.deliver(std::span<const std::int16_t>(pcm));
        input.deliver(std::span<const std::int16_t>(pcm).first(100));
        std::optional<AudioBuffer> first = stream->tryReceive();
        ASSERT_TRUE(first);
        EXPECT_EQ(first->samples, pcm) << "16 kHz mono int16 passes through unchanged";
        std::optional<AudioBuffer> second = stream->tryReceive();
        ASSERT_TRUE(second);
        EXPECT_EQ(second->samples.size(), 100u);
        service.stop();
        EXPECT_EQ(stream->receive(), std::nullopt) << "no tail without a resampler";
    }
}

TEST(AudioCaptureServiceTest, ReadsTooShortForOneOutputFrameProduceNothing) {
    ensureCoreApplication();
    FakeAudioInput input;
    input.deviceFormat = AudioInput::Format{48000, 2, AudioInput::SampleFormat::float32};
    AudioCaptureService service(input);
    auto stream = startCapture(service);
    const std::vector<float> twoFrames = {0.5f, 0.5f, 0.5f, 0.5f};
    input.deliver(std::span<const float>(twoFrames));  // 16000/48000 x 2 < 1
    input.deliver(std::span<const float>());
    EXPECT_EQ(stream->tryReceive(), std::nullopt);
    service.stop();
    EXPECT_EQ(stream->receive(), std::nullopt) << "the dropped reads never reached the resampler";
}

TEST(AudioCaptureServiceTest, FloatSamplesBeyondFullScaleClipInsteadOfWrapping) {
    const AudioInput::Format format{16000, 1, AudioInput::SampleFormat::float32};
    auto converter = app::AudioConverter::make(format);
    ASSERT_NE(converter, nullptr);
    const std::vector<float> loud = {1.5f, -1.5f, 4.0f, -4.0f, 1.0f, -1.0f, 0.5f};
    AudioInput::Frames frames;
    frames.format = format;
    frames.frameCount = static_cast<std::uint32_t>(loud.size());
    frames.float32Samples = loud;
    const auto converted = converter->convert(frames);
    ASSERT_TRUE(converted);
    EXPECT_EQ(converted->samples,
              (std::vector<std::int16_t>{32767, -32768, 32767, -32768, 32767, -32768, 16384}));
}

// A second start fails and leaves the running capture alone; stop is harmless when idle or
// repeated, ends the stream, and the next start makes a fresh one.
TEST(AudioCaptureServiceTest, StartAndStopFollowTheRecordingState) {
    ensureCoreApplication();
    FakeAudioInput input;
    AudioCaptureService service(input);
    service.stop();
    EXPECT_EQ(input.closeCount, 0);

    auto stream = startCapture(service);
    EXPECT_EQ(startFailure(service), "Already recording");
    EXPECT_TRUE(service.isRecording());
    EXPECT_EQ(input.openCount, 1);
    EXPECT_TRUE(input.isStarted);
    EXPECT_FALSE(stream->isClosed());
    service.stop();
    service.stop();
    EXPECT_FALSE(service.isRecording());
    EXPECT_EQ(input.closeCount, 1);
    EXPECT_EQ(stream->receive(), std::nullopt);

    auto next = startCapture(service);
    EXPECT_NE(next, stream);
    EXPECT_FALSE(next->isClosed());
    service.stop();
}

TEST(AudioCaptureServiceTest, PermissionIsAskedWhenUndeterminedAndRefusalsFailTheStart) {
    ensureCoreApplication();
    // Denied: not asked again. Undetermined and refused at the prompt: asked once.
    for (auto status :
         {AudioInput::Authorization::denied, AudioInput::Authorization::notDetermined}) {
        FakeAudioInput input;
        input.authorizationStatus = status;
        input.grantsRequest = false;
        AudioCaptureService service(input);
        EXPECT_EQ(startFailure(service), "Microphone permission denied");
        EXPECT_EQ(input.authorizationRequests, status == AudioInput::Authorization::denied ? 0 : 1);
        EXPECT_EQ(input.openCount, 0);
        EXPECT_FALSE(service.isRecording());
    }
    {
        FakeAudioInput input;
        input.authorizationStatus = AudioInput::Authorization::notDetermined;
        AudioCaptureService service(input);
        auto stream = startCapture(service);
        EXPECT_EQ(input.authorizationRequests, 1);
        EXPECT_TRUE(service.isRecording());
        service.stop();
    }
    {
        // Two starts waiting on the prompt at once: only the first to resume opens the device.
        FakeAudioInput input;
        input.authorizationStatus = AudioInput::Authorization::notDetermined;
        AudioCaptureService service(input);
        std::shared_ptr<Channel<AudioBuffer>> streams[2];
        std::exception_ptr failures[2];
        QCoro::waitFor([&]() -> QCoro::Task<> {
            auto first = startInto(service, streams[0], failures[0]);
            auto second = startInto(service, streams[1], failures[1]);
            co_await first;
            co_await second;
        }());
        EXPECT_EQ(input.openCount, 1);
        EXPECT_NE(failures[0] == nullptr, failures[1] == nullptr);
        try {
            std::rethrow_exception(failures[0] ? failures[0] : failures[1]);
        } catch (const std::exception& error) {
            EXPECT_STREQ(error.what(), "Already recording");
        }
        service.stop();
    }
}

TEST(AudioCaptureServiceTest, UnusableDeviceFormatsFailWithInputFormatUnavailable) {
    ensureCoreApplication();
    for (std::optional<AudioInput::Format> format :
         {std::optional<AudioInput::Format>(),
          std::optional<AudioInput::Format>(
              AudioInput::Format{0, 2, AudioInput::SampleFormat::float32}),
          std::optional<AudioInput::Format>(
              AudioInput::Format{48000, 0, AudioInput::SampleFormat::int16})}) {
        FakeAudioInput input;
        input.deviceFormat = format;
        AudioCaptureService service(input);
        EXPECT_EQ(startFailure(service), "Input format unavailable");
        EXPECT_FALSE(service.isRecording());
        EXPECT_EQ(input.closeCount, 1) << "the device is released again";
    }
}

TEST(AudioCaptureServiceTest, DeviceStartFailurePassesThroughUnchanged) {
    ensureCoreApplication();
    FakeAudioInput input;
    input.startFailure = "Connection refused";
    AudioCaptureService service(input);
    EXPECT_THROW(
        {
            try {
                startCapture(service);
            } catch (const platform::AudioInputError& error) {
                EXPECT_STREQ(error.what(), "Connection refused");
                throw;
            }
        },
        platform::AudioInputError);
    EXPECT_FALSE(service.isRecording());
    service.stop();
    EXPECT_EQ(input.closeCount, 1);
}

}  // namespace
}  // namespace kelvo::test
