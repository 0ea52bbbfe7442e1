#include "core/support/Utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace kelvo {
namespace {

TEST(Utf8Validation, AcceptsWellFormedTextOnly) {
    using namespace std::string_literals;
    EXPECT_TRUE(isValidUtf8(""));
    EXPECT_TRUE(isValidUtf8("plain ascii\r\n"));
    EXPECT_TRUE(isValidUtf8("\0"s));
    EXPECT_TRUE(isValidUtf8("日本語テキスト、ｶﾀｶﾅ"));
    EXPECT_TRUE(isValidUtf8("\xf0\x9f\x8e\xa4"));          // U+1F3A4
    EXPECT_TRUE(isValidUtf8("\xf4\x8f\xbf\xbf"));          // U+10FFFF, the last code point
    EXPECT_TRUE(isValidUtf8("\xed\x9f\xbf\xee\x80\x80"));  // either side of the surrogates

    EXPECT_FALSE(isValidUtf8("\xff"));
    EXPECT_FALSE(isValidUtf8("\x80"));              // stray continuation byte
    EXPECT_FALSE(isValidUtf8("\xc0\x80"));          // overlong NUL
    EXPECT_FALSE(isValidUtf8("\xc1\xbf"));          // overlong two-byte form
    EXPECT_FALSE(isValidUtf8("\xe0\x80\xaf"));      // overlong three-byte form
    EXPECT_FALSE(isValidUtf8("\xf0\x8f\xbf\xbf"));  // overlong four-byte form
    EXPECT_FALSE(isValidUtf8("\xed\xa0\x80"));      // U+D800 surrogate
    EXPECT_FALSE(isValidUtf8("\xf4\x90\x80\x80"));  // above U+10FFFF
    EXPECT_FALSE(isValidUtf8("\xf5\x80\x80\x80"));
    EXPECT_FALSE(isValidUtf8("ok\xe6\x97"));  // truncated at the end
    EXPECT_FALSE(isValidUtf8("\xe6\x97x"));   // continuation missing mid-text
}

}  // namespace
}  // namespace kelvo
