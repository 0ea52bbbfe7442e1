#pragma once

#include <string>

#include "core/models/VoiceInputResult.h"

namespace kelvo {

/// The plain-text form of a pipeline result. Stateless; safe on any thread.
class PlainTextFormatter {
  public:
    /// The final text exactly as the pipeline produced it.
    static std::string format(const VoiceInputResult& result);
};

}  // namespace kelvo
