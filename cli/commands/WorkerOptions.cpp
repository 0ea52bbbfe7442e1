#include "cli/commands/WorkerOptions.h"

#include <charconv>
#include <cmath>
#include <string>

#include "core/services/OpenAITextProcessingService.h"
#include "core/services/OpenAITranscriptionService.h"
#include "core/services/WorkerAPIClient.h"

namespace kelvo::cli {
namespace {

constexpr const char* kCompanions[] = {"--token", "--device-token", "--model",
                                       "--transcribe-timeout", "--process-timeout"};

double secondsOption(const ParsedArguments& arguments, const char* name, double fallback) {
    const auto text = arguments.value(name);
    if (!text) {
        return fallback;
    }
    double seconds = 0;
    const char* const end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, seconds);
    if (text->empty() || error != std::errc() || stop != end || !std::isfinite(seconds) ||
        seconds <= 0) {
        throw UsageError("invalid value '" + *text + "' for " + name +
                         " (expected a number of seconds above zero)");
    }
    return seconds;
}

}  // namespace

ArgumentParser& WorkerOptions::declare(ArgumentParser& parser) {
    parser.option("--worker");
    for (const char* name : kCompanions) {
        parser.option(name);
    }
    return parser;
}

std::optional<WorkerOptions::Services> WorkerOptions::services(const ParsedArguments& arguments,
                                                               const Environment& environment) {
    const auto url = arguments.value("--worker");
    if (!url) {
        for (const char* name : kCompanions) {
            if (arguments.has(name)) {
                throw UsageError(std::string(name) + " needs --worker");
            }
        }
        return std::nullopt;
    }
    if (url->empty()) {
        throw UsageError("--worker needs a URL");
    }
    const double transcribeTimeout =
        secondsOption(arguments, "--transcribe-timeout", defaultTranscribeTimeoutSeconds);
    const double processTimeout =
        secondsOption(arguments, "--process-timeout", defaultProcessTimeoutSeconds);
    // The command line wins over the environment; the environment keeps tokens out of `ps`.
    auto authToken = arguments.value("--token");
    if (!authToken) {
        authToken = environment.get("KELVO_WORKER_TOKEN");
    }
    auto deviceToken = arguments.value("--device-token");
    if (!deviceToken) {
        deviceToken = environment.get("KELVO_DEVICE_TOKEN");
    }

    const auto client = std::make_shared<const WorkerAPIClient>(
        *url, authToken.value_or(""), std::move(deviceToken), transcribeTimeout, processTimeout);
    return Services{std::make_shared<OpenAITranscriptionService>(
                        client, arguments.value("--model").value_or(defaultModel)),
                    std::make_shared<OpenAITextProcessingService>(client)};
}

}  // namespace kelvo::cli
