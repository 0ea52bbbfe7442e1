#pragma once

#include <string>

#include "core/models/TextProcessingService.h"

namespace kelvo {

/// Stands in for a text processing worker when the pipeline runs offline: returns the text as it
/// is, whatever level, mode, hints or target language are asked for. Stateless; never fails.
class LocalPlaceholderTextProcessingService : public TextProcessingService {
  public:
    std::string process(const TextProcessingRequest& request) override;
};

}  // namespace kelvo
