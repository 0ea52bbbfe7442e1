// `kelvo dictate` from the headless session's virtual microphone recognises speech played into it
// and stops cleanly on Ctrl+C. (The application's own dictations through PulseAudioInput are
// kelvovoice_e2e_tests'; a source that cannot be opened and the conversion to 16 kHz are
// AudioCaptureServiceTest's.)

#include <signal.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "tests/core/TemporaryFolder.h"
#include "tests/e2e/SpokenEnglish.h"
#include "tests/support/KelvoProcess.h"

namespace kelvo {
namespace {

TEST(SpeechCapture, DictatesFromTheMicrophoneUntilInterrupted) {
    if (std::getenv("PULSE_SERVER") == nullptr) {
        GTEST_SKIP() << "PULSE_SERVER is not set: run under scripts/headless-session";
    }
    testing::TemporaryFolder folder;
    const std::vector<std::string> sentences = {"i would like a glass of water",
                                                "turn off the lights in the kitchen"};
    const auto spoken = folder.path() / "spoken.wav";
    const std::string said = testing::speak(sentences, spoken, 48000, 2);

    test::KelvoProcess kelvo(KELVO_BINARY, {"dictate", "--locale", "en-US"});
    ASSERT_NE(kelvo.waitForError("Listening").find("Listening"), std::string::npos);
    testing::runShell(std::string("'") + KELVO_HEADLESS_SESSION_SCRIPT + "' play " +
                      testing::quoted(spoken));
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
