#pragma once

#include <memory>
#include <optional>

#include "cli/ArgumentParser.h"
#include "cli/Environment.h"
#include "core/models/TextProcessingService.h"
#include "core/models/TranscriptionService.h"

namespace kelvo::cli {

/// The options that send a pipeline's transcription and text processing to a worker instead of
/// the offline services: "--worker URL" and its companions "--token", "--device-token",
/// "--model", "--transcribe-timeout" and "--process-timeout". Tokens may come from the
/// environment (KELVO_WORKER_TOKEN, KELVO_DEVICE_TOKEN) so that they stay out of process
/// listings; the command-line value wins when both are there. Tokens are handed to the client
/// only, never written to any output. Pure functions of their arguments; any thread.
struct WorkerOptions {
    /// Added to the command's usage line.
    static constexpr const char* synopsis =
        "[--worker URL [--token T] [--device-token D] [--model NAME] [--transcribe-timeout SEC] "
        "[--process-timeout SEC]]";
    /// The defaults, for the command's help text.
    static constexpr const char* defaultsText =
        "With --worker URL, audio and text go to that worker (model \"whisper-1\", time limits "
        "120 s to transcribe and 60 s to process unless given; tokens also from "
        "KELVO_WORKER_TOKEN and KELVO_DEVICE_TOKEN).";
    static constexpr const char* defaultModel = "whisper-1";
    static constexpr double defaultTranscribeTimeoutSeconds = 120;
    static constexpr double defaultProcessTimeoutSeconds = 60;

    struct Services {
        std::shared_ptr<TranscriptionService> transcription;
        std::shared_ptr<TextProcessingService> textProcessing;
    };

    static ArgumentParser& declare(ArgumentParser& parser);

    /// The worker-backed services, or nothing without "--worker". Throws UsageError for a
    /// companion option without "--worker", an empty URL and a time limit that is not a number
    /// of seconds above zero.
    static std::optional<Services> services(const ParsedArguments& arguments,
                                            const Environment& environment);
};

}  // namespace kelvo::cli
