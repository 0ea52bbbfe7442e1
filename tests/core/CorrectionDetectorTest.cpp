#include "core/engines/CorrectionDetector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/support/Unicode.h"

namespace kelvo {
namespace {

// One edit as an accessibility change report gives it: an insertion of `text`, or a deletion of
// `length` characters, at a field offset in characters.
struct Edit {
    std::size_t offset;
    std::string text;
    std::size_t length = 0;
};
Edit ins(std::size_t offset, std::string text) {
    return {offset, std::move(text)};
}
Edit del(std::size_t offset, std::size_t length) {
    return {offset, "", length};
}

struct Case {
    // The field right after the dictation, the dictated text between « and ».
    std::string field;
    std::vector<Edit> edits;
    // "replaced→replacement", " (reading)", " @entry"; empty for no suggestion.
    std::string expected;
};

const char* const kKubernetesID = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";

// The watch holds the dictation and this many characters either side, as the application does.
constexpr std::size_t kNeighbourhood = 10;

std::string run(const Case& c) {
    const std::size_t open = c.field.find("«");
    const std::size_t close = c.field.find("»");
    const std::string field = c.field.substr(0, open) + c.field.substr(open + 2, close - open - 2) +
                              c.field.substr(close + 2);
    const std::size_t start = unicode::characterCount(c.field.substr(0, open));
    const std::size_t end =
        start + unicode::characterCount(c.field.substr(open + 2, close - open - 2));
    const std::size_t from = start > kNeighbourhood ? start - kNeighbourhood : 0;
    std::u32string all;
    unicode::forEachCodePoint(field, [&all](char32_t cp, std::size_t, std::size_t) { all += cp; });
    std::string window;
    for (std::size_t i = from; i < std::min(all.size(), end + kNeighbourhood); ++i) {
        window += unicode::encode(all[i]);
    }
    WatchedSpan span(window, from, start - from, end - from);
    for (const Edit& edit : c.edits) {
        if (edit.length > 0) {
            span.deleted(edit.offset, edit.length);
        } else {
            span.inserted(edit.offset, edit.text);
        }
    }
    DictionaryEntry kubernetes{kKubernetesID, "Kubernetes", {}, {"クーベネティス"}, "", 50,
                               true,          std::nullopt};
    const auto suggestion = CorrectionDetector::detect(span, {kubernetes});
    if (!suggestion) {
        return "";
    }
    return suggestion->misrecognition + "→" + suggestion->canonical +
           (suggestion->reading ? " (" + *suggestion->reading + ")" : "") +
           (suggestion->entryID
                ? " @" + std::string(suggestion->entryID == kKubernetesID ? "kubernetes" : "other")
                : "");
}

TEST(CorrectionDetectorTest, EditSequencesAfterADictation) {
    const Case cases[] = {
        // Corrections: a word replaced, typed over letter by letter, one letter of it changed.
        {"«send the report to the team»", {del(23, 4), ins(23, "crew")}, "team→crew"},
        {"«send the report to the team»",
         {del(23, 4), ins(23, "c"), ins(24, "r"), ins(25, "e"), ins(26, "w")},
         "team→crew"},
        {"«the tram left»", {del(5, 1), ins(5, "e")}, "tram→team"},
        // Kana to kanji and back, one kanji of a name, hiragana retyped as katakana.
        {"«とうきょうに行きます»", {del(0, 5), ins(0, "東京")}, "とうきょう→東京 (とうきょう)"},
        {"«綺麗な花»", {del(0, 2), ins(0, "きれい")}, "綺麗→きれい (きれい)"},
        {"«斉藤さんに連絡»", {del(0, 1), ins(0, "斎")}, "斉藤→斎藤"},
        {"«これはてすとです»", {del(3, 3), ins(3, "テスト")}, "てすと→テスト"},
        {"«クバネティスの勉強会»",
         {del(0, 6), ins(0, "Kubernetes")},
         "クバネティス→Kubernetes @kubernetes"},  // an existing entry
        // After the user's own text, which they also shortened, or edited on both sides too.
        {"Dear all, as discussed yesterday «send the report to the team»",
         {del(0, 10), del(46, 4), ins(46, "crew")},
         "team→crew"},
        {"Dear Bob, «send the report» Bye",
         {del(5, 3), ins(5, "Rob"), del(26, 3), ins(26, "Cya"), del(10, 4), ins(10, "mail")},
         "send→mail"},
        // Not corrections: already in the entry, pure addition or deletion, punctuation, spacing,
        // a word retyped unchanged, a sentence rewritten, most of it in English, the user's own
        // text before it, an edit across the start of the dictation.
        {"«クーベネティスの勉強会»", {del(0, 7), ins(0, "Kubernetes")}, ""},
        {"«send the report»", {ins(15, " now")}, ""},
        {"«send the report today»", {del(15, 6)}, ""},
        {"«はい、そうです»", {del(2, 1), ins(2, "。")}, ""},
        {"«東京　大阪»", {del(2, 1), ins(2, " ")}, ""},
        {"«send the report»", {del(9, 6), ins(9, "report")}, ""},
        {"«今日は会議です»", {del(0, 7), ins(0, "明日は休みです")}, ""},
        {"«send the report to the team»", {del(0, 27), ins(0, "call me later")}, ""},
        {"Dear Bob, «send the report»", {del(5, 3), ins(5, "Rob")}, ""},
        {"note: «team meeting»", {del(4, 6), ins(4, "d")}, ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c), c.expected) << c.field;
    }
}

}  // namespace
}  // namespace kelvo
