#include <gtest/gtest.h>

#include <clocale>

#include "platform/LogFormat.h"

namespace kelvo::test {
namespace {

TEST(LogFormatTest, RendersNumbersAsPrintfWouldInAnyLocale) {
    EXPECT_EQ(platform::fixedText(650.0, 0), "650");
    EXPECT_EQ(platform::fixedText(0.28, 2), "0.28");
    EXPECT_EQ(platform::fixedText(0.2799999, 2), "0.28");
    EXPECT_EQ(platform::fixedText(1.0, 2), "1.00");
    // A decimal comma locale must not leak into the log lines.
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr) {
        EXPECT_EQ(platform::fixedText(0.28, 2), "0.28");
        std::setlocale(LC_NUMERIC, "C");
    }
}

}  // namespace
}  // namespace kelvo::test
