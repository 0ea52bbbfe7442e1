#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "core/engines/LocalPlaceholderTextProcessingService.h"
#include "core/engines/MockSaveAdapter.h"
#include "core/engines/MockTranscriptionService.h"

namespace kelvo {
namespace {

TEST(MockTranscriptionService, ReturnsTheSameTextForAnyFile) {
    MockTranscriptionService service;
    const TranscriptionResult expected{
        "これはテスト用の音声テキストです。KelvoVoiceの音声認識モックです。", "ja", 3.5};
    EXPECT_EQ(service.transcribe("/nonexistent/file.m4a", {}), expected);
    EXPECT_EQ(service.transcribe("", TranscriptionContext{"en", "prompt", {"x"}}), expected);
}

TEST(LocalPlaceholderTextProcessingService, ReturnsTheInputTextExactly) {
    LocalPlaceholderTextProcessingService service;
    EXPECT_EQ(
        service.process(TextProcessingRequest{
            " えーと、原文\n", SummaryLevel::translate, ProcessingMode::todo, {"東京"}, "en"}),
        " えーと、原文\n");
}

TEST(MockSaveAdapter, RemembersEveryDocumentInCallOrderAndAlwaysSucceeds) {
    MockSaveAdapter adapter;
    EXPECT_EQ(adapter.destinationType(), SaveDestinationType::localFolder);
    MarkdownDocument first;
    first.title = "一";
    MarkdownDocument second;
    second.title = "二";
    SaveRequest request;
    request.fileName = "note.md";
    const SaveResult saved = adapter.save(first, request);
    EXPECT_EQ(saved,
              (SaveResult{true, std::nullopt, SaveDestinationType::localFolder, std::nullopt}));
    adapter.save(second, request);
    EXPECT_EQ(adapter.savedDocuments(), (std::vector<MarkdownDocument>{first, second}));
}

TEST(MockSaveAdapter, ConcurrentSavesAreAllKept) {
    MockSaveAdapter adapter;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&adapter] {
            for (int i = 0; i < 100; ++i) {
                adapter.save(MarkdownDocument{}, SaveRequest{});
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(adapter.savedDocuments().size(), 400u);
}

}  // namespace
}  // namespace kelvo
