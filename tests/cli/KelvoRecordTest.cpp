// `kelvo record` as a child process against the headless session's virtual microphone: the exit
// status, standard output (the file's path and one line feed, nothing else) and the file it
// leaves, when it stops after --seconds and when it is interrupted.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/core/AudioFileProbe.h"
#include "tests/core/RecorderTestFolder.h"

namespace kelvo {
namespace {

using testing::RecorderTestFolder;

/// A running `kelvo` with its standard output and error on pipes; the environment is the test's.
class KelvoProcess {
  public:
    explicit KelvoProcess(const std::vector<std::string>& arguments) {
        int outPipe[2];
        int errPipe[2];
        if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe failed");
        }
        std::vector<char*> argv{const_cast<char*>(KELVO_BINARY)};
        for (const auto& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(outPipe[1], STDOUT_FILENO);
            dup2(errPipe[1], STDERR_FILENO);
            execv(KELVO_BINARY, argv.data());
            _exit(127);
        }
        close(outPipe[1]);
        close(errPipe[1]);
        out_ = outPipe[0];
        err_ = errPipe[0];
    }
    ~KelvoProcess() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(out_);
        close(err_);
    }

    /// Reads standard error until it holds `text` (or the stream ends); returns what was read.
    std::string waitForError(const std::string& text) {
        while (errors_.find(text) == std::string::npos) {
            char buffer[256];
            const ssize_t count = read(err_, buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            errors_.append(buffer, static_cast<std::size_t>(count));
        }
        return errors_;
    }

    void signal(int number) { kill(pid_, number); }

    struct Outcome {
        int status = -1;
        std::string output;
        std::string errors;
    };

    /// Reads both streams to their end and waits for the exit.
    Outcome finish() {
        Outcome outcome;
        outcome.output = readAll(out_);
        outcome.errors = errors_ + readAll(err_);
        int status = 0;
        waitpid(pid_, &status, 0);
        exited_ = true;
        outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return outcome;
    }

  private:
    static std::string readAll(int fd) {
        std::string text;
        char buffer[4096];
        for (ssize_t count; (count = read(fd, buffer, sizeof buffer)) > 0;) {
            text.append(buffer, static_cast<std::size_t>(count));
        }
        return text;
    }

    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    bool exited_ = false;
    std::string errors_;
};

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

TEST(KelvoRecord, SecondsMustBeAPositiveNumber) {
    for (const char* seconds : {"0", "-1", "abc", "1s", ""}) {
        KelvoProcess kelvo({"record", "--seconds", seconds});
        const auto outcome = kelvo.finish();
        EXPECT_EQ(outcome.status, 2) << seconds;
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors, std::string("kelvo: invalid value '") + seconds +
                                      "' for --seconds (expected a positive number of seconds)\n"
                                      "usage: kelvo record [--seconds N]\n");
    }
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
    KelvoProcess kelvo({"record", "--seconds", "1"});
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
        KelvoProcess kelvo({"record"});
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
