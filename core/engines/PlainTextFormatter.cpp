#include "core/engines/PlainTextFormatter.h"

namespace kelvo {

std::string PlainTextFormatter::format(const VoiceInputResult& result) {
    return result.finalText;
}

}  // namespace kelvo
