#pragma once

#include "core/models/EnumNames.h"

namespace kelvo {

enum class OutputFormat { plainText, markdown, todoList };

template <>
struct EnumNames<OutputFormat> {
    static constexpr const char* typeName = "OutputFormat";
    static constexpr std::array<std::pair<OutputFormat, std::string_view>, 3> cases{{
        {OutputFormat::plainText, "plainText"},
        {OutputFormat::markdown, "markdown"},
        {OutputFormat::todoList, "todoList"},
    }};
};

inline void to_json(Json& out, OutputFormat value) {
    json::encodeByName(out, value);
}
inline void from_json(const Json& in, OutputFormat& value) {
    json::decodeByName(in, value);
}

}  // namespace kelvo
