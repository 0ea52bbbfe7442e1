#include "core/engines/VoiceInputEngine.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/engines/LocalPlaceholderTextProcessingService.h"
#include "core/support/Error.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

constexpr const char* kTokyoId = "00000000-0000-0000-0000-0000000000A1";
constexpr const char* kAiId = "00000000-0000-0000-0000-0000000000A2";

class ServiceFailure : public Error {
  public:
    using Error::Error;
};

class FixedDictionary : public DictionaryStore {
  public:
    std::vector<DictionaryEntry> loadEntries() override {
        return {DictionaryEntry{kTokyoId, "東京", {"とうきょう"}, {}, "", 2, true, std::nullopt},
                DictionaryEntry{kAiId, "AI", {"えーあい"}, {}, "", 1, true, std::nullopt}};
    }
    void saveEntries(const std::vector<DictionaryEntry>&) override {}
};

/// Both services: transcribes to `text`, processes to `reply` (or the input), remembers every
/// call and throws `failure` when there is one.
class FakeServices : public TranscriptionService, public TextProcessingService {
  public:
    std::string text = "とうきょうのえーあい";
    std::optional<std::string> reply;
    std::optional<std::string> failure;
    std::vector<std::pair<std::filesystem::path, TranscriptionContext>> transcriptions;
    std::vector<TextProcessingRequest> calls;

    TranscriptionResult transcribe(const std::filesystem::path& audioFileURL,
                                   const TranscriptionContext& context) override {
        transcriptions.emplace_back(audioFileURL, context);
        if (failure) {
            throw ServiceFailure(*failure);
        }
        return TranscriptionResult{text, "en", 12.0};
    }
    std::string process(const TextProcessingRequest& request) override {
        calls.push_back(request);
        if (failure) {
            throw ServiceFailure(*failure);
        }
        return reply.value_or(request.text);
    }
};

class FakeHistory : public HistoryStore {
  public:
    std::vector<HistoryItem> appended;
    bool fail = false;

    void appendItem(const HistoryItem& item) override {
        if (fail) {
            throw FileError("Could not replace \"/data/history.json\": No space left on device");
        }
        appended.push_back(item);
    }
    std::vector<HistoryItem> recentItems(std::size_t) override { return appended; }
};

class VoiceInputEngineTest : public ::testing::Test {
  protected:
    std::shared_ptr<FakeServices> services = std::make_shared<FakeServices>();
    std::shared_ptr<FakeHistory> history = std::make_shared<FakeHistory>();
    VoiceInputEngine engine{
        services, services,
        std::make_shared<DictionaryCorrectionEngine>(std::make_shared<FixedDictionary>()), history,
        [] { return Date{800000000.5}; }};

    static VoiceInputRequest textRequest(std::string text, SummaryLevel level) {
        VoiceInputRequest request;
        request.rawText = std::move(text);
        request.summaryLevel = level;
        return request;
    }
    static VoiceInputRequest audioRequest(SummaryLevel level) {
        VoiceInputRequest request;
        request.audioFileURL = "/tmp/kelvo-recording-1.m4a";
        request.rawText = "ignored when there is audio";
        request.summaryLevel = level;
        return request;
    }
};

TEST_F(VoiceInputEngineTest, EmptyRequestGivesEmptyTextsAndOneHistoryItem) {
    VoiceInputRequest request;
    request.processingMode = ProcessingMode::markdown;
    const auto result = engine.process(request);
    EXPECT_EQ(result, (VoiceInputResult{
                          "", "", "", "", SummaryLevel::verbatim, ProcessingMode::markdown, {}}));
    ASSERT_EQ(history->appended.size(), 1u);
    // (That it holds the request and the result: the second-pass test here, and the history
    // `kelvo process` writes in KelvoBinaryTest.)
    const HistoryItem& recorded = history->appended[0];
    EXPECT_TRUE(isUuid(recorded.id));
    EXPECT_EQ(recorded.createdAt, Date{800000000.5});
    EXPECT_TRUE(services->transcriptions.empty());
    EXPECT_TRUE(services->calls.empty());
}

TEST_F(VoiceInputEngineTest, AudioIsTranscribedWithHintsAndLanguageByLevel) {
    const auto result = engine.process(audioRequest(SummaryLevel::verbatim));
    ASSERT_EQ(services->transcriptions.size(), 1u);
    EXPECT_EQ(services->transcriptions[0].first, "/tmp/kelvo-recording-1.m4a");
    EXPECT_EQ(services->transcriptions[0].second,
              (TranscriptionContext{"ja", std::nullopt, {"東京", "AI"}}));
    EXPECT_EQ(result.rawTranscript, "とうきょうのえーあい");
    EXPECT_EQ(result.correctedText, "東京のAI");

    engine.process(audioRequest(SummaryLevel::translate));
    EXPECT_EQ(services->transcriptions[1].second.language, "");

    // Scope disabled: no hints, and both passes leave the text alone.
    auto disabled = audioRequest(SummaryLevel::cleanup);
    disabled.dictionaryScope = DictionaryScope::disabled;
    const auto untouched = engine.process(disabled);
    EXPECT_TRUE(services->transcriptions[2].second.dictionaryHints.empty());
    EXPECT_TRUE(services->calls.back().dictionaryHints.empty());
    EXPECT_EQ(untouched.finalText, "とうきょうのえーあい");
    EXPECT_TRUE(untouched.usedDictionaryEntryIDs.empty());
}

TEST_F(VoiceInputEngineTest, LocalLevelsAndThePlaceholderNeverCallTheProcessingService) {
    const auto verbatim = engine.process(textRequest("えーと、とうきょう", SummaryLevel::verbatim));
    EXPECT_EQ(verbatim.processedText, "えーと、東京");
    const auto trim = engine.process(textRequest("えーと、とうきょう", SummaryLevel::trim));
    EXPECT_EQ(trim.correctedText, "えーと、東京");
    EXPECT_EQ(trim.processedText, "東京");
    EXPECT_EQ(trim.finalText, "東京");
    EXPECT_TRUE(services->calls.empty());

    // Offline, the placeholder service hands the corrected text back.
    VoiceInputEngine offline{
        services, std::make_shared<LocalPlaceholderTextProcessingService>(),
        std::make_shared<DictionaryCorrectionEngine>(std::make_shared<FixedDictionary>()), history};
    const auto placeholder =
        offline.process(textRequest("えーと、とうきょう", SummaryLevel::cleanup));
    EXPECT_EQ(placeholder.processedText, "えーと、東京");
    EXPECT_EQ(placeholder.finalText, "えーと、東京");
}

TEST_F(VoiceInputEngineTest, ServiceLevelsSendTheCorrectedTextAndRequestFields) {
    for (const auto level : {SummaryLevel::cleanup, SummaryLevel::concise, SummaryLevel::summarize,
                             SummaryLevel::bulletsOrTodo, SummaryLevel::translate}) {
        auto request = textRequest("とうきょう", level);
        request.processingMode = ProcessingMode::todo;
        request.targetLanguage = "en";
        engine.process(request);
        ASSERT_FALSE(services->calls.empty());
        EXPECT_EQ(
            services->calls.back(),
            (TextProcessingRequest{"東京", level, ProcessingMode::todo, {"東京", "AI"}, "en"}))
            << enumName(level);
    }
    EXPECT_EQ(services->calls.size(), 5u);
}

TEST_F(VoiceInputEngineTest, SecondPassRestoresSpellingsAndIdsOfBothPassesAreKept) {
    services->reply = "とうきょうで会議";  // the processing respelled the term
    const auto result = engine.process(textRequest("とうきょうのえーあい", SummaryLevel::cleanup));
    EXPECT_EQ(result.correctedText, "東京のAI");
    EXPECT_EQ(result.processedText, "とうきょうで会議");
    EXPECT_EQ(result.finalText, "東京で会議");
    EXPECT_EQ(result.usedDictionaryEntryIDs, (std::vector<std::string>{kTokyoId, kAiId, kTokyoId}));
    EXPECT_EQ(history->appended.back().result, result);
}

TEST_F(VoiceInputEngineTest, CollaboratorFailuresPassThroughAndRecordNothing) {
    const auto failureOf = [&](const VoiceInputRequest& request) {
        return test::whatOf<ServiceFailure>([&] { engine.process(request); });
    };
    services->failure = "Service failed: 503";
    EXPECT_EQ(failureOf(audioRequest(SummaryLevel::cleanup)), "Service failed: 503");
    EXPECT_TRUE(services->calls.empty()) << "nothing is processed after a failed transcription";
    EXPECT_EQ(failureOf(textRequest("とうきょう", SummaryLevel::concise)), "Service failed: 503");
    EXPECT_TRUE(history->appended.empty());

    history->fail = true;
    EXPECT_EQ(test::whatOf<FileError>(
                  [&] { engine.process(textRequest("とうきょう", SummaryLevel::verbatim)); }),
              "Could not replace \"/data/history.json\": No space left on device");
}

}  // namespace
}  // namespace kelvo
