#pragma once

// AudioSourceInfo describes one audio input the user can pick: `name` is what the capture backend
// is given (a PulseAudio source name), `description` what the user is shown. A plain value.

#include <string>

namespace kelvo::platform {

struct AudioSourceInfo {
    std::string name;
    std::string description;

    friend bool operator==(const AudioSourceInfo&, const AudioSourceInfo&) = default;
};

}  // namespace kelvo::platform
