// The microphone path against the headless session's virtual microphone: PulseAudioInput opens the
// source in its native format, a missing source is "Input format unavailable", and `kelvo dictate`
// from the microphone recognises speech played into it and stops cleanly on Ctrl+C. (The
// application's own dictations through this path are kelvovoice_e2e_tests'; the conversion to
// 16 kHz is AudioCaptureServiceTest's.)

#include <signal.h>

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QCoroTask>

#include <cstdlib>
#include <iostream>
#include <optional>
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

TEST_F(SpeechCapture, OpensTheMicrophoneInItsOwnFormatAndAMissingSourceIsUnavailable) {
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
    PulseAudioInput input("no-such-source");
    app::AudioCaptureService capture(input);
    // QCoro's waitFor() never returns from a task that throws, so the error is caught inside.
    std::optional<app::CaptureError> error;
    QCoro::waitFor([&]() -> QCoro::Task<> {
        try {
            co_await capture.start();
        } catch (const app::CaptureError& thrown) {
            error = thrown;
        }
    }());
    ASSERT_TRUE(error) << "started without a source";
    EXPECT_EQ(error->code(), app::CaptureError::Code::inputFormatUnavailable);
    EXPECT_STREQ(error->what(), "Input format unavailable");
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
