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

// Every parse error names the file, in words rather than the library's exception text. A number
// beyond a double is one too (nlohmann calls it out of range, not a syntax error): a store must
// still see a damaged file. Nesting is limited outside texts only.
TEST(JsonFile, ParseErrorsNameTheFileAndNestingIsLimited) {
    const std::string deep = std::string(jsonfile::maximumNestingDepth, '[') +
                             std::string(jsonfile::maximumNestingDepth, ']');
    EXPECT_NO_THROW(jsonfile::parse("a.json", deep));
    EXPECT_NO_THROW(jsonfile::parse("a.json", "[\"" + std::string(1000, '[') + "\\\"\"]"));
    const std::pair<std::string, std::string> cases[] = {
        {"[1,", "invalid JSON: parse error at line 1"},
        {"[{\"createdAt\": -1e999}]", "invalid JSON: number overflow parsing '-1e999'"},
        {"{\"a\": " + deep + "}", "invalid JSON: nested deeper than 512 levels"},
    };
    for (const auto& [data, error] : cases) {
        const std::string message =
            test::whatOf<DecodingError>([&] { jsonfile::parse("/data/a.json", data); });
        EXPECT_TRUE(message.starts_with("/data/a.json: " + error)) << message;
        EXPECT_EQ(message.find("[json.exception"), std::string::npos) << message;
    }
}

}  // namespace
}  // namespace kelvo
