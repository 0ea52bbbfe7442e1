#include "KelvoVoiceMac/session/CaptureError.h"

namespace kelvo::app {

CaptureError::CaptureError(Code code) : kelvo::Error(description(code)), code_(code) {}

std::string CaptureError::description(Code code) {
    switch (code) {
        case Code::microphonePermissionDenied:
            return "Microphone permission denied";
        case Code::alreadyRecording:
            return "Already recording";
        case Code::inputFormatUnavailable:
            break;
    }
    return "Input format unavailable";
}

}  // namespace kelvo::app
