#include <algorithm>

#include "cli/commands/CommandGroups.h"
#include "cli/commands/DictionaryAccess.h"
#include "core/services/JSONSuggestionStore.h"
#include "core/support/DataLocations.h"
#include "core/support/Uuid.h"

namespace kelvo::cli {

namespace {

/// The priority of an entry added without --priority: the middle of the usual 0-100 range, so
/// that later entries can be placed above or below it.
constexpr std::int64_t kDefaultPriority = 50;

void runList(const ParsedArguments& arguments, CommandContext& context) {
    context.writeJson(Json(openDictionaryStore(context.dictionaryFile(arguments))->loadEntries()));
}

void runAdd(const ParsedArguments& arguments, CommandContext& context) {
    DictionaryEntry entry;
    entry.canonicalText = *arguments.value("--canonical");
    if (entry.canonicalText.empty()) {
        throw UsageError("--canonical must not be empty");
    }
    entry.readings = arguments.values("--reading");
    entry.commonMisrecognitions = arguments.values("--misrecognition");
    entry.replacementText = arguments.value("--replacement").value_or("");
    entry.priority = arguments.integer("--priority").value_or(kDefaultPriority);
    entry.enabled = !arguments.has("--disabled");
    entry.note = arguments.value("--note");
    entry.id = makeUuid();

    const std::filesystem::path file = context.dictionaryFile(arguments);
    const auto store = openDictionaryStore(file);
    // A damaged dictionary fails here, before any folder is created.
    store->loadEntries();
    createParentFolder(file);
    store->updateEntries(
        [&entry](std::vector<DictionaryEntry>& entries) { entries.push_back(entry); });
    context.writeJson(Json(entry));
}

void runRemove(const ParsedArguments& arguments, CommandContext& context) {
    if (!arguments.positional(0)) {
        throw UsageError("missing entry ID");
    }
    const std::string requested = *arguments.positional(0);
    // Identifiers are stored upper-case; accept the lower-case form a user may have typed.
    const std::string id = isUuid(requested) ? canonicalUuid(requested) : requested;

    const auto store = openDictionaryStore(context.dictionaryFile(arguments));
    const auto hasId = [&id](const DictionaryEntry& entry) { return entry.id == id; };
    const std::vector<DictionaryEntry> entries = store->loadEntries();
    if (std::none_of(entries.begin(), entries.end(), hasId)) {
        throw Error("no dictionary entry with ID " + requested);
    }
    // The list is read again under the lock: an entry another process added meanwhile stays.
    store->updateEntries(
        [&hasId](std::vector<DictionaryEntry>& stored) { std::erase_if(stored, hasId); });
}

JSONSuggestionStore openSuggestionStore(const ParsedArguments& arguments, CommandContext& context) {
    return JSONSuggestionStore(JSONSuggestionStore::fileBeside(context.dictionaryFile(arguments)));
}

std::string requiredId(const ParsedArguments& arguments) {
    if (!arguments.positional(0)) {
        throw UsageError("missing suggestion ID");
    }
    const std::string requested = *arguments.positional(0);
    return isUuid(requested) ? canonicalUuid(requested) : requested;
}

void runSuggestions(const ParsedArguments& arguments, CommandContext& context) {
    const std::vector<CorrectionSuggestion> pending =
        openSuggestionStore(arguments, context).pendingSuggestions();
    if (arguments.has("--json")) {
        context.writeJson(Json(pending));
        return;
    }
    std::string lines;
    for (const CorrectionSuggestion& suggestion : pending) {
        lines += suggestion.id + "\t" + suggestion.misrecognition + " → " + suggestion.canonical +
                 (suggestion.reading ? " (" + *suggestion.reading + ")" : "") + "\tseen " +
                 std::to_string(suggestion.count) + "\n";
    }
    if (!lines.empty()) {
        lines.pop_back();
        context.writeText(lines);
    }
}

void runAccept(const ParsedArguments& arguments, CommandContext& context) {
    const std::string id = requiredId(arguments);
    JSONSuggestionStore suggestions = openSuggestionStore(arguments, context);
    for (const CorrectionSuggestion& suggestion : suggestions.pendingSuggestions()) {
        if (suggestion.id == id) {
            const std::filesystem::path file = context.dictionaryFile(arguments);
            const auto dictionary = openDictionaryStore(file);
            dictionary->loadEntries();  // a damaged dictionary fails here, untouched
            suggestions.accept(suggestion, *dictionary);
            return;
        }
    }
    throw Error("no pending suggestion with ID " + *arguments.positional(0));
}

void runReject(const ParsedArguments& arguments, CommandContext& context) {
    openSuggestionStore(arguments, context).reject(requiredId(arguments));
}

}  // namespace

void registerDictionaryCommands(CommandRegistry& registry) {
    registry.add(Command{
        "dictionary list",
        "[--dictionary PATH]",
        "Print the dictionary entries as JSON.",
        ArgumentParser().option("--dictionary"),
        runList,
    });
    registry.add(Command{
        "dictionary add",
        "--canonical T [--reading R]... [--misrecognition M]... [--replacement T] "
        "[--priority N] [--disabled] [--note T] [--dictionary PATH]",
        "Add an entry with a fresh ID (priority 50 unless given) and print it as JSON.",
        ArgumentParser()
            .option("--canonical", true)
            .repeatable("--reading")
            .repeatable("--misrecognition")
            .option("--replacement")
            .option("--priority")
            .flag("--disabled")
            .option("--note")
            .option("--dictionary"),
        runAdd,
    });
    registry.add(Command{
        "dictionary remove",
        "ID [--dictionary PATH]",
        "Remove the entry with this ID.",
        ArgumentParser().option("--dictionary").positionals(1),
        runRemove,
    });
    registry.add(Command{
        "dictionary suggestions",
        "[--json] [--dictionary PATH]",
        "List the entries proposed from your corrections of dictated text (ID, replaced text, "
        "correction, times seen), or as JSON.",
        ArgumentParser().flag("--json").option("--dictionary"),
        runSuggestions,
    });
    registry.add(Command{
        "dictionary accept",
        "ID [--dictionary PATH]",
        "Add the suggestion with this ID to the dictionary (into the entry with its term, if "
        "there is one).",
        ArgumentParser().option("--dictionary").positionals(1),
        runAccept,
    });
    registry.add(Command{
        "dictionary reject",
        "ID [--dictionary PATH]",
        "Dismiss the suggestion with this ID; the same correction is not proposed again.",
        ArgumentParser().option("--dictionary").positionals(1),
        runReject,
    });
}

}  // namespace kelvo::cli
