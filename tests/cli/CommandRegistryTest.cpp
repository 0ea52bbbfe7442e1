#include "cli/CommandRegistry.h"

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/support/Error.h"

namespace kelvo::cli {
namespace {

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

class CommandRegistryTest : public ::testing::Test {
  protected:
    CommandRegistryTest() {
        registry.add(Command{"echo", "[--upper] [TEXT]", "Echo TEXT.",
                             ArgumentParser().flag("--upper").positionals(1),
                             [](const ParsedArguments& arguments, CommandContext& context) {
                                 std::string text = context.textArgument(arguments);
                                 if (arguments.has("--upper")) {
                                     for (char& c : text) {
                                         c = static_cast<char>(std::toupper(c));
                                     }
                                 }
                                 context.writeText(text);
                             }});
        registry.add(Command{"fail", "", "Write, then fail.", ArgumentParser().flag("--memory"),
                             [](const ParsedArguments& arguments, CommandContext& context) {
                                 context.writeText("partial");
                                 if (arguments.has("--memory")) {
                                     throw std::bad_alloc();
                                 }
                                 throw FileError("cannot read /x:\nno such file");
                             }});
        registry.add(Command{"group first", "--value V", "First of a group.",
                             ArgumentParser().option("--value", true),
                             [](const ParsedArguments& arguments, CommandContext& context) {
                                 if (*arguments.value("--value") == "bad") {
                                     throw UsageError("invalid value 'bad' for --value");
                                 }
                                 context.writeText(*arguments.value("--value"));
                             }});
        registry.add(Command{
            "group second", "", "Second of a group.", ArgumentParser(),
            [](const ParsedArguments&, CommandContext& context) { context.writeText("second"); }});
    }

    Outcome run(std::vector<std::string> arguments, const std::string& input = "") {
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        const Environment environment(
            [](std::string_view) -> std::optional<std::string> { return std::nullopt; });
        const int status = registry.run(arguments, in, out, err, environment);
        return Outcome{status, out.str(), err.str()};
    }

    CommandRegistry registry;
};

TEST_F(CommandRegistryTest, FailureDiscardsOutputAndReportsOneLine) {
    const Outcome outcome = run({"fail"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "kelvo: cannot read /x: no such file\n");
    EXPECT_EQ(run({"fail", "--memory"}).errors,
              "kelvo: not enough memory to finish (is the input larger than this machine can "
              "hold?)\n");
}

TEST_F(CommandRegistryTest, UsageErrorsExitTwoWithReasonAndUsageLine) {
    const std::string general = "usage: kelvo <command> [options] (see 'kelvo help')\n";
    const std::string group = "usage: kelvo group first --value V\nusage: kelvo group second\n";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"echo", "--lower", "x"},
         "kelvo: unknown option '--lower'\nusage: kelvo echo [--upper] [TEXT]\n"},
        {{"group", "first", "--value", "bad"},
         "kelvo: invalid value 'bad' for --value\nusage: kelvo group first --value V\n"},
        {{"nonsense"}, "kelvo: unknown command 'nonsense'\n" + general},
        {{}, "kelvo: missing command\n" + general},
        {{"group", "third"}, "kelvo: unknown group command 'third'\n" + group},
        {{"group"}, "kelvo: missing group command\n" + group},
    };
    for (const auto& [arguments, errors] : cases) {
        SCOPED_TRACE(errors);
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors, errors);
    }
}

TEST_F(CommandRegistryTest, HelpGoesToStandardOutputWithExitZero) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"help"}, {"--help"}}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.errors, "");
        EXPECT_TRUE(outcome.output.starts_with("usage: kelvo <command> [options]\n"));
        EXPECT_NE(outcome.output.find("  kelvo group first --value V\n      First of a group.\n"),
                  std::string::npos);
    }
    EXPECT_EQ(run({"echo", "--help"}).output, "usage: kelvo echo [--upper] [TEXT]\n  Echo TEXT.\n");
    EXPECT_EQ(run({"help", "echo"}).output, "usage: kelvo echo [--upper] [TEXT]\n  Echo TEXT.\n");
    // Help wins over a missing required option.
    EXPECT_EQ(run({"group", "first", "--help"}).status, 0);
    EXPECT_EQ(run({"help", "group"}).output,
              "usage: kelvo group first --value V\nusage: kelvo group second\n");
    EXPECT_EQ(run({"help", "nonsense"}).status, 2);
}

TEST(DataLocations, DataHomeComesFromXdgOrHomeAndRelativeValuesAreIgnored) {
    std::map<std::string, std::string, std::less<>> variables;
    const Environment environment([&](std::string_view name) -> std::optional<std::string> {
        const auto found = variables.find(name);
        if (found == variables.end()) {
            return std::nullopt;
        }
        return found->second;
    });
    const DataLocations locations = environment.dataLocations();
    EXPECT_THROW(locations.dictionaryFile(), Error);

    variables["HOME"] = "/home/user";
    EXPECT_EQ(locations.dictionaryFile(), "/home/user/.local/share/KelvoVoiceMac/dictionary.json");
    variables["XDG_DATA_HOME"] = "";
    EXPECT_EQ(locations.historyFile(), "/home/user/.local/share/KelvoVoiceMac/history.json");
    variables["XDG_DATA_HOME"] = "relative/data";
    EXPECT_EQ(locations.applicationFolder(), "/home/user/.local/share/KelvoVoiceMac");
    variables["XDG_DATA_HOME"] = "/data";
    EXPECT_EQ(locations.dictionaryFile(), "/data/KelvoVoiceMac/dictionary.json");
    EXPECT_EQ(locations.historyFile(), "/data/KelvoVoiceMac/history.json");
    EXPECT_EQ(locations.pocketSphinxModelsFolder(), "/data/KelvoVoiceMac/models/pocketsphinx");
}

}  // namespace
}  // namespace kelvo::cli
