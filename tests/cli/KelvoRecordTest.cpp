// `kelvo record` as a child process against the headless session's virtual microphone: the exit
// status, standard output (the file's path and one line feed, nothing else) and the file it
// leaves, when it stops after --seconds and when it is interrupted.

#include <signal.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/core/AudioFileProbe.h"
#include "tests/core/RecorderTestFolder.h"
#include "tests/support/KelvoProcess.h"

namespace kelvo {
namespace {

using test::KelvoProcess;
using testing::RecorderTestFolder;

/// The one path `kelvo record` printed, checked to be a readable 16 kHz mono AAC file in the
/// temporary folder.
std::filesystem::path expectRecordingPrinted(const KelvoProcess::Outcome& outcome,
                                             const RecorderTestFolder& folder) {
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_FALSE(outcome.output.empty());
    EXPECT_EQ(outcome.output.find('\n'), outcome.output.size() - 1)
        << "one line: " << outcome.output;
    const std::filesystem::path path = outcome.output.substr(0, outcome.output.size() - 1);
    EXPECT_EQ(path.parent_path(), folder.path());
    const auto info = testing::probeAudioFile(path);
    EXPECT_EQ(info.codecName, "aac");
    EXPECT_EQ(info.sampleRateHz, 16000);
    EXPECT_EQ(info.channelCount, 1);
    return path;
}

class KelvoRecordPulseAudio : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::getenv("PULSE_SERVER") == nullptr) {
            GTEST_SKIP() << "PULSE_SERVER is not set: run under scripts/headless-session";
        }
    }
    RecorderTestFolder folder_;  // the child inherits its TMPDIR
};

TEST_F(KelvoRecordPulseAudio, StopsAfterTheGivenSecondsAndPrintsThePath) {
    KelvoProcess kelvo(KELVO_BINARY, {"record", "--seconds", "1"});
    const auto outcome = kelvo.finish();
    const auto path = expectRecordingPrinted(outcome, folder_);
    // Loose: the recording covers most of the requested second, never many times more.
    EXPECT_GT(testing::probeAudioFile(path).durationSeconds, 0.5);
    EXPECT_LT(testing::probeAudioFile(path).durationSeconds, 5.0);
}

TEST_F(KelvoRecordPulseAudio, InterruptStopsCleanlyWithAReadableFile) {
    const auto wav = folder_.path() / "tone.wav";
    testing::writeWav(wav, 48000, testing::sineSamples(440, 0.5, 48000, 24000));
    const std::string play =
        std::string("'") + KELVO_HEADLESS_SESSION_SCRIPT + "' play '" + wav.string() + "'";
    for (const int signal : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(strsignal(signal));
        KelvoProcess kelvo(KELVO_BINARY, {"record"});
        ASSERT_NE(kelvo.waitForError("Recording; press Ctrl+C to stop.\n").find("Recording"),
                  std::string::npos);
        ASSERT_EQ(std::system(play.c_str()), 0);  // returns once the tone has been heard
        kelvo.signal(signal);
        const auto outcome = kelvo.finish();
        const auto path = expectRecordingPrinted(outcome, folder_);
        EXPECT_GT(testing::rms(testing::decodeFirstChannel(path)), 0.1) << "the tone was recorded";
        std::filesystem::remove(path);
    }
}

}  // namespace
}  // namespace kelvo
