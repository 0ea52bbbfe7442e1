#pragma once

// SpeechEngineError is what the speech seams (ModelEngine, ModelTranscriber,
// AssetInstallationRequest) throw from their failing operations: a model file that cannot be
// loaded, a download that fails, hints the engine refuses. what() is the engine's own description;
// SpeechService prints it in its trace lines as it is.

#include "core/support/Error.h"

namespace kelvo::platform {

class SpeechEngineError : public kelvo::Error {
  public:
    using kelvo::Error::Error;
};

}  // namespace kelvo::platform
