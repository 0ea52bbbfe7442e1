#include <gtest/gtest.h>

#include <memory>

#include "core/models/EnumNames.h"
#include "core/services/OpenAITextProcessingService.h"
#include "core/services/OpenAITranscriptionService.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/LoopbackHttpServer.h"

namespace kelvo {
namespace {

using test::LoopbackHttpServer;

std::shared_ptr<const WorkerAPIClient> clientFor(const LoopbackHttpServer& server) {
    return std::make_shared<const WorkerAPIClient>(server.url(), "t", std::nullopt, 30, 30);
}

TEST(OpenAITextProcessingService, SendsTheWorkersWireWordsForLevelAndMode) {
    LoopbackHttpServer server;
    server.answer(200, R"({"text":"processed  text "})");
    OpenAITextProcessingService service(clientFor(server));

    const std::pair<SummaryLevel, const char*> levels[] = {
        {SummaryLevel::verbatim, "verbatim"},     {SummaryLevel::cleanup, "cleanup"},
        {SummaryLevel::concise, "concise"},       {SummaryLevel::summarize, "summarize"},
        {SummaryLevel::bulletsOrTodo, "bullets"}, {SummaryLevel::trim, "verbatim"},
        {SummaryLevel::translate, "translate"},
    };
    for (const auto& [level, word] : levels) {
        EXPECT_EQ(service.process({"t", level, ProcessingMode::voiceInput, {}, std::nullopt}),
                  "processed  text ");
        EXPECT_EQ(Json::parse(server.requests().back().body)["summaryLevel"], word)
            << enumName(level);
    }
    // The mode goes by its own name (the enumeration's tests pin those), hints and language as
    // given.
    service.process({"t", SummaryLevel::cleanup, ProcessingMode::todo, {"hint"}, "fr"});
    EXPECT_EQ(Json::parse(server.requests().back().body),
              Json::parse(R"({"text":"t","summaryLevel":"cleanup","processingMode":"todo",)"
                          R"("dictionaryHints":["hint"],"targetLanguage":"fr"})"));
}

TEST(OpenAITranscriptionService, PromptJoinsHintsAfterThePromptAndTrimsOnlyOuterSpacesAndTabs) {
    using Context = TranscriptionContext;
    const auto prompt = [](const Context& context) {
        return OpenAITranscriptionService::promptFor(context);
    };
    EXPECT_EQ(prompt(Context{"ja", "Meeting notes", {"Kubernetes", "gRPC"}}),
              "Meeting notes Kubernetes, gRPC");
    EXPECT_EQ(prompt(Context{"ja", std::nullopt, {"Kubernetes", "gRPC"}}), "Kubernetes, gRPC");
    EXPECT_EQ(prompt(Context{"ja", "  x  ", {"a"}}), "x   a");
    EXPECT_EQ(prompt(Context{"ja", "\t x \t", {}}), "x");
    EXPECT_EQ(prompt(Context{"ja", " \t ", {}}), "");  // blank, but still sent
    EXPECT_EQ(prompt(Context{"ja", "\nline\n", {}}), "\nline\n");
    EXPECT_EQ(prompt(Context{"ja", "", {}}), "");
    EXPECT_EQ(prompt(Context{"ja", std::nullopt, {}}), std::nullopt);
}

// What reaches the form when a field is empty is the client's (WorkerAPIClientTest).
TEST(OpenAITranscriptionService, SendsModelLanguageAndPromptAndCopiesTheAnswer) {
    testing::TemporaryFolder folder;
    LoopbackHttpServer server;
    server.answer(200, R"({"text":" 文字起こし ","language":"ja","duration":4.5})");
    OpenAITranscriptionService service(clientFor(server), "model-a");

    EXPECT_EQ(service.transcribe(folder.write("memo.m4a", "audio"),
                                 {"ja", std::nullopt, {"東京", "gRPC"}}),
              (TranscriptionResult{" 文字起こし ", "ja", 4.5}));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].field("model"), "model-a");
    EXPECT_EQ(requests[0].field("language"), "ja");
    EXPECT_EQ(requests[0].field("prompt"), "東京, gRPC");
}

}  // namespace
}  // namespace kelvo
