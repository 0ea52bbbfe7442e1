#pragma once

#include <string>

#include "core/models/TextProcessingRequest.h"

namespace kelvo {

/// Reworks a transcript by summary level and mode. Blocks; throws the service's own errors.
class TextProcessingService {
public:
    virtual ~TextProcessingService() = default;
    /// The processed text.
    virtual std::string process(const TextProcessingRequest& request) = 0;
};

}  // namespace kelvo
