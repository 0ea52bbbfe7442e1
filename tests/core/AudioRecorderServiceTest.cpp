#include "core/services/AudioRecorderService.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <regex>
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

// Counts events on the capture thread (a source drained, a block read), so that a test can wait for
// them before it stops the recording: a stop that comes first records less, or nothing.
class EventCounter {
  public:
    void increment() {
        count_.fetch_add(1);
        count_.notify_all();
    }
    int count() const { return count_.load(); }
    void waitFor(int target) const {
        ASSERT_TRUE(test::waitUntil([&] { return count_.load() >= target; })) << target;
    }

  private:
    std::atomic<int> count_{0};
};

// Delivers a fixed number of tone samples, then ends.
class FiniteSource : public AudioSampleSource {
  public:
    FiniteSource(std::size_t sampleCount, EventCounter& drained)
        : samples_(testing::sineSamples(440, 0.3, sampleRateHz, sampleCount)), drained_(drained) {}

    std::size_t read(std::span<std::int16_t> out) override {
        const std::size_t count = std::min(out.size(), samples_.size() - position_);
        std::copy_n(samples_.begin() + static_cast<std::ptrdiff_t>(position_), count, out.begin());
        position_ += count;
        if (count < out.size()) {
            drained_.increment();
        }
        return count;
    }

  private:
    std::vector<std::int16_t> samples_;
    std::size_t position_ = 0;
    EventCounter& drained_;
};

// Never ends: the recording runs until it is stopped. Counts its reads; a block that has been read
// is written even when the stop comes right after.
class EndlessSource : public AudioSampleSource {
  public:
    explicit EndlessSource(EventCounter& reads) : reads_(reads) {}

    std::size_t read(std::span<std::int16_t> out) override {
        std::fill(out.begin(), out.end(), std::int16_t{1000});
        reads_.increment();
        return out.size();
    }

  private:
    EventCounter& reads_;
};

AudioRecorderService::SourceFactory finiteSources(std::size_t sampleCount, EventCounter& drained) {
    return [sampleCount, &drained] { return std::make_unique<FiniteSource>(sampleCount, drained); };
}

// Stopping fails with this case and its description, and the service stays idle.
void expectStopFails(AudioRecorderService& service, AudioRecorderError::Case errorCase,
                     const char* description) {
    const auto error = test::thrown<AudioRecorderError>([&] { service.stopRecording(); });
    ASSERT_TRUE(error) << description;
    EXPECT_EQ(error->errorCase(), errorCase);
    EXPECT_STREQ(error->what(), description);
}

void expectNotRecording(AudioRecorderService& service) {
    expectStopFails(service, AudioRecorderError::Case::notRecording, "Recording has not started");
}

void expectFileNotFound(AudioRecorderService& service) {
    expectStopFails(service, AudioRecorderError::Case::fileNotFound,
                    "Recorded audio file not found");
}

// --- state rules (scripted sources) ------------------------------------------------------------

// A recording whose file was removed, and one without audio (whose file is discarded).
TEST(AudioRecorderServiceRules, RemovedOrEmptyRecordingFailsFileNotFoundAndLeavesNoFile) {
    for (const std::size_t sampleCount : {3200, 0}) {
        SCOPED_TRACE(sampleCount);
        RecorderTestFolder folder;
        EventCounter drained;
        AudioRecorderService service(finiteSources(sampleCount, drained));
        service.startRecording();
        drained.waitFor(1);
        const std::vector<std::string> names = folder.fileNames();
        ASSERT_EQ(names.size(), 1u);
        if (sampleCount > 0) {
            std::filesystem::remove(folder.path() / names[0]);
        }
        expectFileNotFound(service);
        expectNotRecording(service);
        EXPECT_TRUE(folder.fileNames().empty());
    }
}

TEST(AudioRecorderServiceRules, EachStoppedRecordingIsANewUuidNamedFileInTheTemporaryFolder) {
    RecorderTestFolder folder;
    EventCounter drained;
    AudioRecorderService service(finiteSources(3200, drained));
    expectNotRecording(service);
    service.startRecording();
    drained.waitFor(1);
    const auto first = service.stopRecording();
    expectNotRecording(service);
    service.startRecording();
    drained.waitFor(2);
    const auto second = service.stopRecording();

    EXPECT_NE(first, second);
    for (const auto& path : {first, second}) {
        EXPECT_EQ(path.parent_path(), folder.path());
        const std::string name = path.filename().string();
        std::smatch match;
        ASSERT_TRUE(std::regex_match(name, match, std::regex("kelvo-recording-(.*)\\.m4a")))
            << name;
        EXPECT_TRUE(isUuid(match[1].str()));
        EXPECT_EQ(canonicalUuid(match[1].str()), match[1].str()) << "upper-case form";
    }
    EXPECT_EQ(folder.fileNames().size(), 2u) << "the caller deletes recordings, not the service";
    EXPECT_EQ(service.lastRecordingSampleCount(), 3200);
    EXPECT_NEAR(testing::probeAudioFile(second).durationSeconds, 0.2, 1024.0 / 16000);
}

TEST(AudioRecorderServiceRules, AbandonedRecordingsEndAndLeaveNoFile) {
    RecorderTestFolder folder;
    {
        EventCounter reads;
        AudioRecorderService service([&] { return std::make_unique<EndlessSource>(reads); });
        service.startRecording();
        const std::vector<std::string> earlier = folder.fileNames();
        ASSERT_EQ(earlier.size(), 1u);

        // Starting again replaces the earlier recording, whose file goes away (and whose reads
        // are over once the start returns).
        service.startRecording();
        const int earlierReads = reads.count();
        const std::vector<std::string> now = folder.fileNames();
        ASSERT_EQ(now.size(), 1u);
        EXPECT_NE(now[0], earlier[0]);

        reads.waitFor(earlierReads + 1);
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
    EventCounter drained;
    AudioRecorderService service([&]() -> std::unique_ptr<AudioSampleSource> {
        if (fail) {
            throw PulseAudioCapture::Error("Connection refused");
        }
        return std::make_unique<FiniteSource>(3200, drained);
    });
    fail = true;
    EXPECT_THROW(service.startRecording(), PulseAudioCapture::Error);
    EXPECT_TRUE(folder.fileNames().empty());
    expectNotRecording(service);

    // A failed restart keeps the recording that was under way.
    fail = false;
    service.startRecording();
    drained.waitFor(1);
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

TEST_F(AudioRecorderServicePulseAudio, ImmediateStopLeavesNoUnreadableFile) {
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
    expectNotRecording(service);
}

TEST_F(AudioRecorderServicePulseAudio, UnreachableServerFailsWithPulseAudiosMessage) {
    const std::string server = std::getenv("PULSE_SERVER");
    ::setenv("PULSE_SERVER", ("unix:" + (folder_.path() / "no-server").string()).c_str(), 1);
    AudioRecorderService service;
    EXPECT_EQ(test::whatOf<PulseAudioCapture::Error>([&] { service.startRecording(); }),
              "Connection refused");
    ::setenv("PULSE_SERVER", server.c_str(), 1);
    EXPECT_TRUE(folder_.fileNames().empty());
    expectNotRecording(service);
}

}  // namespace
}  // namespace kelvo
