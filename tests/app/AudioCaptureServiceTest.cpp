#include <gtest/gtest.h>

#include <QCoroTask>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "KelvoVoiceMac/session/AudioCaptureService.h"
#include "fakes/FakeAudioInput.h"
#include "fakes/TestEventLoop.h"
#include "platform/AudioInputError.h"

namespace kelvo::test {
namespace {

using app::AudioBuffer;
using app::AudioCaptureService;
using app::Channel;
using platform::AudioInput;
using Format = AudioInput::Format;
using SampleFormat = AudioInput::SampleFormat;

// QCoro 0.8's waitFor() never returns from a task that throws, so the error is caught inside.
QCoro::Task<> startInto(AudioCaptureService& service, std::shared_ptr<Channel<AudioBuffer>>& stream,
                        std::string& failure) {
    try {
        stream = co_await service.start();
    } catch (const std::exception& error) {
        failure = error.what();
    }
}

// The stream of a start that must succeed, or fail with `expectedFailure`.
std::shared_ptr<Channel<AudioBuffer>> start(AudioCaptureService& service,
                                            const std::string& expectedFailure = "") {
    std::shared_ptr<Channel<AudioBuffer>> stream;
    std::string failure;
    QCoro::waitFor(startInto(service, stream, failure));
    EXPECT_EQ(failure, expectedFailure);
    return stream;
}

std::vector<std::int16_t> drain(Channel<AudioBuffer>& stream) {
    std::vector<std::int16_t> all;
    while (std::optional<AudioBuffer> buffer = stream.receive()) {
        EXPECT_FALSE(buffer->samples.empty()) << "empty buffers are dropped, never sent";
        all.insert(all.end(), buffer->samples.begin(), buffer->samples.end());
    }
    return all;
}

class AudioCaptureServiceTest : public ::testing::Test {
  protected:
    void SetUp() override { ensureCoreApplication(); }

    // Reads of a 1 kHz tone at half scale, the same signal in every channel, in the device's
    // sample format.
    void deliverTone(std::size_t reads) {
        const Format format = *input.deviceFormat;
        for (std::size_t read = 0; read < reads; ++read) {
            std::vector<float> tone(4096 * format.channelCount);
            std::vector<std::int16_t> pcm(tone.size());
            for (std::size_t i = 0; i < tone.size(); ++i) {
                const double t = static_cast<double>(read * 4096 + i / format.channelCount) /
                                 format.sampleRateHz;
                tone[i] = 0.5f * static_cast<float>(std::sin(2 * std::numbers::pi * 1000 * t));
                pcm[i] = static_cast<std::int16_t>(std::lrint(tone[i] * 32767.0f));
            }
            if (format.sampleFormat == SampleFormat::float32) {
                input.deliver(std::span<const float>(tone));
            } else {
                input.deliver(std::span<const std::int16_t>(pcm));
            }
        }
    }

    // Everything one capture in this format yields for these reads, the tail included.
    template <typename Sample>
    std::vector<std::int16_t> capture(Format format, std::vector<std::vector<Sample>> reads) {
        input.deviceFormat = format;
        auto stream = start(service);
        for (const std::vector<Sample>& read : reads) {
            input.deliver(std::span<const Sample>(read));
        }
        service.stop();
        return drain(*stream);
    }

    FakeAudioInput input;
    AudioCaptureService service{input};
};

// A tone at the device rate comes out at 16 kHz with its length, pitch and level kept, the
// resampler's tail included once capture stops (and only then).
TEST_F(AudioCaptureServiceTest, TonesKeepLengthPitchAndLevelAt16kHzMono) {
    for (const Format format :
         {Format{48000, 2, SampleFormat::float32}, Format{44100, 1, SampleFormat::int16}}) {
        SCOPED_TRACE(format.sampleRateHz);
        input.deviceFormat = format;
        auto stream = start(service);
        EXPECT_EQ(input.requestedFramesPerRead, 4096u);
        deliverTone(30);
        const double expected = 30 * 4096 * 16000.0 / format.sampleRateHz;
        std::vector<std::int16_t> output;
        while (std::optional<AudioBuffer> buffer = stream->tryReceive()) {
            output.insert(output.end(), buffer->samples.begin(), buffer->samples.end());
        }
        // Everything but the resampler's held-back tail (well under one read) is out already.
        EXPECT_GT(static_cast<double>(output.size()), expected - 1000);
        service.stop();
        const auto tail = drain(*stream);
        output.insert(output.end(), tail.begin(), tail.end());
        EXPECT_NEAR(static_cast<double>(output.size()), expected, 1.0);
        // One second in the middle, away from the filter's ramp at both ends.
        double sum = 0;
        std::size_t crossings = 0;
        for (std::size_t i = output.size() / 2 - 8000; i < output.size() / 2 + 8000; ++i) {
            sum += static_cast<double>(output[i]) * output[i];
            crossings += output[i - 1] < 0 && output[i] >= 0;
        }
        EXPECT_NEAR(std::sqrt(sum / 16000) / 32768.0, 0.5 / std::sqrt(2.0), 0.005);
        EXPECT_NEAR(static_cast<double>(crossings), 1000, 1.0);
    }
}

TEST_F(AudioCaptureServiceTest, SixteenKilohertzPassesThroughClippedAndTinyReadsProduceNothing) {
    std::vector<std::int16_t> pcm(4096);
    for (std::size_t i = 0; i < pcm.size(); ++i) {
        pcm[i] = static_cast<std::int16_t>((i * 37) % 20000 - 10000);
    }
    EXPECT_EQ(capture<std::int16_t>(Format{16000, 1, SampleFormat::int16}, {pcm, {}}), pcm)
        << "no tail without a resampler";
    // Float samples beyond full scale clip instead of wrapping.
    EXPECT_EQ(capture<float>(Format{16000, 1, SampleFormat::float32},
                             {{1.5f, -1.5f, 4.0f, -4.0f, 1.0f, -1.0f, 0.5f}}),
              (std::vector<std::int16_t>{32767, -32768, 32767, -32768, 32767, -32768, 16384}));
    // Two frames at 48 kHz: 16000/48000 x 2 < 1.
    EXPECT_TRUE(
        capture<float>(Format{48000, 2, SampleFormat::float32}, {{0.5f, 0.5f, 0.5f, 0.5f}}).empty())
        << "the dropped read never reached the resampler";
}

// A second start fails and leaves the running capture alone; stop is harmless when idle or
// repeated, ends the stream, and the next start makes a fresh one.
TEST_F(AudioCaptureServiceTest, StartAndStopFollowTheRecordingState) {
    service.stop();
    EXPECT_EQ(input.closeCount, 0);
    auto stream = start(service);
    start(service, "Already recording");
    EXPECT_TRUE(service.isRecording() && input.isStarted);
    EXPECT_EQ(input.openCount, 1);
    service.stop();
    service.stop();
    EXPECT_FALSE(service.isRecording());
    EXPECT_EQ(input.closeCount, 1);
    EXPECT_EQ(stream->receive(), std::nullopt);
    auto next = start(service);
    EXPECT_NE(next, stream);
    EXPECT_FALSE(next->isClosed());
    service.stop();
}

TEST_F(AudioCaptureServiceTest, PermissionIsAskedWhenUndeterminedAndRefusalsFailTheStart) {
    // Denied: not asked again. Undetermined and refused at the prompt: asked once.
    for (auto status :
         {AudioInput::Authorization::denied, AudioInput::Authorization::notDetermined}) {
        FakeAudioInput refusing;
        refusing.authorizationStatus = status;
        refusing.grantsRequest = false;
        AudioCaptureService refused(refusing);
        start(refused, "Microphone permission denied");
        EXPECT_EQ(refusing.authorizationRequests,
                  status == AudioInput::Authorization::denied ? 0 : 1);
        EXPECT_EQ(refusing.openCount, 0);
    }
    // Two starts waiting on the prompt at once: only the first to resume opens the device.
    input.authorizationStatus = AudioInput::Authorization::notDetermined;
    std::shared_ptr<Channel<AudioBuffer>> streams[2];
    std::string failures[2];
    QCoro::waitFor([&]() -> QCoro::Task<> {
        auto first = startInto(service, streams[0], failures[0]);
        auto second = startInto(service, streams[1], failures[1]);
        co_await first;
        co_await second;
    }());
    EXPECT_EQ(input.openCount, 1);
    EXPECT_NE(failures[0].empty(), failures[1].empty());
    EXPECT_TRUE(service.isRecording());
    service.stop();
}

TEST_F(AudioCaptureServiceTest, UnusableDevicesFailTheStartAndAreReleased) {
    for (const std::optional<Format> format :
         {std::optional<Format>(), std::optional<Format>(Format{0, 2, SampleFormat::float32}),
          std::optional<Format>(Format{48000, 0, SampleFormat::int16})}) {
        input.deviceFormat = format;
        start(service, "Input format unavailable");
    }
    EXPECT_EQ(input.closeCount, 3) << "the device is released again";
    // A device that fails to start passes its own description through.
    input.deviceFormat = Format{48000, 2, SampleFormat::float32};
    input.startFailure = "Connection refused";
    start(service, "Connection refused");
    EXPECT_FALSE(service.isRecording());
    EXPECT_EQ(input.closeCount, 4);
}

}  // namespace
}  // namespace kelvo::test
