// The microphone path against the headless session's virtual microphone: PulseAudioInput opens the
// source in its native format, AudioCaptureService's 16 kHz output matches what was played into
// it, a missing source is "Input format unavailable", and `kelvo dictate` from the microphone
// recognises speech played into it and stops cleanly on Ctrl+C.

#include <signal.h>

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QCoroTask>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/AudioCaptureService.h"
#include "KelvoVoiceMac/session/CaptureError.h"
#include "platform/linux/PulseAudioInput.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/e2e/SpokenEnglish.h"
#include "tests/support/KelvoProcess.h"

namespace kelvo {
namespace {

using platform::AudioInput;
using platform::PulseAudioInput;

QCoreApplication& application() {
    static int argc = 1;
    static char name[] = "speech_capture_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication instance(argc, argv);
    return instance;
}

std::vector<float> wavSamples16(const std::filesystem::path& wav) {
    // 16-bit mono WAV with the canonical 44-byte header (as sox writes it).
    std::ifstream in(wav, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<float> samples;
    for (std::size_t i = 44; i + 1 < bytes.size(); i += 2) {
        const auto low = static_cast<unsigned char>(bytes[i]);
        const auto high = static_cast<unsigned char>(bytes[i + 1]);
        samples.push_back(static_cast<float>(static_cast<std::int16_t>(low | (high << 8))));
    }
    return samples;
}

double correlationAt(const std::vector<float>& a, const std::vector<float>& b, std::size_t lag) {
    double ab = 0, aa = 0, bb = 0;
    for (std::size_t i = 0; i < b.size() && i + lag < a.size(); ++i) {
        ab += a[i + lag] * b[i];
        aa += a[i + lag] * a[i + lag];
        bb += b[i] * b[i];
    }
    return (aa > 0 && bb > 0) ? ab / std::sqrt(aa * bb) : 0;
}

// The best normalised cross-correlation of `reference` within `captured`: a coarse search on
// 10 ms energy envelopes finds the offset, a sample-exact search around it the peak.
double bestCorrelation(const std::vector<float>& captured, const std::vector<float>& reference) {
    const auto envelope = [](const std::vector<float>& samples) {
        std::vector<float> frames;
        for (std::size_t i = 0; i + 160 <= samples.size(); i += 160) {
            double energy = 0;
            for (std::size_t j = i; j < i + 160; ++j) {
                energy += samples[j] * samples[j];
            }
            frames.push_back(static_cast<float>(std::sqrt(energy)));
        }
        return frames;
    };
    const auto a = envelope(captured);
    const auto b = envelope(reference);
    std::size_t coarse = 0;
    double bestCoarse = -1;
    for (std::size_t lag = 0; lag + b.size() / 2 < a.size(); ++lag) {
        const double c = correlationAt(a, b, lag);
        if (c > bestCoarse) {
            bestCoarse = c;
            coarse = lag;
        }
    }
    double best = -1;
    const std::size_t centre = coarse * 160;
    for (std::size_t lag = centre > 320 ? centre - 320 : 0; lag <= centre + 320; ++lag) {
        best = std::max(best, correlationAt(captured, reference, lag));
    }
    return best;
}

// capture.start() run to its end; QCoro::waitFor would never return from a task that throws.
std::shared_ptr<app::Channel<app::AudioBuffer>> startCapture(app::AudioCaptureService& capture) {
    std::exception_ptr failure;
    std::shared_ptr<app::Channel<app::AudioBuffer>> stream;
    QCoro::waitFor([&]() -> QCoro::Task<> {
        try {
            stream = co_await capture.start();
        } catch (...) {
            failure = std::current_exception();
        }
    }());
    if (failure) {
        std::rethrow_exception(failure);
    }
    return stream;
}

class SpeechCapture : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::getenv("PULSE_SERVER") == nullptr) {
            GTEST_SKIP() << "PULSE_SERVER is not set: run under scripts/headless-session";
        }
        application();
    }

    void play(const std::filesystem::path& file) {
        testing::runShell(std::string("'") + KELVO_HEADLESS_SESSION_SCRIPT + "' play " +
                          testing::quoted(file));
    }

    testing::TemporaryFolder folder_;
};

TEST_F(SpeechCapture, CapturesWhatIsPlayedIntoTheMicrophone) {
    {
        // The virtual microphone's own format, not one the server converts to.
        PulseAudioInput input;
        const auto format = input.open();
        ASSERT_TRUE(format.has_value());
        EXPECT_EQ(format->sampleRateHz, 48000);
        EXPECT_EQ(format->channelCount, 2u);
        EXPECT_EQ(format->sampleFormat, AudioInput::SampleFormat::float32);
        EXPECT_EQ(input.openedSourceName(), "vmic");
        input.close();
    }

    const auto played = folder_.path() / "played.wav";
    testing::speak({"please send the report to my office before noon"}, played, 48000, 2);
    const auto reference = folder_.path() / "reference.wav";
    testing::runShell("sox " + testing::quoted(played) + " -r 16000 -c 1 -b 16 " +
                      testing::quoted(reference));

    PulseAudioInput input;
    app::AudioCaptureService capture(input);
    const auto stream = startCapture(capture);
    ASSERT_TRUE(capture.isRecording());
    play(played);  // returns once the sink has played it
    // One more second of audio makes sure the end of the speech has come through.
    std::vector<float> captured;
    std::size_t heardAfterPlay = 0;
    while (heardAfterPlay < 16000) {
        const auto buffer = stream->receive();
        ASSERT_TRUE(buffer.has_value());
        for (const std::int16_t sample : buffer->samples) {
            captured.push_back(sample);
        }
        heardAfterPlay += buffer->samples.size();
    }
    capture.stop();
    while (const auto buffer = stream->receive()) {
        for (const std::int16_t sample : buffer->samples) {
            captured.push_back(sample);
        }
    }

    const double correlation = bestCorrelation(captured, wavSamples16(reference));
    std::cout << "capture vs sox reference: normalised correlation " << std::setprecision(6)
              << correlation << "\n";
    EXPECT_GT(correlation, 0.9);
}

TEST_F(SpeechCapture, AMissingSourceIsInputFormatUnavailable) {
    PulseAudioInput input("no-such-source");
    app::AudioCaptureService capture(input);
    try {
        startCapture(capture);
        FAIL() << "started without a source";
    } catch (const app::CaptureError& error) {
        EXPECT_EQ(error.code(), app::CaptureError::Code::inputFormatUnavailable);
        EXPECT_STREQ(error.what(), "Input format unavailable");
    }
    EXPECT_FALSE(capture.isRecording());
}

TEST_F(SpeechCapture, DictatesFromTheMicrophoneUntilInterrupted) {
    const std::vector<std::string> sentences = {"i would like a glass of water",
                                                "turn off the lights in the kitchen"};
    const auto spoken = folder_.path() / "spoken.wav";
    const std::string said = testing::speak(sentences, spoken, 48000, 2);

    test::KelvoProcess kelvo(KELVO_BINARY, {"dictate", "--locale", "en-US"});
    ASSERT_NE(kelvo.waitForError("Listening").find("Listening"), std::string::npos);
    play(spoken);
    kelvo.signal(SIGINT);
    const auto outcome = kelvo.finish();
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    ASSERT_FALSE(outcome.output.empty());
    EXPECT_EQ(outcome.output.find('\n'), outcome.output.size() - 1) << "one line";
    const double wer = testing::wordErrorRate(said, outcome.output);
    std::cout << "microphone dictation word error rate " << wer * 100
              << " %\n  text: " << outcome.output;
    EXPECT_LT(wer, 0.35);
}

}  // namespace
}  // namespace kelvo
