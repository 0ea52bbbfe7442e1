#include "KelvoVoiceMac/session/SpeechAnalyzerReadinessError.h"

namespace kelvo::app {

SpeechAnalyzerReadinessError::SpeechAnalyzerReadinessError(Code code,
                                                           const std::string& description)
    : kelvo::Error(description), code_(code) {}

SpeechAnalyzerReadinessError SpeechAnalyzerReadinessError::localeUnsupported(
    const std::string& locale, std::size_t supportedCount) {
    return SpeechAnalyzerReadinessError(
        Code::localeUnsupported, "SpeechTranscriber does not support locale " + locale +
                                     " (supportedCount=" + std::to_string(supportedCount) + ")");
}

SpeechAnalyzerReadinessError SpeechAnalyzerReadinessError::assetsUnavailable(
    platform::AssetStatus status) {
    return SpeechAnalyzerReadinessError(
        Code::assetsUnavailable,
        "SpeechTranscriber assets are not installed after request (status=" +
            std::string(platform::assetStatusName(status)) + ")");
}

SpeechAnalyzerReadinessError SpeechAnalyzerReadinessError::moduleUnavailable() {
    return SpeechAnalyzerReadinessError(Code::moduleUnavailable,
                                        "SpeechTranscriber is not available on this device");
}

}  // namespace kelvo::app
