#include "core/engines/MockTranscriptionService.h"

namespace kelvo {

TranscriptionResult MockTranscriptionService::transcribe(const std::filesystem::path&,
                                                         const TranscriptionContext&) {
    return TranscriptionResult{kText, kLanguage, kDurationSeconds};
}

}  // namespace kelvo
