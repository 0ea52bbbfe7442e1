// The whisper.cpp engine with a real model file named by KELVO_TEST_WHISPER_MODEL (whisper.cpp's
// own for-tests models will do: they have real shapes and vocabulary but no weights, so they
// decode without producing text). Checks the plumbing, not accuracy: install through the
// inventory, background load and warm-up, the real tokenizer's prompt limit, partial and final
// decodes with the right sequencing, stop, idle release and reload, and the speech service on it.
// Skipped when the variable is unset.

#include <gtest/gtest.h>

#include <QCoroTask>
#include <cstdlib>
#include <fstream>

#include "KelvoVoiceMac/session/SpeechService.h"
#include "ModelFileServer.h"
#include "TemporaryFolder.h"
#include "TestAudio.h"
#include "core/services/ModelInstallation.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeSegmentRecognizerProvider.h"
#include "fakes/RecordingLog.h"
#include "fakes/TestEventLoop.h"
#include "fakes/WaitUntil.h"
#include "platform/AssetInstallationRequest.h"
#include "platform/SpeechEngineError.h"
#include "platform/model/InitialPrompt.h"
#include "platform/whisper/WhisperDecoder.h"
#include "platform/whisper/WhisperModelEngine.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using platform::ProgressiveTranscriber;

std::string testModelPath() {
    const char* path = std::getenv("KELVO_TEST_WHISPER_MODEL");
    return path ? path : "";
}

class WhisperEngineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (testModelPath().empty()) {
            GTEST_SKIP() << "KELVO_TEST_WHISPER_MODEL is not set";
        }
        ensureCoreApplication();
        model_ = testing::contentsOf(testModelPath());
        ASSERT_NE(model_, "<missing>");
        server_ = std::make_unique<testing::ModelFileServer>(model_);
        ModelCatalogEntry entry;
        entry.name = "test";
        entry.fileName = "ggml-test.bin";
        entry.url = server_->baseURL() + entry.fileName;
        entry.sizeBytes = model_.size();
        entry.sizeIsExact = true;
        entry.sha1 = testing::sha1Of(model_);
        inventory_ = std::make_unique<ModelInventory>(
            ModelCatalog({entry}), folder_.path() / "models", ModelInventory::Settings{"test", ""});
        engine_ = std::make_unique<platform::WhisperModelEngine>(*inventory_, clock_);
    }

    void TearDown() override {
        engine_.reset();
        inventory_.reset();
        server_.reset();
    }

    void install() { ModelInstallation(*inventory_, inventory_->catalog().entries()[0]).run(); }

    static void feed(platform::ModelTranscriber& transcriber,
                     const std::vector<std::int16_t>& samples) {
        for (std::size_t at = 0; at < samples.size(); at += 4096) {
            transcriber.analyze(
                std::span(samples).subspan(at, std::min<std::size_t>(4096, samples.size() - at)));
        }
    }

    std::string model_;
    testing::TemporaryFolder folder_;
    FakeClock clock_;
    std::unique_ptr<testing::ModelFileServer> server_;
    std::unique_ptr<ModelInventory> inventory_;
    std::unique_ptr<platform::WhisperModelEngine> engine_;
};

TEST_F(WhisperEngineTest, PromptFitsTheRealTokenizerAndKeepsTheNewestTerms) {
    const auto decoder = platform::WhisperDecoder::load(testModelPath(), 2);
    EXPECT_EQ(decoder->promptTokenLimit(), 224u);
    EXPECT_GT(decoder->promptTokenCount("東京駅、渋谷"), 2u);
    std::vector<std::string> terms;
    for (int i = 0; i < 100; ++i) {
        terms.push_back("専門用語" + std::to_string(i));
    }
    const auto prompt = platform::InitialPrompt::compose(terms, *decoder);
    EXPECT_GT(prompt.keptCount, 5u);
    EXPECT_LT(prompt.keptCount, 100u);
    EXPECT_LE(decoder->promptTokenCount(prompt.text), 223u);
    EXPECT_TRUE(prompt.text.ends_with("専門用語99"));
    EXPECT_TRUE(prompt.text.starts_with("専門用語" + std::to_string(100 - prompt.keptCount)));
    EXPECT_THROW(platform::WhisperDecoder::load(folder_.write("not-a-model.bin", "nonsense"), 2),
                 platform::SpeechEngineError);
}

TEST_F(WhisperEngineTest, LoadsInBackgroundDecodesProgressivelyAndReleasesWhenIdle) {
    engine_->loadInBackground("ja-JP");  // not installed yet: nothing to load
    EXPECT_FALSE(engine_->cache().isLoading());
    install();
    engine_->loadInBackground("ja-JP");
    ASSERT_TRUE(waitUntil([&] { return engine_->cache().loadedModel().has_value(); }));

    std::unique_ptr<platform::ModelTranscriber> made = engine_->makeTranscriber("ja");
    auto& transcriber = dynamic_cast<ProgressiveTranscriber&>(*made);
    transcriber.setContextualStrings({"東京駅"});
    transcriber.prepare();
    feed(transcriber, speechAudio(2.0));
    ASSERT_TRUE(waitUntil([&] { return transcriber.statistics().partialDecodes >= 1; }));
    feed(transcriber, quietAudio(1.0));
    ASSERT_TRUE(waitUntil([&] { return transcriber.statistics().finalDecodes == 1; }));
    feed(transcriber, speechAudio(1.0));
    transcriber.finishInput();
    transcriber.finalizeThroughEndOfInput();
    while (transcriber.nextResult()) {
    }
    EXPECT_EQ(transcriber.statistics().finalDecodes, 2u);
    made.reset();

    clock_.advance(9min);
    EXPECT_TRUE(engine_->cache().loadedModel());
    clock_.advance(1min);
    EXPECT_FALSE(engine_->cache().loadedModel());
    // The next dictation loads it again.
    made = engine_->makeTranscriber("ja");
    made->prepare();
    EXPECT_TRUE(engine_->cache().loadedModel());
}

TEST_F(WhisperEngineTest, SpeechServiceRunsOnTheWhisperEngine) {
    RecordingLog trace;
    FakeSegmentRecognizerProvider recognizers;
    auto service = std::make_shared<app::SpeechService>(*engine_, recognizers, clock_, trace);
    auto audio = std::make_shared<app::Channel<app::AudioBuffer>>();
    // Not installed, but chosen: the readiness check installs it from the server.
    service->startTranscription(audio);
    ASSERT_TRUE(waitUntil([&] { return service->activeEngine().has_value(); }));
    EXPECT_EQ(service->activeEngine(), app::SpeechService::TranscriptionEngine::speechAnalyzer)
        << ::testing::PrintToString(trace.lines());
    for (const auto& samples : {speechAudio(1.5), quietAudio(0.8), speechAudio(0.5)}) {
        audio->send(app::AudioBuffer{samples});
    }
    audio->close();
    QCoro::waitFor(service->stop());
    EXPECT_TRUE(trace.contains("[SpeechService] Installing SpeechTranscriber assets progress=0.0"));
    EXPECT_TRUE(trace.contains("[SpeechService] Using SpeechAnalyzer/SpeechTranscriber"));
    EXPECT_TRUE(trace.contains("[SpeechService] SpeechAnalyzer finalized through end of input"));
}

}  // namespace
}  // namespace kelvo::test
