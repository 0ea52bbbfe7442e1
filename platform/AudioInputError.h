#pragma once

// AudioInputError is what an AudioInput backend throws when the device cannot be started; its
// what() is the backend's own description (for PulseAudio, pa_strerror's text) and passes through
// the capture service to its caller unchanged.

#include "core/support/Error.h"

namespace kelvo::platform {

class AudioInputError : public kelvo::Error {
  public:
    using kelvo::Error::Error;
};

}  // namespace kelvo::platform
