#include "core/engines/LocalPlaceholderTextProcessingService.h"

namespace kelvo {

std::string LocalPlaceholderTextProcessingService::process(const TextProcessingRequest& request) {
    return request.text;
}

}  // namespace kelvo
