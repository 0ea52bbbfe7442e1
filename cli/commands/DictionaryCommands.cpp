#include <algorithm>

#include "cli/commands/CommandGroups.h"
#include "cli/commands/DictionaryAccess.h"
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
}

}  // namespace kelvo::cli
