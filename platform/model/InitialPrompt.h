#pragma once

// InitialPrompt turns the dictation's contextual strings (hint terms, oldest first) into the
// decoder's initial prompt. whisper reads at most half its text context as prompt and, given
// more, silently keeps the last tokens, cutting the first term in two. Here whole terms are
// chosen instead: the newest terms that fit the decoder's limit, in their original order, joined
// with "、". `keptCount` says how many made it, so the caller can report the rest. Plain value.

#include <cstddef>
#include <string>
#include <vector>

#include "platform/model/SegmentDecoder.h"

namespace kelvo::platform {

struct InitialPrompt {
    std::string text;
    std::size_t keptCount = 0;

    static InitialPrompt compose(const std::vector<std::string>& strings, SegmentDecoder& decoder);
};

}  // namespace kelvo::platform
