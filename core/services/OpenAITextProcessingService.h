#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/models/ProcessingMode.h"
#include "core/models/SummaryLevel.h"
#include "core/models/TextProcessingService.h"
#include "core/services/WorkerAPIClient.h"

namespace kelvo {

/// `TextProcessingService` over the worker: maps the request's level and mode to the worker's
/// wire words and returns the worker's text unchanged. Errors of the client pass through
/// unchanged. A plain value with no mutable state; callable from any thread.
class OpenAITextProcessingService : public TextProcessingService {
  public:
    explicit OpenAITextProcessingService(std::shared_ptr<const WorkerAPIClient> client)
        : client(std::move(client)) {}

    std::string process(const TextProcessingRequest& request) override;

    std::shared_ptr<const WorkerAPIClient> client;
};

}  // namespace kelvo
