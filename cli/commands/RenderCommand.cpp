#include "cli/commands/CommandGroups.h"
#include "cli/commands/JsonInput.h"
#include "core/engines/MarkdownFormatter.h"

namespace kelvo::cli {

namespace {

void runRender(const ParsedArguments& arguments, CommandContext& context) {
    const auto result = decodeStandardInput<VoiceInputResult>(context, "a VoiceInputResult");
    const std::vector<std::string> tags = arguments.values("--tag");
    const MarkdownFormatter formatter;
    const MarkdownDocument document = arguments.has("--simple")
                                          ? formatter.makeSimpleDocument(result, tags)
                                          : formatter.makeDocument(result, tags);
    context.writeText(formatter.render(document));
}

}  // namespace

void registerRenderCommand(CommandRegistry& registry) {
    registry.add(Command{
        "render",
        "[--simple] [--tag T]...",
        "Read a VoiceInputResult as JSON on standard input and print it as a Markdown note.",
        ArgumentParser().flag("--simple").repeatable("--tag"),
        runRender,
    });
}

}  // namespace kelvo::cli
