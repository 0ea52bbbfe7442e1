#include "cli/ArgumentParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/models/DictionaryScope.h"
#include "core/models/SummaryLevel.h"
#include "tests/support/Thrown.h"

namespace kelvo::cli {
namespace {

ParsedArguments parse(const ArgumentParser& parser, std::vector<std::string> arguments) {
    return parser.parse(arguments);
}

std::string usageErrorOf(const ArgumentParser& parser, std::vector<std::string> arguments) {
    return test::whatOf<UsageError>([&] { parser.parse(arguments); });
}

ArgumentParser sampleParser() {
    return ArgumentParser().flag("--json").option("--scope").repeatable("--hint").positionals(1);
}

TEST(ArgumentParser, OptionsMayStandAnywhereAndTakeTheirValueEitherWay) {
    const auto parsed =
        parse(sampleParser(), {"--hint", "東京", "本文", "--json", "--hint=AI", "--scope=all"});
    EXPECT_TRUE(parsed.has("--json"));
    EXPECT_EQ(parsed.value("--scope"), "all");
    EXPECT_EQ(parsed.values("--hint"), (std::vector<std::string>{"東京", "AI"}));
    EXPECT_EQ(parsed.positionals(), (std::vector<std::string>{"本文"}));
    EXPECT_FALSE(parsed.helpRequested());

    const auto empty = parse(sampleParser(), {});
    EXPECT_FALSE(empty.has("--json"));
    EXPECT_EQ(empty.value("--scope"), std::nullopt);
    EXPECT_TRUE(empty.values("--hint").empty());
    EXPECT_EQ(empty.positional(0), std::nullopt);

    // A value is taken as it is, even when it looks like an option or is empty.
    EXPECT_EQ(parse(sampleParser(), {"--scope", "--json"}).value("--scope"), "--json");
    EXPECT_EQ(parse(sampleParser(), {"--scope="}).value("--scope"), "");
}

TEST(ArgumentParser, OnlyDoubleDashStartsAnOptionAndDoubleDashAloneEndsThem) {
    EXPECT_EQ(parse(sampleParser(), {"- 牛乳"}).positional(0), "- 牛乳");
    EXPECT_EQ(parse(sampleParser(), {"-"}).positional(0), "-");
    EXPECT_EQ(parse(sampleParser(), {"-x"}).positional(0), "-x");
    const auto parsed = parse(sampleParser(), {"--json", "--", "--scope"});
    EXPECT_TRUE(parsed.has("--json"));
    EXPECT_FALSE(parsed.has("--scope"));
    EXPECT_EQ(parsed.positional(0), "--scope");
    EXPECT_TRUE(parse(sampleParser(), {"--", "--help"}).positional(0) == "--help");
}

TEST(ArgumentParser, MalformedCommandLinesAreUsageErrors) {
    const ArgumentParser parser = sampleParser();
    EXPECT_EQ(usageErrorOf(parser, {"--verbose"}), "unknown option '--verbose'");
    EXPECT_EQ(usageErrorOf(parser, {"--verbose=1"}), "unknown option '--verbose'");
    EXPECT_EQ(usageErrorOf(parser, {"--scope"}), "option '--scope' needs a value");
    EXPECT_EQ(usageErrorOf(parser, {"--scope", "all", "--scope=all"}),
              "option '--scope' given more than once");
    EXPECT_EQ(usageErrorOf(parser, {"--json=yes"}), "option '--json' takes no value");
    EXPECT_EQ(usageErrorOf(parser, {"a", "b"}), "unexpected argument 'b'");
    EXPECT_EQ(usageErrorOf(ArgumentParser(), {"text"}), "unexpected argument 'text'");
}

TEST(ArgumentParser, RequiredOptionsAreEnforcedUnlessHelpIsAsked) {
    const ArgumentParser parser = ArgumentParser().option("--level", true).option("--mode", true);
    EXPECT_EQ(usageErrorOf(parser, {"--level", "trim"}), "missing option '--mode'");
    EXPECT_TRUE(parse(parser, {"--help"}).helpRequested());
    EXPECT_TRUE(parse(parser, {"--level", "trim", "--mode", "todo"}).has("--mode"));
}

TEST(ParsedArguments, CountsAreNonNegativeDecimalIntegers) {
    const ArgumentParser parser = ArgumentParser().option("--limit");
    EXPECT_EQ(parse(parser, {}).count("--limit"), std::nullopt);
    EXPECT_EQ(parse(parser, {"--limit", "0"}).count("--limit"), 0u);
    EXPECT_EQ(parse(parser, {"--limit", "20"}).count("--limit"), 20u);
    for (const char* bad : {"-1", "+3", "1.5", "abc", "", " 3", "3 ", "99999999999999999999"}) {
        EXPECT_EQ(test::whatOf<UsageError>([&] {
                      parse(parser, {"--limit", bad}).count("--limit");
                  }),
                  std::string("invalid value '") + bad +
                      "' for --limit (expected a non-negative integer)");
    }
}

TEST(ParsedArguments, IntegersAreSignedAndMustFitSixtyFourBits) {
    const ArgumentParser parser = ArgumentParser().option("--priority");
    EXPECT_EQ(parse(parser, {"--priority=-5"}).integer("--priority"), -5);
    EXPECT_EQ(parse(parser, {"--priority", "9223372036854775807"}).integer("--priority"),
              INT64_MAX);
    for (const char* bad : {"9223372036854775808", "ten", "5x", ""}) {
        EXPECT_THROW(parse(parser, {"--priority", bad}).integer("--priority"), UsageError) << bad;
    }
}

TEST(ParsedArguments, EnumerationValuesAreExactCaseNames) {
    const ArgumentParser parser = ArgumentParser().option("--level").option("--scope");
    EXPECT_EQ(parse(parser, {"--level", "bulletsOrTodo"}).enumeration<SummaryLevel>("--level"),
              SummaryLevel::bulletsOrTodo);
    EXPECT_EQ(parse(parser, {}).enumeration<SummaryLevel>("--level"), std::nullopt);
    EXPECT_EQ(test::whatOf<UsageError>([&] {
                  parse(parser, {"--scope", "All"}).enumeration<DictionaryScope>("--scope");
              }),
              "invalid value 'All' for --scope (expected all|userOnly|disabled)");
    // Levels are stored as integers, but the command line takes names only.
    EXPECT_THROW(parse(parser, {"--level", "5"}).enumeration<SummaryLevel>("--level"), UsageError);
}

}  // namespace
}  // namespace kelvo::cli
