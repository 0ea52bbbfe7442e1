// The progressive transcriber with a scripted decoder: partials while somebody speaks, a final at
// a pause and before the window fills, every outstanding final at stop, silence never decoded,
// hallucinations and prompt echoes dropped only when nobody spoke, the newest hints in the prompt,
// cancellation and decoder failures. Waits are for conditions the worker thread makes true.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "ScriptedDecoder.h"
#include "TestAudio.h"
#include "platform/SpeechEngineError.h"
#include "platform/model/ProgressiveTranscriber.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

using platform::ModelTranscriber;
using platform::ProgressiveTranscriber;
using Purpose = platform::SegmentDecoder::Purpose;

class ProgressiveTranscriberTest : public ::testing::Test {
  protected:
    // A transcriber prepared with these hints, ready for audio.
    std::unique_ptr<ProgressiveTranscriber> make(std::vector<std::string> hints = {}) {
        auto transcriber = std::make_unique<ProgressiveTranscriber>(
            "ja", [this] { return decoder; }, ProgressiveTranscriber::Options{},
            [this](const std::string& line) { log.push_back(line); });
        transcriber->setContextualStrings(hints);
        transcriber->prepare();
        return transcriber;
    }

    static void feed(ModelTranscriber& transcriber, const std::vector<std::int16_t>& samples) {
        inReads(samples, [&](std::span<const std::int16_t> read) { transcriber.analyze(read); });
    }

    // Ends the input, finalises and collects every result.
    static std::vector<ModelTranscriber::Result> stop(ModelTranscriber& transcriber) {
        transcriber.finishInput();
        transcriber.finalizeThroughEndOfInput();
        std::vector<ModelTranscriber::Result> results;
        while (auto result = transcriber.nextResult()) {
            results.push_back(*result);
        }
        return results;
    }

    // The sample count of every decode made for this purpose, in order.
    std::vector<std::size_t> decoded(Purpose purpose) const {
        std::vector<std::size_t> sizes;
        for (const auto& call : decoder->calls()) {
            if (call.purpose == purpose) {
                sizes.push_back(call.sampleCount);
            }
        }
        return sizes;
    }

    std::shared_ptr<ScriptedDecoder> decoder = std::make_shared<ScriptedDecoder>();
    std::vector<std::string> log;
};

TEST_F(ProgressiveTranscriberTest, PartialsWhileSpeakingFinalsAtPausesAndAtStop) {
    auto transcriber = make();
    feed(*transcriber, speechAudio(2.0));
    ASSERT_TRUE(waitUntil([&] { return !decoded(Purpose::partial).empty(); }));
    feed(*transcriber, quietAudio(1.0));
    ASSERT_TRUE(waitUntil([&] { return decoded(Purpose::final_).size() == 1; }));
    // A second utterance that is still going when the key comes up.
    feed(*transcriber, speechAudio(1.2));
    const std::vector<ModelTranscriber::Result> results = stop(*transcriber);

    // Partials of the first utterance, its final, then the final made at stop; whisper's leading
    // space trimmed.
    ASSERT_GE(results.size(), 3u);
    EXPECT_FALSE(results.front().isFinal);
    EXPECT_TRUE(results.back().isFinal);
    EXPECT_EQ(
        std::count_if(results.begin(), results.end(), [](const auto& r) { return r.isFinal; }), 2);
    for (const auto& result : results) {
        EXPECT_NE(result.text.front(), ' ') << result.text;
    }
    const std::vector<std::size_t> finals = decoded(Purpose::final_);
    ASSERT_EQ(finals.size(), 2u);
    // The first final covers the first utterance and a little of the pause, not the whole pause.
    EXPECT_LT(finals[0], 16000u * 3);
    EXPECT_GE(finals[0], 16000u * 2);
    EXPECT_EQ(transcriber->nextResult(), std::nullopt);
}

// A partial once another partialInterval of audio has come in, not before and not again without
// new audio: the worker idles between partials instead of keeping a core busy.
TEST_F(ProgressiveTranscriberTest, PartialsComeOnePartialIntervalOfAudioApart) {
    auto transcriber = make();
    const std::vector<std::int16_t> speech = speechAudio(1.0);
    for (const std::size_t upTo : {8000u, 16000u}) {
        SCOPED_TRACE(upTo);
        const auto from = speech.begin() + static_cast<std::ptrdiff_t>(upTo - 8000);
        transcriber->analyze(std::span(&*from, 7999));
        transcriber->analyze(std::span(&*(from + 7999), 1));
        auto next = std::async(std::launch::async, [&] { return transcriber->nextResult(); });
        if (next.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
            transcriber->cancel();  // lets the reader, and so this test, end
            FAIL() << "no partial came";
        }
        const auto partial = next.get();
        ASSERT_TRUE(partial && !partial->isFinal);
        // Pushing the result and deciding what comes next happen under one lock.
        EXPECT_EQ(transcriber->statistics().partialDecodes, upTo / 8000);
        EXPECT_EQ(decoder->calls().back().sampleCount, upTo);
    }
    stop(*transcriber);
}

TEST_F(ProgressiveTranscriberTest, LongSpeechIsCutBeforeTheWindowFills) {
    auto transcriber = make();
    feed(*transcriber, speechAudio(31.0));
    const auto results = stop(*transcriber);
    const std::vector<std::size_t> finalSizes = decoded(Purpose::final_);
    ASSERT_EQ(finalSizes.size(), 2u);
    // Cut at a frame boundary just inside 28 s.
    EXPECT_LE(finalSizes[0], 16000u * 28);
    EXPECT_GT(finalSizes[0], 16000u * 28 - 480);
    EXPECT_EQ(finalSizes[0] + finalSizes[1], 16000u * 31);
    EXPECT_TRUE(results.back().isFinal);
}

TEST_F(ProgressiveTranscriberTest, SilenceIsNotDecodedAndWhatNobodySaidIsDropped) {
    auto quiet = make();
    feed(*quiet, quietAudio(5.0));
    EXPECT_TRUE(stop(*quiet).empty());
    EXPECT_TRUE(decoder->calls().empty());
    // A click (90 ms) in a quiet room gets decoded, and what whisper makes of it is dropped.
    for (const std::string invented :
         {"ご視聴ありがとうございました。", "(音楽)", "渋谷", "Thanks for watching!", "♪",
          "ありがとうございました。ありがとうございました。",
          "ありがとうございました。ありがとうございました。ありがとうございました。",
          "you you you you"}) {
        decoder->script = [invented](Purpose, std::size_t) { return invented; };
        auto transcriber = make({"東京駅", "渋谷"});
        feed(*transcriber, quietAudio(0.5));
        feed(*transcriber, speechAudio(0.09));
        feed(*transcriber, quietAudio(1.5));
        EXPECT_TRUE(stop(*transcriber).empty()) << invented;
        EXPECT_GE(transcriber->statistics().droppedByGuard, 1u) << invented;
    }
    // The same words really spoken are kept.
    decoder->script = [](Purpose purpose, std::size_t) {
        return purpose == Purpose::final_ ? "ありがとうございました" : "";
    };
    auto transcriber = make();
    feed(*transcriber, speechAudio(1.5));
    const auto results = stop(*transcriber);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].text, "ありがとうございました");
    EXPECT_EQ(transcriber->statistics().droppedByGuard, 0u);

    // A segment whose final comes back empty still ends with a final, which withdraws its partial.
    decoder->script = [](Purpose purpose, std::size_t) {
        return purpose == Purpose::final_ ? "" : "それで";
    };
    const std::size_t partialsBefore = decoded(Purpose::partial).size();
    auto withdrawing = make();
    feed(*withdrawing, speechAudio(2.0));
    ASSERT_TRUE(waitUntil([&] { return decoded(Purpose::partial).size() > partialsBefore; }));
    const auto withdrawn = stop(*withdrawing);
    ASSERT_EQ(withdrawn.size(), 2u);
    EXPECT_EQ(withdrawn[0].text, "それで");
    EXPECT_TRUE(withdrawn[1].isFinal && withdrawn[1].text.empty());
}

TEST_F(ProgressiveTranscriberTest, InitialPromptKeepsTheNewestWholeTermsThatFit) {
    decoder->tokenLimit = 10;  // a budget of 9 after whisper's own marker
    auto transcriber = make({"ああああ", "bbb", "cc", "d"});
    EXPECT_EQ(transcriber->initialPrompt(), "bbb、cc、d");
    EXPECT_EQ(transcriber->statistics().promptTermCount, 3u);
    EXPECT_EQ(log, std::vector<std::string>{
                       "initial prompt keeps the newest 3 of 4 contextual strings (limit 10 "
                       "tokens)"});
    stop(*transcriber);
}

TEST_F(ProgressiveTranscriberTest, CancelUnblocksEveryoneAndFailuresReachTheReader) {
    decoder->blockUntilAborted = true;
    auto cancelled = make();
    feed(*cancelled, speechAudio(1.0));
    ASSERT_TRUE(waitUntil([&] { return !decoder->calls().empty(); }));
    std::thread reader([&] { EXPECT_EQ(cancelled->nextResult(), std::nullopt); });
    cancelled->cancel();
    reader.join();
    cancelled->finalizeThroughEndOfInput();  // returns at once once cancelled
    cancelled->analyze(speechAudio(0.1));    // a no-op now

    decoder->blockUntilAborted = false;
    decoder->failure = "model exploded";
    auto transcriber = make();
    feed(*transcriber, speechAudio(1.0));
    EXPECT_THAT([&] { stop(*transcriber); },
                ::testing::ThrowsMessage<platform::SpeechEngineError>("model exploded"));
    EXPECT_EQ(transcriber->nextResult(), std::nullopt);

    // No model: prepare says so.
    ProgressiveTranscriber unloaded("ja", [] { return nullptr; }, {});
    EXPECT_THROW(unloaded.prepare(), platform::SpeechEngineError);
}

}  // namespace
}  // namespace kelvo::test
