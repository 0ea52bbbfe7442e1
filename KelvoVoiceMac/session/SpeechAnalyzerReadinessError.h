#pragma once

// SpeechAnalyzerReadinessError is why the model engine could not be made ready for a dictation.
// SpeechService never lets it reach its caller: what() (the exact description) goes into the trace
// line that announces the fallback to the segment recogniser.

#include <cstddef>
#include <string>

#include "core/support/Error.h"
#include "platform/AssetStatus.h"

namespace kelvo::app {

class SpeechAnalyzerReadinessError : public kelvo::Error {
  public:
    enum class Code { localeUnsupported, assetsUnavailable, moduleUnavailable };

    static SpeechAnalyzerReadinessError localeUnsupported(const std::string& locale,
                                                          std::size_t supportedCount);
    static SpeechAnalyzerReadinessError assetsUnavailable(platform::AssetStatus status);
    static SpeechAnalyzerReadinessError moduleUnavailable();

    Code code() const noexcept { return code_; }

  private:
    SpeechAnalyzerReadinessError(Code code, const std::string& description);

    Code code_;
};

}  // namespace kelvo::app
