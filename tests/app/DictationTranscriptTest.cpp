// The one rule for the finished text of a dictation, which the session inserts and `kelvo dictate`
// prints: how recogniser events fold into the text, and what correction and filler removal make
// of it, in that order.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/DictationTranscript.h"
#include "fakes/InMemoryDictionaryStore.h"

namespace kelvo::test {
namespace {

using app::DictationTranscript;
using app::TranscriptionEvent;

TEST(DictationTranscript, FoldsEventsAndFinishesWithCorrectionsThenFillerRemoval) {
    // A correction that yields a filler shows that filler removal comes second.
    const DictionaryCorrectionEngine dictionary(
        std::make_shared<InMemoryDictionaryStore>(std::vector<DictionaryEntry>{
            dictionaryEntry("KelvoVoice", {"ケルボボイス"}),
            dictionaryEntry("えーと", {"エート"}, "0B6A3C52-6C1E-4F0B-9B2D-3A5E2F1C7D10")}));
    const auto P = TranscriptionEvent::partial;
    const auto F = TranscriptionEvent::final_;
    const struct {
        const char* rule;
        std::vector<TranscriptionEvent> events;
        std::string text;
        bool removeFillers;
        std::string finished;
        std::size_t corrections;
        bool fillersRemoved;
    } cases[] = {
        // clang-format off
        {"a partial replaces the previous one",
         {P("テス"), P("テスト")}, "テスト", true, "テスト", 0, false},
        {"finals join without a separator and clear the partial",
         {P("こんにち"), F("こんにちは"), P("世"), F("世界")}, "こんにちは世界",
         true, "こんにちは世界", 0, false},
        {"a trailing partial that never became final is kept",
         {F("こんにちは"), P("ケルボボイス")}, "こんにちはケルボボイス",
         true, "こんにちはKelvoVoice", 1, false},
        {"an empty final withdraws the partial the user saw",
         {F("はい"), P("それで"), F("")}, "はい", true, "はい", 0, false},
        {"fillers go after the corrections",
         {F("エートテスト")}, "エートテスト", true, "テスト", 1, true},
        {"fillers stay when removal is off",
         {F("あのーテスト")}, "あのーテスト", false, "あのーテスト", 0, false},
        {"nothing said stays empty", {}, "", true, "", 0, false},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rule);
        DictationTranscript transcript;
        for (const TranscriptionEvent& event : c.events) {
            transcript.apply(event);
        }
        EXPECT_EQ(transcript.text(), c.text);
        const DictationTranscript::Finished finished =
            transcript.finished(&dictionary, c.removeFillers);
        EXPECT_EQ(finished.text, c.finished);
        EXPECT_EQ(finished.correctionCount, c.corrections);
        EXPECT_EQ(finished.fillersRemoved, c.fillersRemoved);
        // Without a dictionary (it failed to load) the text passes uncorrected.
        EXPECT_EQ(transcript.finished(nullptr, false).text, c.text);
    }
}

}  // namespace
}  // namespace kelvo::test
