#include <gtest/gtest.h>

#include "core/models/DictionaryEntry.h"
#include "core/models/HistoryItem.h"
#include "core/models/SaveResult.h"

namespace kelvo {
namespace {

template <typename T>
T roundTrip(const T& value) {
    return Json::parse(Json(value).dump()).get<T>();
}

DictionaryEntry sampleEntry() {
    return DictionaryEntry{
        "3F2504E0-4F89-11D3-9A0C-0305E82C3301", "東京", {"とう"}, {"東今日"}, "", 10, true, {}};
}

TEST(DictionaryEntryJson, AbsentNoteIsLeftOutAndEntriesRoundTrip) {
    EXPECT_FALSE(Json(sampleEntry()).contains("note"));
    DictionaryEntry withNote = sampleEntry();
    withNote.note = "地名";
    EXPECT_EQ(roundTrip(withNote), withNote);
    EXPECT_EQ(roundTrip(sampleEntry()), sampleEntry());
}

TEST(DictionaryEntryJson, MissingOrMistypedRequiredMembersFail) {
    for (const char* key : {"id", "canonicalText", "readings", "commonMisrecognitions",
                            "replacementText", "priority", "enabled"}) {
        Json encoded = sampleEntry();
        encoded.erase(key);
        EXPECT_THROW(encoded.get<DictionaryEntry>(), DecodingError) << key;
    }
    Json nullNote = sampleEntry();
    nullNote["note"] = nullptr;
    EXPECT_EQ(nullNote.get<DictionaryEntry>().note, std::nullopt);

    for (const auto& [key, value] :
         {std::pair<const char*, Json>{"priority", 2.5}, {"enabled", 1}, {"id", "not-a-uuid"}}) {
        Json mistyped = sampleEntry();
        mistyped[key] = value;
        EXPECT_THROW(mistyped.get<DictionaryEntry>(), DecodingError) << key;
    }

    Json lowerId = sampleEntry();
    lowerId["id"] = "3f2504e0-4f89-11d3-9a0c-0305e82c3301";
    EXPECT_EQ(lowerId.get<DictionaryEntry>().id, "3F2504E0-4F89-11D3-9A0C-0305E82C3301");
}

TEST(EnumerationJson, SummaryLevelIsAnIndexAndOthersAreCaseNames) {
    EXPECT_EQ(Json(SummaryLevel::trim), 5);
    EXPECT_EQ(Json(5).get<SummaryLevel>(), SummaryLevel::trim);
    EXPECT_THROW(Json(7).get<SummaryLevel>(), DecodingError);
    EXPECT_THROW(Json(-1).get<SummaryLevel>(), DecodingError);
    EXPECT_THROW(Json("trim").get<SummaryLevel>(), DecodingError);

    EXPECT_EQ(Json(ProcessingMode::markdown), "markdown");
    EXPECT_EQ(Json("markdown").get<ProcessingMode>(), ProcessingMode::markdown);
    EXPECT_THROW(Json("Markdown").get<ProcessingMode>(), DecodingError);
    EXPECT_THROW(Json("").get<OutputFormat>(), DecodingError);
    EXPECT_EQ(Json("cloudflareD1").get<SaveDestinationType>(), SaveDestinationType::cloudflareD1);
    EXPECT_EQ(enumNameList<DictionaryScope>(), "all|userOnly|disabled");
    EXPECT_EQ(enumNameList<ProcessingMode>(),
              "voiceInput|cleanup|summarize|todo|markdown|translate");
}

TEST(RecordJson, StoredAndPrintedRecordsRoundTripWithDatesUrlsAndOptionals) {
    HistoryItem item;
    item.id = "00000000-0000-4000-8000-00000000000A";
    item.createdAt = Date{754000000.123456};
    item.request.audioFileURL = "/tmp/録音 1.m4a";
    item.request.summaryLevel = SummaryLevel::bulletsOrTodo;
    item.request.targetLanguage = "en";
    item.result.rawTranscript = "とうきょう";
    item.result.finalText = "東京";
    item.result.usedDictionaryEntryIDs = {"3F2504E0-4F89-11D3-9A0C-0305E82C3301"};
    const Json encoded = item;
    EXPECT_EQ(encoded["request"]["audioFileURL"], "file:///tmp/%E9%8C%B2%E9%9F%B3%201.m4a");
    EXPECT_FALSE(encoded["request"].contains("rawText"));
    EXPECT_EQ(encoded["request"]["summaryLevel"], 4);
    EXPECT_EQ(roundTrip(item), item);

    SaveResult saved{true, std::filesystem::path("/vault/a b.md"), SaveDestinationType::localFolder,
                     std::nullopt};
    EXPECT_EQ(Json(saved)["savedURL"], "file:///vault/a%20b.md");
    EXPECT_EQ(roundTrip(saved), saved);
}

TEST(RecordJson, NonFileUrlIsADecodingError) {
    Json request = VoiceInputRequest{};
    request["audioFileURL"] = "https://example.invalid/a.m4a";
    EXPECT_THROW(request.get<VoiceInputRequest>(), DecodingError);
}

}  // namespace
}  // namespace kelvo
