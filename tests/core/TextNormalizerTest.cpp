#include "core/engines/TextNormalizer.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(TextNormalizer, FoldsFullWidthAsciiAndIdeographicSpace) {
    // (Letters, digits and the ideographic space: `kelvo normalize`, KelvoBinaryTest.)
    EXPECT_EQ(TextNormalizer::normalize("！～"), "!~");  // both ends of the folded range
    // Outside the range: half-width katakana, the full-width cent sign, kana and kanji stay.
    EXPECT_EQ(TextNormalizer::normalize("ｶﾀｶﾅ￠かな漢字"), "ｶﾀｶﾅ￠かな漢字");
}

TEST(TextNormalizer, TrimsAndCollapsesOrdinarySpaces) {
    EXPECT_EQ(TextNormalizer::normalize("\u3000テスト\u3000"), "テスト");
    EXPECT_EQ(TextNormalizer::normalize("a \u3000 b"), "a b");
    EXPECT_EQ(TextNormalizer::normalize("\ta  b\t"), "a b");
    // Line feeds are neither trimmed nor collapsed.
    EXPECT_EQ(TextNormalizer::normalize("a\n\nb\n"), "a\n\nb\n");
    EXPECT_EQ(TextNormalizer::normalize(""), "");
}

}  // namespace
}  // namespace kelvo
