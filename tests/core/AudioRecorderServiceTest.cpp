#include "core/services/AudioRecorderService.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <optional>
#include <string>

#include "core/services/AudioRecorderError.h"
#include "core/services/PulseAudioCapture.h"
#include "core/support/Uuid.h"
#include "tests/core/AudioFileProbe.h"
#include "tests/core/RecorderTestFolder.h"
#include "tests/support/Thrown.h"
#include "tests/support/WaitUntil.h"

namespace kelvo {
namespace {

using testing::RecorderTestFolder;

// Events on the capture thread (a source drained, a block read) are counted, so that a test can
// wait for them before it stops the recording: a stop that comes first records less, or nothing.
using EventCounter = std::atomic<int>;

void waitFor(const EventCounter& events, int target) {
    ASSERT_TRUE(test::waitUntil([&] { return events.load() >= target; })) << target;
}

// Delivers `sampleCount` samples and ends, counting the end on `events`; without a count it never
// ends and counts every read (a block that has been read is written even when the stop comes
// right after).
class ScriptedSource : public AudioSampleSource {
  public:
    ScriptedSource(std::optional<std::size_t> sampleCount, EventCounter& events)
        : left_(sampleCount), events_(events) {}

    std::size_t read(std::span<std::int16_t> out) override {
        const std::size_t count = std::min(out.size(), left_.value_or(out.size()));
        std::fill_n(out.begin(), count, std::int16_t{1000});
        if (left_) {
            *left_ -= count;
        }
        if (!left_ || count < out.size()) {
            ++events_;
        }
        return count;
    }

  private:
    std::optional<std::size_t> left_;
    EventCounter& events_;
};

// What stopping says when it fails (the service is idle after it).
std::string stopFailure(AudioRecorderService& service) {
    return test::whatOf<AudioRecorderError>([&] { service.stopRecording(); });
}
constexpr const char* kNotRecording = "Recording has not started";
constexpr const char* kFileNotFound = "Recorded audio file not found";

// --- state rules (scripted sources) ------------------------------------------------------------

TEST(AudioRecorderServiceRules, EachStoppedRecordingIsANewUuidNamedFileInTheTemporaryFolder) {
    RecorderTestFolder folder;
    EventCounter drained{0};
    std::size_t sampleCount = 3200;
    AudioRecorderService service(
        [&] { return std::make_unique<ScriptedSource>(sampleCount, drained); });
    EXPECT_EQ(stopFailure(service), kNotRecording);
    service.startRecording();
    waitFor(drained, 1);
    const auto first = service.stopRecording();
    EXPECT_EQ(stopFailure(service), kNotRecording);
    service.startRecording();
    waitFor(drained, 2);
    const auto second = service.stopRecording();

    EXPECT_NE(first, second);
    // (In the temporary folder: the path `kelvo record` prints, KelvoRecordTest.)
    for (const auto& path : {first, second}) {
        const std::string name = path.filename().string();
        ASSERT_TRUE(name.starts_with("kelvo-recording-") && name.ends_with(".m4a")) << name;
        const std::string id = name.substr(16, name.size() - 20);
        EXPECT_TRUE(isUuid(id) && canonicalUuid(id) == id) << "an upper-case UUID: " << name;
    }
    EXPECT_EQ(folder.fileNames().size(), 2u) << "the caller deletes recordings, not the service";
    EXPECT_EQ(service.lastRecordingSampleCount(), 3200);
    EXPECT_NEAR(testing::probeAudioFile(second).durationSeconds, 0.2, 1024.0 / 16000);

    // A recording whose file was removed, and one without audio (whose file is discarded), fail
    // and leave no file.
    std::filesystem::remove(first);
    std::filesystem::remove(second);
    int ends = 2;
    for (const std::size_t count : {3200, 0}) {
        SCOPED_TRACE(count);
        sampleCount = count;
        service.startRecording();
        waitFor(drained, ++ends);
        const std::vector<std::string> names = folder.fileNames();
        ASSERT_EQ(names.size(), 1u);
        if (count > 0) {
            std::filesystem::remove(folder.path() / names[0]);
        }
        EXPECT_EQ(stopFailure(service), kFileNotFound);
        EXPECT_EQ(stopFailure(service), kNotRecording);
        EXPECT_TRUE(folder.fileNames().empty());
    }
}

TEST(AudioRecorderServiceRules, AbandonedRecordingsEndAndLeaveNoFile) {
    RecorderTestFolder folder;
    {
        EventCounter reads{0};
        AudioRecorderService service(
            [&] { return std::make_unique<ScriptedSource>(std::nullopt, reads); });
        service.startRecording();
        const std::vector<std::string> earlier = folder.fileNames();
        ASSERT_EQ(earlier.size(), 1u);

        // Starting again replaces the earlier recording, whose file goes away (and whose reads
        // are over once the start returns).
        service.startRecording();
        const int earlierReads = reads.load();
        const std::vector<std::string> now = folder.fileNames();
        ASSERT_EQ(now.size(), 1u);
        EXPECT_NE(now[0], earlier[0]);

        waitFor(reads, earlierReads + 1);
        const auto path = service.stopRecording();
        EXPECT_EQ(path.filename(), now[0]);
        EXPECT_EQ(testing::probeAudioFile(path).codecName, "aac");
        std::filesystem::remove(path);

        // Destroying the service discards the recording under way.
        service.startRecording();
        EXPECT_EQ(folder.fileNames().size(), 1u);
    }
    EXPECT_TRUE(folder.fileNames().empty());
}

TEST(AudioRecorderServiceRules, FailingSourceLeavesTheServiceAsItWas) {
    RecorderTestFolder folder;
    std::atomic<bool> fail{false};
    EventCounter drained{0};
    AudioRecorderService service([&]() -> std::unique_ptr<AudioSampleSource> {
        if (fail) {
            throw PulseAudioCapture::Error("Connection refused");
        }
        return std::make_unique<ScriptedSource>(3200, drained);
    });
    fail = true;
    EXPECT_THROW(service.startRecording(), PulseAudioCapture::Error);
    EXPECT_TRUE(folder.fileNames().empty());
    EXPECT_EQ(stopFailure(service), kNotRecording);

    // A failed restart keeps the recording that was under way.
    fail = false;
    service.startRecording();
    waitFor(drained, 1);
    fail = true;
    EXPECT_THROW(service.startRecording(), PulseAudioCapture::Error);
    EXPECT_NO_THROW(service.stopRecording());
}

// --- against PulseAudio (run under scripts/headless-session) -----------------------------------

class AudioRecorderServicePulseAudio : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::getenv("PULSE_SERVER") == nullptr) {
            GTEST_SKIP() << "PULSE_SERVER is not set: run under scripts/headless-session";
        }
    }

    RecorderTestFolder folder_;
};

// Stopped at once, a recording leaves a readable file or none; without a server it never starts.
TEST_F(AudioRecorderServicePulseAudio, ImmediateStopOrNoServerLeavesNoUnreadableFile) {
    AudioRecorderService service;
    service.startRecording();
    try {
        const auto path = service.stopRecording();
        EXPECT_EQ(testing::probeAudioFile(path).codecName, "aac");
        std::filesystem::remove(path);
    } catch (const AudioRecorderError& error) {
        EXPECT_EQ(error.errorCase(), AudioRecorderError::Case::fileNotFound);
    }
    EXPECT_TRUE(folder_.fileNames().empty());
    EXPECT_EQ(stopFailure(service), kNotRecording);

    const testing::ScopedEnvironment server("PULSE_SERVER",
                                            "unix:" + (folder_.path() / "no-server").string());
    EXPECT_EQ(test::whatOf<PulseAudioCapture::Error>([&] { service.startRecording(); }),
              "Connection refused");
    EXPECT_TRUE(folder_.fileNames().empty());
    EXPECT_EQ(stopFailure(service), kNotRecording);
}

}  // namespace
}  // namespace kelvo
