// The dispatcher's own rules are proved through the built binary (KelvoBinaryTest); here what no
// real command can be made to do on demand: fail after writing, and run out of memory.
#include "cli/CommandRegistry.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/support/Error.h"

namespace kelvo::cli {
namespace {

TEST(CommandRegistry, AFailureDiscardsTheOutputAndReportsOneLine) {
    CommandRegistry registry;
    registry.add(Command{"fail", "", "Write, then fail.", ArgumentParser().flag("--memory"),
                         [](const ParsedArguments& arguments, CommandContext& context) {
                             context.writeText("partial");
                             if (arguments.has("--memory")) {
                                 throw std::bad_alloc();
                             }
                             throw FileError("cannot read /x:\nno such file");
                         }});
    const Environment environment(
        [](std::string_view) -> std::optional<std::string> { return std::nullopt; });
    for (const auto& [arguments, errors] :
         std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"fail"}, "kelvo: cannot read /x: no such file\n"},
             {{"fail", "--memory"},
              "kelvo: not enough memory to finish (is the input larger than this machine can "
              "hold?)\n"}}) {
        std::istringstream in;
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_EQ(registry.run(arguments, in, out, err, environment), 1);
        EXPECT_EQ(out.str(), "");
        EXPECT_EQ(err.str(), errors);
    }
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
