#pragma once

#include "core/models/EnumNames.h"

namespace kelvo {

/// How far a transcript is reworked. Stored as its integer index (0 = verbatim ... 6 = translate),
/// unlike the other enumerations, which are stored by name.
enum class SummaryLevel { verbatim, cleanup, concise, summarize, bulletsOrTodo, trim, translate };

template <>
struct EnumNames<SummaryLevel> {
    static constexpr const char* typeName = "SummaryLevel";
    static constexpr std::array<std::pair<SummaryLevel, std::string_view>, 7> cases{{
        {SummaryLevel::verbatim, "verbatim"},
        {SummaryLevel::cleanup, "cleanup"},
        {SummaryLevel::concise, "concise"},
        {SummaryLevel::summarize, "summarize"},
        {SummaryLevel::bulletsOrTodo, "bulletsOrTodo"},
        {SummaryLevel::trim, "trim"},
        {SummaryLevel::translate, "translate"},
    }};
};

/// How a level is named outside the application — in the worker's requests and in a note's front
/// matter. Neither knows a separate trim level, so `trim` goes out as "verbatim" (it keeps the
/// wording), and `bulletsOrTodo` is shortened to "bullets".
constexpr std::string_view summaryLevelWord(SummaryLevel level) noexcept {
    switch (level) {
        case SummaryLevel::bulletsOrTodo:
            return "bullets";
        case SummaryLevel::trim:
            return "verbatim";
        default:
            return enumName(level);
    }
}

inline void to_json(Json& out, SummaryLevel value) {
    out = static_cast<std::int64_t>(value);
}

inline void from_json(const Json& in, SummaryLevel& value) {
    const std::int64_t index = json::Decode<std::int64_t>::from(in);
    if (index < 0 || index >= static_cast<std::int64_t>(EnumNames<SummaryLevel>::cases.size())) {
        throw DecodingError(std::to_string(index) + " is not a SummaryLevel");
    }
    value = static_cast<SummaryLevel>(index);
}

}  // namespace kelvo
