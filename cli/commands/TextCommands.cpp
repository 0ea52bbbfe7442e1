#include "cli/commands/CommandGroups.h"
#include "core/engines/FillerRemovalEngine.h"
#include "core/engines/MarkdownFormatter.h"
#include "core/engines/PromptBuilder.h"
#include "core/engines/TextNormalizer.h"

namespace kelvo::cli {

namespace {

void runFillers(const ParsedArguments& arguments, CommandContext& context) {
    context.writeText(FillerRemovalEngine().removeFillers(context.textArgument(arguments)));
}

void runNormalize(const ParsedArguments& arguments, CommandContext& context) {
    context.writeText(TextNormalizer::normalize(context.textArgument(arguments)));
}

void runPrompt(const ParsedArguments& arguments, CommandContext& context) {
    const auto level = arguments.enumeration<SummaryLevel>("--level");
    const auto mode = arguments.enumeration<ProcessingMode>("--mode");
    context.writeText(PromptBuilder::buildSystemPrompt(*level, *mode, arguments.values("--hint")));
}

void runTodo(const ParsedArguments& arguments, CommandContext& context) {
    context.writeText(MarkdownFormatter().todoList(context.textArgument(arguments)));
}

}  // namespace

void registerTextCommands(CommandRegistry& registry) {
    registry.add(Command{
        "fillers",
        "[TEXT]",
        "Remove Japanese filler words from TEXT.",
        ArgumentParser().positionals(1),
        runFillers,
    });
    registry.add(Command{
        "normalize",
        "[TEXT]",
        "Fold full-width ASCII and ideographic spaces, trim and collapse spaces.",
        ArgumentParser().positionals(1),
        runNormalize,
    });
    registry.add(Command{
        "prompt",
        "--level L --mode M [--hint H]...",
        "Print the system prompt for a summary level and processing mode.",
        ArgumentParser().option("--level", true).option("--mode", true).repeatable("--hint"),
        runPrompt,
    });
    registry.add(Command{
        "todo",
        "[TEXT]",
        "Turn the lines of TEXT into a Markdown todo list.",
        ArgumentParser().positionals(1),
        runTodo,
    });
}

}  // namespace kelvo::cli
