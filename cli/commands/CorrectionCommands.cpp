#include <memory>

#include "cli/commands/CommandGroups.h"
#include "cli/commands/DictionaryAccess.h"
#include "core/engines/DictionaryCorrectionEngine.h"

namespace kelvo::cli {

namespace {

DictionaryScope scopeArgument(const ParsedArguments& arguments) {
    return arguments.enumeration<DictionaryScope>("--scope").value_or(DictionaryScope::all);
}

void runCorrect(const ParsedArguments& arguments, CommandContext& context) {
    const DictionaryScope scope = scopeArgument(arguments);
    const auto engine = openCorrectionEngine(context.dictionaryFile(arguments));
    const std::string text = context.textArgument(arguments);
    const DictionaryCorrectionEngine::Result result = engine->apply(text, scope);
    if (arguments.has("--json")) {
        Json object = Json::object();
        object["text"] = result.text;
        object["usedEntryIDs"] = result.usedEntryIDs;
        context.writeJson(object);
    } else {
        context.writeText(result.text);
    }
}

void runHints(const ParsedArguments& arguments, CommandContext& context) {
    const DictionaryScope scope = scopeArgument(arguments);
    const auto engine = openCorrectionEngine(context.dictionaryFile(arguments));
    for (const std::string& hint : engine->hints(scope)) {
        context.writeText(hint);
    }
}

}  // namespace

void registerCorrectionCommands(CommandRegistry& registry) {
    registry.add(Command{
        "correct",
        "[--dictionary PATH] [--scope S] [--json] [TEXT]",
        "Apply the user dictionary to TEXT; --json also lists the entries used.",
        ArgumentParser().option("--dictionary").option("--scope").flag("--json").positionals(1),
        runCorrect,
    });
    registry.add(Command{
        "hints",
        "[--dictionary PATH] [--scope S]",
        "Print the dictionary's recognition hints, one per line.",
        ArgumentParser().option("--dictionary").option("--scope"),
        runHints,
    });
}

}  // namespace kelvo::cli
