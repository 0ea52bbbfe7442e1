// The whisper.cpp engine with a real model file named by KELVO_TEST_WHISPER_MODEL (whisper.cpp's
// own for-tests models will do: they have real shapes and vocabulary but no weights, so they
// decode without producing text). Checks the plumbing, not accuracy: the real tokenizer's prompt
// limit, background load, a decode, idle release. Skipped when the variable is unset.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "ModelFileServer.h"
#include "TemporaryFolder.h"
#include "TestAudio.h"
#include "core/services/ModelInstallation.h"
#include "fakes/FakeClock.h"
#include "fakes/TestEventLoop.h"
#include "platform/SpeechEngineError.h"
#include "platform/model/InitialPrompt.h"
#include "platform/whisper/WhisperDecoder.h"
#include "platform/whisper/WhisperModelEngine.h"
#include "tests/support/WaitUntil.h"

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
        ASSERT_TRUE(std::filesystem::exists(testModelPath())) << testModelPath();
    }

    testing::TemporaryFolder folder_;
};

TEST_F(WhisperEngineTest, PromptFitsTheRealTokenizerAndKeepsTheNewestTerms) {
    const auto decoder = platform::WhisperDecoder::load(testModelPath(), 2);
    EXPECT_EQ(decoder->promptTokenLimit(), 224u);
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

// The application's preload at start-up and the engine's idle time. Decoding on this engine, from
// installation to the end of a dictation, is `kelvo dictate`'s end-to-end test.
TEST_F(WhisperEngineTest, LoadsInBackgroundOnceInstalledAndReleasesAfterTenIdleMinutes) {
    const std::string model = testing::contentsOf(testModelPath());
    testing::ModelFileServer server(model);
    ModelCatalogEntry entry;
    entry.name = "test";
    entry.fileName = "ggml-test.bin";
    entry.url = server.baseURL() + entry.fileName;
    entry.sizeBytes = model.size();
    entry.sizeIsExact = true;
    entry.sha1 = testing::sha1Of(model);
    ModelInventory inventory(ModelCatalog({entry}), folder_.path() / "models", {"test", ""});
    FakeClock clock;
    platform::WhisperModelEngine engine(inventory, clock);

    engine.loadInBackground("ja-JP");  // not installed yet: nothing to load
    EXPECT_FALSE(engine.cache().isLoading());
    ModelInstallation(inventory, entry).run();
    engine.loadInBackground("ja-JP");
    ASSERT_TRUE(waitUntil([&] { return engine.cache().loadedModel().has_value(); }));

    std::unique_ptr<platform::ModelTranscriber> transcriber = engine.makeTranscriber("ja");
    transcriber->prepare();
    inReads(speechAudio(1.0),
            [&](std::span<const std::int16_t> read) { transcriber->analyze(read); });
    transcriber->finishInput();
    transcriber->finalizeThroughEndOfInput();
    while (transcriber->nextResult()) {
    }
    EXPECT_EQ(dynamic_cast<ProgressiveTranscriber&>(*transcriber).statistics().finalDecodes, 1u);
    transcriber.reset();
    clock.advance(9min);
    EXPECT_TRUE(engine.cache().loadedModel());
    clock.advance(1min);
    EXPECT_FALSE(engine.cache().loadedModel());
}

}  // namespace
}  // namespace kelvo::test
