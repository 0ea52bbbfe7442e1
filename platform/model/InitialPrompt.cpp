#include "platform/model/InitialPrompt.h"

#include <string_view>

namespace kelvo::platform {
namespace {

constexpr std::string_view kSeparator = "、";

}  // namespace

InitialPrompt InitialPrompt::compose(const std::vector<std::string>& strings,
                                     SegmentDecoder& decoder) {
    const std::size_t limit = decoder.promptTokenLimit();
    // One token of the budget goes to the marker that introduces previous text.
    const std::size_t budget = limit > 0 ? limit - 1 : 0;
    InitialPrompt prompt;
    for (auto term = strings.rbegin(); term != strings.rend(); ++term) {
        if (term->empty()) {
            continue;
        }
        std::string candidate =
            prompt.text.empty() ? *term : *term + std::string(kSeparator) + prompt.text;
        if (decoder.promptTokenCount(candidate) > budget) {
            break;
        }
        prompt.text = std::move(candidate);
        ++prompt.keptCount;
    }
    return prompt;
}

}  // namespace kelvo::platform
