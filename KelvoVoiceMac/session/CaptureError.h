#pragma once

// CaptureError is what AudioCaptureService::start() throws when the microphone cannot be opened
// for a dictation; what() is the description shown to and logged for the user.

#include <string>

#include "core/support/Error.h"

namespace kelvo::app {

class CaptureError : public kelvo::Error {
  public:
    enum class Code { microphonePermissionDenied, alreadyRecording, inputFormatUnavailable };

    explicit CaptureError(Code code);

    Code code() const noexcept { return code_; }

    static std::string description(Code code);

  private:
    Code code_;
};

}  // namespace kelvo::app
