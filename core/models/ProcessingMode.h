#pragma once

#include "core/models/EnumNames.h"

namespace kelvo {

enum class ProcessingMode { voiceInput, cleanup, summarize, todo, markdown, translate };

template <>
struct EnumNames<ProcessingMode> {
    static constexpr const char* typeName = "ProcessingMode";
    static constexpr std::array<std::pair<ProcessingMode, std::string_view>, 6> cases{{
        {ProcessingMode::voiceInput, "voiceInput"},
        {ProcessingMode::cleanup, "cleanup"},
        {ProcessingMode::summarize, "summarize"},
        {ProcessingMode::todo, "todo"},
        {ProcessingMode::markdown, "markdown"},
        {ProcessingMode::translate, "translate"},
    }};
};

inline void to_json(Json& out, ProcessingMode value) {
    json::encodeByName(out, value);
}
inline void from_json(const Json& in, ProcessingMode& value) {
    json::decodeByName(in, value);
}

}  // namespace kelvo
