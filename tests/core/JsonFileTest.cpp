#include "core/services/JsonFile.h"

#include <gtest/gtest.h>

#include <string>

#include "core/support/Error.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

std::string reference(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace);
}

TEST(JsonFile, PrettyPrintingMatchesTheGeneralSerialiser) {
    Json value = Json::array();
    value.push_back(Json::object());
    value.push_back(Json::array());
    value.push_back(Json::object({{"text", "日本語のまま"},
                                  {"quote\"key", "a\"b\\c"},
                                  {"controls", std::string("tab\tnl\ncr\rnul\0x\x7f", 16)},
                                  {"nested", Json::array({1, -2, 3.5, 7e8, true, false, nullptr})},
                                  {"empty", ""}}));
    // Malformed UTF-8 of every kind: stray trail byte, truncated, overlong, surrogate, too high.
    for (const char* bad : {"a\x80z", "\xE3\x81", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                            "ok\xF0\x9F\x98\x80", "\xEF\xBF\xBD"}) {
        value.push_back(std::string(bad));
        value.push_back(Json::object({{std::string(bad), bad}}));
    }
    EXPECT_EQ(jsonfile::prettyPrinted(value), reference(value));
    EXPECT_EQ(jsonfile::prettyPrinted(Json::array()), "[]");
    EXPECT_EQ(jsonfile::prettyPrinted(Json("x")), "\"x\"");
}

TEST(JsonFile, ParseErrorsNameTheFile) {
    const std::string message =
        test::whatOf<DecodingError>([] { jsonfile::parse("/data/history.json", "[1,"); });
    EXPECT_TRUE(message.starts_with("/data/history.json: invalid JSON: parse error at line 1"))
        << message;
    EXPECT_EQ(message.find("[json.exception"), std::string::npos) << message;
}

// nlohmann reports a number beyond a double as out of range, not as a syntax error; a store must
// still see a damaged file, and the history must still move it aside and record.
TEST(JsonFile, ANumberBeyondADoubleIsInvalidJsonNamingTheFile) {
    EXPECT_EQ(test::whatOf<DecodingError>(
                  [] { jsonfile::parse("/data/history.json", "[{\"createdAt\": -1e999}]"); }),
              "/data/history.json: invalid JSON: number overflow parsing '-1e999'");
}

TEST(JsonFile, NestingIsLimitedOutsideTextsOnly) {
    const auto nested = [](std::size_t levels) {
        return std::string(levels, '[') + std::string(levels, ']');
    };
    EXPECT_NO_THROW(jsonfile::parse("a.json", nested(jsonfile::maximumNestingDepth)));
    EXPECT_NO_THROW(jsonfile::parse("a.json", "[\"" + std::string(1000, '[') + "\\\"\"]"));
    EXPECT_EQ(test::whatOf<DecodingError>([&] {
                  jsonfile::parse("/data/a.json",
                                  "{\"a\": " + nested(jsonfile::maximumNestingDepth) + "}");
              }),
              "/data/a.json: invalid JSON: nested deeper than 512 levels");
}

}  // namespace
}  // namespace kelvo
