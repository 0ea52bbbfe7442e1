#pragma once

#include "core/models/EnumNames.h"

namespace kelvo {

enum class DictionaryScope { all, userOnly, disabled };

template <>
struct EnumNames<DictionaryScope> {
    static constexpr const char* typeName = "DictionaryScope";
    static constexpr std::array<std::pair<DictionaryScope, std::string_view>, 3> cases{{
        {DictionaryScope::all, "all"},
        {DictionaryScope::userOnly, "userOnly"},
        {DictionaryScope::disabled, "disabled"},
    }};
};

inline void to_json(Json& out, DictionaryScope value) {
    json::encodeByName(out, value);
}
inline void from_json(const Json& in, DictionaryScope& value) {
    json::decodeByName(in, value);
}

}  // namespace kelvo
