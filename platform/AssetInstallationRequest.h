#pragma once

// AssetInstallationRequest is one pending installation of model assets handed out by a
// ModelEngine's asset inventory (for whisper.cpp: a verified copy of the model file into
// $XDG_DATA_HOME/KelvoVoiceMac/models). fractionCompleted() may be read at any time from any
// thread; downloadAndInstall() blocks the calling worker thread until the assets are in place and
// throws SpeechEngineError when they cannot be. Owned by the caller; one installation per request.

namespace kelvo::platform {

class AssetInstallationRequest {
  public:
    virtual ~AssetInstallationRequest() = default;

    // Progress of the installation, 0.0 to 1.0.
    virtual double fractionCompleted() const = 0;

    virtual void downloadAndInstall() = 0;
};

}  // namespace kelvo::platform
