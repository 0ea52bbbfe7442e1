#include "core/engines/FillerRemovalEngine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kelvo {
namespace {

std::string clean(std::string_view text) {
    return FillerRemovalEngine().removeFillers(text);
}

TEST(FillerRemovalEngine, FillersGoInListOrderEvenInsideWords) {
    EXPECT_EQ(clean("えーと、今日はえー 会議です"), "今日は会議です");
    EXPECT_EQ(clean("えーっとですね"), "ですね");
    EXPECT_EQ(clean("えっとーはい"), "はい");
    EXPECT_EQ(clean("あのう、そのー話"), "話");
    EXPECT_EQ(clean("あのーね"), "ね");
    EXPECT_EQ(clean("ちょっと待って"), "");
    EXPECT_EQ(clean("ちょっと"), "ちょっと");
    EXPECT_EQ(clean("ちょっと、いい"), "いい");
    EXPECT_EQ(clean("まあ いいか"), "いいか");
    EXPECT_EQ(clean("うーん、なんか 変"), "変");
    // A filler that two deletions join is removed when its own turn is later: "えー" + "あのー" +
    // "、" becomes "えー、" after "あのー" goes, but "えー、" has already been tried.
    EXPECT_EQ(clean("はいえーあのー、です"), "はいえー、です");
    // "あの" + "あのう" + "、": removing "あのう" forms "あの、", whose turn comes after.
    EXPECT_EQ(clean("はいあのあのう、です"), "はいです");
    EXPECT_EQ(clean(""), "");
}

TEST(FillerRemovalEngine, CustomListReplacesTheDefault) {
    const FillerRemovalEngine engine({"um ", "", "uh"});
    EXPECT_EQ(engine.removeFillers("um so uh yes えーと"), "so yes えーと");
}

TEST(FillerRemovalEngine, LeadingInterjectionsAreDroppedRepeatedly) {
    EXPECT_EQ(clean("あ、あっ、本題"), "本題");
    EXPECT_EQ(clean("あっ、あ、あっ、本題"), "本題");
    EXPECT_EQ(clean("あっ本題"), "あっ本題");
    // "あ、" followed by a combining mark is not the interjection.
    EXPECT_EQ(clean("あ、\u0301本題"), "あ、\u0301本題");
}

TEST(FillerRemovalEngine, InterjectionsAfterSentenceBoundariesOnly) {
    EXPECT_EQ(clean("はい。あ、次"), "はい。次");
    EXPECT_EQ(clean("はい。あっ、それです"), "はい。それです");
    EXPECT_EQ(clean("はい、あっ、それ"), "はい、それ");
    EXPECT_EQ(clean("はい！あ、いや？あっ、そう"), "はい！いや？そう");
    EXPECT_EQ(clean("一行目\nあ、二行目"), "一行目\n二行目");
    EXPECT_EQ(clean("はい あ、それ"), "はい あ、それ");
    EXPECT_EQ(clean("はいあ、それ"), "はいあ、それ");
    // Half-width marks are not boundaries.
    EXPECT_EQ(clean("はい!あ、それ"), "はい!あ、それ");
}

TEST(FillerRemovalEngine, PunctuationLeftBehindIsTidied) {
    EXPECT_EQ(clean("、。、本文"), "本文");
    EXPECT_EQ(clean("はい、、そう"), "はい、そう");
    EXPECT_EQ(clean("はい、、、そう"), "はい、、そう");
    EXPECT_EQ(clean("はい。、そう"), "はい。そう");
    EXPECT_EQ(clean("はい、まあ、そう"), "はい、そう");
    // The leading comma test is on whole characters.
    EXPECT_EQ(clean("、\u0301本文"), "、\u0301本文");
}

TEST(FillerRemovalEngine, SpacesCollapseAndEndsAreTrimmedButNotLineFeeds) {
    EXPECT_EQ(clean("a  b   c"), "a b c");
    EXPECT_EQ(clean("\tabc\t"), "abc");
    EXPECT_EQ(clean("abc\n"), "abc\n");
    EXPECT_EQ(clean("a\t\tb\u3000\u3000c"), "a\t\tb\u3000\u3000c");
    EXPECT_EQ(clean("  えーと  はい  "), "はい");
}

}  // namespace
}  // namespace kelvo
