#include "cli/commands/CommandGroups.h"
#include "core/services/JSONHistoryStore.h"

namespace kelvo::cli {

namespace {

constexpr std::uint64_t kDefaultHistoryLimit = 20;

void runHistory(const ParsedArguments& arguments, CommandContext& context) {
    const std::uint64_t limit = arguments.count("--limit").value_or(kDefaultHistoryLimit);
    JSONHistoryStore store(context.historyFile(arguments));
    context.writeJson(Json(store.recentItems(static_cast<std::size_t>(limit))));
}

}  // namespace

void registerHistoryCommand(CommandRegistry& registry) {
    registry.add(Command{
        "history",
        "[--history PATH] [--limit N]",
        "Print the most recent history items (20 unless --limit says otherwise) as JSON.",
        ArgumentParser().option("--history").option("--limit"),
        runHistory,
    });
}

}  // namespace kelvo::cli
