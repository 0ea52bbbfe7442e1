#pragma once

#include "core/models/EnumNames.h"

namespace kelvo {

enum class OverwritePolicy { createNew, overwrite, appendTimestamp };

template <>
struct EnumNames<OverwritePolicy> {
    static constexpr const char* typeName = "OverwritePolicy";
    static constexpr std::array<std::pair<OverwritePolicy, std::string_view>, 3> cases{{
        {OverwritePolicy::createNew, "createNew"},
        {OverwritePolicy::overwrite, "overwrite"},
        {OverwritePolicy::appendTimestamp, "appendTimestamp"},
    }};
};

inline void to_json(Json& out, OverwritePolicy value) {
    json::encodeByName(out, value);
}
inline void from_json(const Json& in, OverwritePolicy& value) {
    json::decodeByName(in, value);
}

}  // namespace kelvo
