#include <filesystem>
#include <memory>

#include "cli/commands/CommandGroups.h"
#include "cli/commands/DictionaryAccess.h"
#include "cli/commands/WorkerOptions.h"
#include "core/engines/LocalPlaceholderTextProcessingService.h"
#include "core/engines/MockTranscriptionService.h"
#include "core/engines/VoiceInputEngine.h"
#include "core/services/JSONHistoryStore.h"
#include "core/support/DataLocations.h"
#include "core/support/Utf8.h"

namespace kelvo::cli {

namespace {

/// The transcription and text processing the pipeline runs with.
struct PipelineServices {
    std::shared_ptr<TranscriptionService> transcription;
    std::shared_ptr<TextProcessingService> textProcessing;
};

/// Options that choose the pipeline's services. Without any, the pipeline runs offline: the mock
/// transcription and the placeholder processing, so `process` works with no network at all.
/// Options for other services (a worker) are declared here and honoured in selectServices.
ArgumentParser& declareServiceOptions(ArgumentParser& parser) {
    return WorkerOptions::declare(parser);
}

PipelineServices selectServices(const ParsedArguments& arguments, const Environment& environment) {
    if (auto worker = WorkerOptions::services(arguments, environment)) {
        return PipelineServices{std::move(worker->transcription),
                                std::move(worker->textProcessing)};
    }
    return PipelineServices{std::make_shared<MockTranscriptionService>(),
                            std::make_shared<LocalPlaceholderTextProcessingService>()};
}

ArgumentParser processArguments() {
    ArgumentParser parser;
    parser.option("--audio")
        .option("--text")
        .option("--level")
        .option("--mode")
        .option("--format")
        .option("--scope")
        .option("--target-language")
        .option("--dictionary")
        .option("--history");
    return declareServiceOptions(parser);
}

VoiceInputRequest requestFrom(const ParsedArguments& arguments) {
    if (arguments.has("--audio") && arguments.has("--text")) {
        throw UsageError("--audio and --text cannot be used together");
    }
    VoiceInputRequest request;
    if (const auto audio = arguments.value("--audio")) {
        if (audio->empty()) {
            throw UsageError("--audio needs a file name");
        }
        request.audioFileURL = std::filesystem::absolute(*audio).lexically_normal();
    }
    request.rawText = arguments.value("--text");
    request.summaryLevel =
        arguments.enumeration<SummaryLevel>("--level").value_or(SummaryLevel::verbatim);
    request.processingMode =
        arguments.enumeration<ProcessingMode>("--mode").value_or(ProcessingMode::voiceInput);
    request.outputFormat =
        arguments.enumeration<OutputFormat>("--format").value_or(OutputFormat::plainText);
    request.dictionaryScope =
        arguments.enumeration<DictionaryScope>("--scope").value_or(DictionaryScope::all);
    request.targetLanguage = arguments.value("--target-language");
    return request;
}

void runProcess(const ParsedArguments& arguments, CommandContext& context) {
    const VoiceInputRequest request = requestFrom(arguments);
    const PipelineServices services = selectServices(arguments, context.environment());
    const std::filesystem::path historyFile = context.historyFile(arguments);
    // Load the dictionary before touching the history folder: a broken dictionary then fails the
    // command with nothing written anywhere.
    auto dictionary = openCorrectionEngine(context.dictionaryFile(arguments));
    createParentFolder(historyFile);
    std::ostream& diagnostics = context.diagnostics();
    auto history = std::make_shared<JSONHistoryStore>(
        historyFile,
        [&diagnostics](const std::filesystem::path& damaged, const std::filesystem::path& movedTo,
                       const std::string& reason) {
            diagnostics << "kelvo: the history " << visibleText(damaged.string())
                        << " could not be read (" << visibleText(reason, 300)
                        << "); it was moved to " << visibleText(movedTo.string())
                        << " and a new history was started\n";
        });
    VoiceInputEngine engine(services.transcription, services.textProcessing, std::move(dictionary),
                            std::move(history));
    context.writeJson(Json(engine.process(request)));
}

}  // namespace

void registerProcessCommand(CommandRegistry& registry) {
    registry.add(Command{
        "process",
        std::string("[--audio FILE | --text TEXT] [--level L] [--mode M] [--format F] [--scope S] "
                    "[--target-language X] [--dictionary PATH] [--history PATH] ") +
            WorkerOptions::synopsis,
        std::string("Run the voice input pipeline, print the result as JSON and record it in the "
                    "history. Offline unless --worker is given. ") +
            WorkerOptions::defaultsText,
        processArguments(),
        runProcess,
    });
}

}  // namespace kelvo::cli
