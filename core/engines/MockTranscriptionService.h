#pragma once

#include <filesystem>

#include "core/models/TranscriptionService.h"

namespace kelvo {

/// Stands in for a transcription worker: ignores the file (which need not exist) and the context
/// and returns the same Japanese sentence every time. Stateless; never fails.
class MockTranscriptionService : public TranscriptionService {
  public:
    static constexpr const char* kText =
        "これはテスト用の音声テキストです。KelvoVoiceの音声認識モックです。";
    static constexpr const char* kLanguage = "ja";
    static constexpr double kDurationSeconds = 3.5;

    TranscriptionResult transcribe(const std::filesystem::path& audioFileURL,
                                   const TranscriptionContext& context) override;
};

}  // namespace kelvo
