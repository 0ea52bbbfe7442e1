// The speech service on the file-based model engine, end to end with a loopback model server and
// a scripted decoder: the chosen model downloaded, verified and used for partials and finals, a
// corrupt download falling back with the installation's own message, and an unsupported locale.

#include <gtest/gtest.h>

#include <QCoroTask>

#include <atomic>
#include <future>

#include "KelvoVoiceMac/session/SpeechService.h"
#include "ModelFileServer.h"
#include "ScriptedDecoder.h"
#include "TemporaryFolder.h"
#include "TestAudio.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeSegmentRecognizerProvider.h"
#include "fakes/RecordingLog.h"
#include "fakes/TestEventLoop.h"
#include "platform/AssetInstallationRequest.h"
#include "platform/model/ModelFileEngine.h"
#include "platform/model/ProgressiveTranscriber.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

using app::AudioBuffer;
using app::Channel;
using app::SpeechService;
using app::TranscriptionEvent;

// The file-based engine with transcribers over a scripted decoder.
class ScriptedModelEngine final : public platform::ModelFileEngine {
  public:
    using ModelFileEngine::ModelFileEngine;
    std::unique_ptr<platform::ModelTranscriber> makeTranscriber(
        const std::string& locale) override {
        return std::make_unique<platform::ProgressiveTranscriber>(
            locale,
            [this] {
                loading = true;
                loaded.wait();
                auto held = decoder;
                acquired = true;
                return held;
            },
            platform::ProgressiveTranscriber::Options{});
    }
    std::shared_ptr<ScriptedDecoder> decoder = std::make_shared<ScriptedDecoder>();
    // Loading the model takes until the test fulfils `finishLoading`.
    std::promise<void> finishLoading;
    std::shared_future<void> loaded = finishLoading.get_future().share();
    std::atomic<bool> loading = false;
    std::atomic<bool> acquired = false;
};

class ModelEngineSpeechServiceTest : public ::testing::Test {
  protected:
    ModelEngineSpeechServiceTest() {
        ensureCoreApplication();
        engine.finishLoading.set_value();
        // These tests are about the model engine; the fallback only has to be chosen. Without a
        // fallback recogniser its path ends at once, leaving no request running behind.
        recognizers.localeRecognizer.reset();
    }

    ~ModelEngineSpeechServiceTest() override { audio->close(); }

    ModelCatalogEntry entry(const std::string& name, int rank) {
        ModelCatalogEntry e;
        e.name = name;
        e.fileName = "ggml-" + name + ".bin";
        e.url = "https://models.invalid/" + e.fileName;  // the mirror setting points at the server
        e.sizeBytes = file.size();
        e.sha1 = testing::sha1Of(file);
        e.rank = rank;
        return e;
    }

    std::vector<TranscriptionEvent> dictate(double speechSeconds) {
        auto events = service->startTranscription(audio);
        EXPECT_TRUE(waitUntil([&] { return service->activeEngine().has_value(); }));
        inReads(speechAudio(speechSeconds), [&](std::span<const std::int16_t> read) {
            audio->send(AudioBuffer{std::vector<std::int16_t>(read.begin(), read.end())});
        });
        audio->close();
        QCoro::waitFor(service->stop());
        std::vector<TranscriptionEvent> all;
        while (auto event = events->receive()) {
            all.push_back(*event);
        }
        return all;
    }

    std::string file = std::string(200'000, 'w');
    testing::TemporaryFolder folder;
    testing::ModelFileServer server{file};
    ModelInventory inventory{ModelCatalog({entry("small", 40), entry("base", 20)}),
                             folder.path() / "models",
                             {"", server.baseURL()}};
    ScriptedModelEngine engine{inventory};
    FakeClock clock;
    RecordingLog trace;
    FakeSegmentRecognizerProvider recognizers;
    std::shared_ptr<SpeechService> service =
        std::make_shared<SpeechService>(engine, recognizers, clock, trace);
    std::shared_ptr<Channel<AudioBuffer>> audio = std::make_shared<Channel<AudioBuffer>>();
};

// A corrupt download falls back with the installation's own message (that nothing stays installed
// is ModelInstallationTest's). With no model chosen or installed the engine offers no installation
// request (ModelFileEngineTest), and the service then falls back without one (SpeechServiceTest).
TEST_F(ModelEngineSpeechServiceTest, ACorruptDownloadFallsBackWithTheInstallationsMessage) {
    inventory.setSettings({"small", server.baseURL()});
    server.behave(testing::ModelFileServer::Mode::corrupt);
    service->startTranscription(audio);
    ASSERT_TRUE(waitUntil([&] { return service->activeEngine().has_value(); }));
    EXPECT_TRUE(trace.contains(
        "[SpeechService] SpeechAnalyzer unavailable: Downloaded model small does not match its "
        "published SHA-1 checksum; the download was deleted. Falling back to SFSpeechRecognizer"))
        << ::testing::PrintToString(trace.lines());
    audio->close();
    QCoro::waitFor(service->stop());
}

TEST_F(ModelEngineSpeechServiceTest, TheChosenModelIsInstalledThenTranscribes) {
    inventory.setSettings({"base", server.baseURL()});
    service->setContextualStrings({"東京駅"});
    const std::vector<TranscriptionEvent> events = dictate(1.5);

    EXPECT_TRUE(inventory.isInstalled(*inventory.catalog().find("base")));
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().kind, TranscriptionEvent::Kind::final_);
    for (const auto& call : engine.decoder->calls()) {
        EXPECT_EQ(call.language, "ja");
        EXPECT_EQ(call.prompt, "東京駅");
    }

    // Installed now: the next dictation goes straight to the analyser.
    audio = std::make_shared<Channel<AudioBuffer>>();
    dictate(0.6);
    EXPECT_EQ(server.ranges().size(), 1u);
}

// Stopped while its model loads, the dictation ends there: the engine never starts and the model
// is let go (the cache can release it once idle).
TEST_F(ModelEngineSpeechServiceTest, ADictationStoppedWhileTheModelLoadsNeverStartsIt) {
    ScriptedModelEngine slowEngine{inventory};
    auto slowService = std::make_shared<SpeechService>(slowEngine, recognizers, clock, trace);
    inventory.setSettings({"base", server.baseURL()});
    slowService->startTranscription(audio);
    ASSERT_TRUE(waitUntil([&] { return slowEngine.loading.load(); }));
    QCoro::waitFor(slowService->stop());
    slowEngine.finishLoading.set_value();
    const std::string started = "[SpeechService] Using SpeechAnalyzer/SpeechTranscriber";
    ASSERT_TRUE(waitUntil([&] {
        return (slowEngine.acquired && slowEngine.decoder.use_count() == 1) ||
               trace.contains(started);
    }));
    EXPECT_FALSE(trace.contains(started));
    EXPECT_EQ(slowService->activeEngine(), std::nullopt);
}

TEST(ModelFileEngineTest, LocalesAreLanguagesTheCatalogueServes) {
    testing::TemporaryFolder folder;
    ModelInventory inventory(ModelCatalog::builtIn(), folder.path());
    ScriptedModelEngine engine(inventory);
    EXPECT_EQ(engine.supportedLocaleEquivalent("ja-JP"), "ja");
    EXPECT_EQ(engine.supportedLocaleEquivalent("tlh"), std::nullopt);
    EXPECT_EQ(engine.supportedLocales().size(), 100u);
    EXPECT_TRUE(engine.installedLocales().empty());
    const auto transcriber = engine.makeTranscriber("ja");
    EXPECT_EQ(engine.assetInstallationRequest(*transcriber), nullptr);
    // A download the user started and that was cut off is what the language waits for, even of
    // a lesser model, and is resumed; an empty partial file is a download that never started.
    const auto candidates = inventory.catalog().modelsForLanguage("ja");
    ASSERT_GE(candidates.size(), 2u);
    folder.write(candidates[1]->fileName + ".part", "");
    EXPECT_EQ(inventory.modelForLocale("ja"), candidates[0]);
    EXPECT_EQ(engine.assetStatus(*transcriber), platform::AssetStatus::supported);
    folder.write(candidates[1]->fileName + ".part", "partial");
    EXPECT_EQ(inventory.modelForLocale("ja"), candidates[1]);
    EXPECT_EQ(engine.assetStatus(*transcriber), platform::AssetStatus::downloading);
    EXPECT_NE(engine.assetInstallationRequest(*transcriber), nullptr);
    const auto unsupported = engine.makeTranscriber("tlh");
    EXPECT_EQ(engine.assetStatus(*unsupported), platform::AssetStatus::unsupported);
}

}  // namespace
}  // namespace kelvo::test
