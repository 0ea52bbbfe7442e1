#pragma once

#include <filesystem>

#include "core/models/TranscriptionContext.h"
#include "core/models/TranscriptionResult.h"

namespace kelvo {

/// Turns a recorded audio file into text. Blocks until the transcript is there; throws the
/// service's own errors.
class TranscriptionService {
public:
    virtual ~TranscriptionService() = default;
    virtual TranscriptionResult transcribe(const std::filesystem::path& audioFileURL,
                                           const TranscriptionContext& context) = 0;
};

}  // namespace kelvo
