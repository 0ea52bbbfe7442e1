// PocketSphinxRecognizer with Debian's en-US model on flite speech: the text does not depend on
// when the next request starts after a final (audio appended meanwhile belongs to the next
// segment) nor on the dictations heard before, a request behind real time catches up with its audio
// before it is cancelled, and the model stays loaded between dictations until the idle timer of the
// injected clock releases it.

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "fakes/FakeClock.h"
#include "platform/linux/PocketSphinxModelLocator.h"
#include "platform/linux/PocketSphinxRecognizer.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/e2e/SpokenEnglish.h"
#include "tests/support/WaitUntil.h"

namespace kelvo {
namespace {

using platform::PocketSphinxRecognizer;
using platform::SegmentRecognitionTask;

// A .raw file as sox writes it from the spoken 16-bit parts: signed 16-bit samples, no header.
std::vector<std::int16_t> rawSamples(const std::filesystem::path& raw) {
    std::ifstream in(raw, std::ios::binary);
    std::vector<std::int16_t> samples;
    for (std::int16_t sample = 0; in.read(reinterpret_cast<char*>(&sample), sizeof sample);) {
        samples.push_back(sample);
    }
    return samples;
}

// Drives a recogniser as SpeechService does: a request, its results, a new request after each
// final, either at once from the result handler or when the test says so.
class Dictation {
  public:
    Dictation(PocketSphinxRecognizer& recognizer, bool restartAtOnce)
        : recognizer_(recognizer), restartAtOnce_(restartAtOnce) {}

    void startRequest() {
        auto task = recognizer_.start(
            {}, [this](const std::optional<SegmentRecognitionTask::Result>& result,
                       const std::optional<SegmentRecognitionTask::Error>& error) {
                const bool isFinal = result && result->isFinal;
                {
                    const std::lock_guard lock(mutex_);
                    if (isFinal) {
                        finals_.push_back(result->text);
                    }
                    if (isFinal || error) {
                        ++ended_;
                    }
                }
                if (isFinal && restartAtOnce_) {
                    startRequest();
                }
            });
        const std::lock_guard lock(mutex_);
        task_ = std::move(task);
    }

    void append(const std::vector<std::int16_t>& samples) {
        for (std::size_t offset = 0; offset < samples.size(); offset += 4096) {
            current()->appendAudio(std::span(samples.data() + offset,
                                             std::min<std::size_t>(4096, samples.size() - offset)));
        }
    }
    // Or, for a stop, only has what was appended decoded: waited for like the end of the audio.
    void endAudio(bool onlyCatchUp = false) {
        const auto decoded = [this] {
            const std::lock_guard lock(mutex_);
            endDecoded_ = true;
        };
        onlyCatchUp ? current()->catchUp(decoded) : current()->endAudio(decoded);
    }
    void cancel() { current()->cancel(); }

    // Waits until `count` requests have ended (with a final or an error) or the end of the audio
    // has been decoded; true for the latter.
    bool waitForEndedOrEndDecoded(int count) {
        EXPECT_TRUE(test::waitUntil(
            [&] {
                const std::lock_guard lock(mutex_);
                return ended_ >= count || endDecoded_;
            },
            std::chrono::seconds(120)));
        const std::lock_guard lock(mutex_);
        return endDecoded_;
    }
    std::string text() {
        const std::lock_guard lock(mutex_);
        std::string joined;
        for (const auto& final : finals_) {
            joined += final;
        }
        return joined;
    }

  private:
    std::shared_ptr<SegmentRecognitionTask> current() {
        const std::lock_guard lock(mutex_);
        return task_;
    }

    PocketSphinxRecognizer& recognizer_;
    const bool restartAtOnce_;
    std::mutex mutex_;
    std::shared_ptr<SegmentRecognitionTask> task_;
    std::vector<std::string> finals_;
    int ended_ = 0;
    bool endDecoded_ = false;
};

TEST(PocketSphinxRecognizer,
     TextDoesNotDependOnWhenTheNextRequestStartsAndTheModelIsKeptUntilIdle) {
    const auto model =
        platform::PocketSphinxModelLocator({"/usr/share/pocketsphinx/model"}).find("en-US");
    ASSERT_TRUE(model.has_value()) << "pocketsphinx-en-us is installed by scripts/install-deps";
    testing::TemporaryFolder folder;
    const std::string said =
        testing::speak({"please send the report to my office before noon",
                        "i would like a glass of water", "turn off the lights in the kitchen"},
                       folder.path() / "speech.raw");
    const auto samples = rawSamples(folder.path() / "speech.raw");

    test::FakeClock clock;
    PocketSphinxRecognizer recognizer(*model, clock, std::chrono::minutes(10));
    EXPECT_FALSE(recognizer.isModelLoaded());

    // As fast as can be: the next request starts inside the final's handler.
    Dictation atOnce(recognizer, true);
    atOnce.startRequest();
    atOnce.append(samples);
    atOnce.endAudio();
    ASSERT_TRUE(atOnce.waitForEndedOrEndDecoded(std::numeric_limits<int>::max()));
    atOnce.cancel();

    // As late as can be: all the audio and its end go to the first request, and each next request
    // starts only after the last one has ended. The same recogniser: what it heard in the first
    // dictation must not change the text of the second.
    Dictation late(recognizer, false);
    late.startRequest();
    late.append(samples);
    late.endAudio();
    for (int ended = 1; !late.waitForEndedOrEndDecoded(ended); ++ended) {
        late.startRequest();
    }
    late.cancel();

    // Stopped behind real time (all the audio came at once): it catches up before the cancel, and
    // with the gap after the last sentence every sentence is final by then.
    Dictation stopped(recognizer, true);
    stopped.startRequest();
    stopped.append(samples);
    stopped.endAudio(true);
    ASSERT_TRUE(stopped.waitForEndedOrEndDecoded(std::numeric_limits<int>::max()));
    stopped.cancel();

    const double wer = testing::wordErrorRate(said, atOnce.text());
    std::cout << "word error rate " << wer * 100 << " %: " << atOnce.text() << "\n";
    EXPECT_LT(wer, 0.25);
    EXPECT_EQ(late.text(), atOnce.text());
    EXPECT_EQ(stopped.text(), atOnce.text());

    // Kept between dictations; released by the idle timer, not before.
    EXPECT_TRUE(recognizer.isModelLoaded());
    clock.advance(std::chrono::minutes(9));
    EXPECT_TRUE(recognizer.isModelLoaded());
    clock.advance(std::chrono::minutes(2));
    EXPECT_TRUE(test::waitUntil([&] { return !recognizer.isModelLoaded(); },
                                std::chrono::seconds(60), std::chrono::milliseconds(50)));
}

}  // namespace
}  // namespace kelvo
