#pragma once

// ModelEngine is the seam to the on-device model recogniser (the part of the system that the
// Speech framework's SpeechAnalyzer, SpeechTranscriber and AssetInventory play on macOS; on Linux
// WhisperTranscriber with its model files under $XDG_DATA_HOME/KelvoVoiceMac/models). It answers
// whether the engine exists at all, which locales it supports and has installed, what state the
// assets of a locale are in and how to install them, and makes one ModelTranscriber per dictation.
// Locales are BCP 47 identifiers ("ja-JP"). Every operation may block on disk or network, so
// SpeechService calls them on a worker thread; implementations must allow calls from any thread,
// one at a time. Failing operations throw SpeechEngineError.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/AssetStatus.h"

namespace kelvo::platform {

class AssetInstallationRequest;
class ModelTranscriber;

class ModelEngine {
  public:
    virtual ~ModelEngine() = default;

    // False when this build or device has no model engine at all (whisper.cpp not built in).
    virtual bool isAvailable() = 0;

    virtual std::vector<std::string> supportedLocales() = 0;

    // The supported locale that serves locale ("ja" for "ja-JP", say), or std::nullopt.
    virtual std::optional<std::string> supportedLocaleEquivalent(const std::string& locale) = 0;

    virtual std::vector<std::string> installedLocales() = 0;

    // A transcriber for a supported locale that delivers volatile partial results followed by
    // final ones. Cheap: model files are loaded by ModelTranscriber::prepare().
    virtual std::unique_ptr<ModelTranscriber> makeTranscriber(const std::string& locale) = 0;

    virtual AssetStatus assetStatus(const ModelTranscriber& transcriber) = 0;

    // A request that installs the transcriber's assets, or nullptr when there is nothing to
    // install from (no known source, or already installed).
    virtual std::unique_ptr<AssetInstallationRequest> assetInstallationRequest(
        const ModelTranscriber& transcriber) = 0;
};

}  // namespace kelvo::platform
