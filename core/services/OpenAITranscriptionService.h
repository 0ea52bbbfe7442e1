#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "core/models/TranscriptionService.h"
#include "core/services/WorkerAPIClient.h"

namespace kelvo {

/// `TranscriptionService` over the worker: turns a `TranscriptionContext` into the worker's
/// form fields (the dictionary hints ride in the prompt) and the worker's answer into a
/// `TranscriptionResult`. Errors of the client pass through unchanged. A plain value; `model`
/// may be changed between calls, but not while a call on the same object is running.
class OpenAITranscriptionService : public TranscriptionService {
  public:
    OpenAITranscriptionService(std::shared_ptr<const WorkerAPIClient> client, std::string model)
        : client(std::move(client)), model(std::move(model)) {}

    TranscriptionResult transcribe(const std::filesystem::path& audioFileURL,
                                   const TranscriptionContext& context) override;

    /// The prompt sent with `context`: the prompt followed by the hints joined with ", ", trimmed
    /// of spaces and tabs at both ends; nothing when there are neither hints nor a prompt.
    static std::optional<std::string> promptFor(const TranscriptionContext& context);

    std::shared_ptr<const WorkerAPIClient> client;
    /// Sent in the "model" field; the deployment chooses it.
    std::string model;
};

}  // namespace kelvo
