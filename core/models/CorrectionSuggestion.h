#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/models/Json.h"

namespace kelvo {

/// A dictionary entry proposed from a correction the user made to dictated text: the text the
/// user replaced (`misrecognition`) and what they typed in its place (`canonical`), with the kana
/// side as `reading` when one side is kana and the other kanji. Identified by `id` (upper-case
/// UUID text). `count` is how often the same correction was seen; a `rejected` suggestion stays
/// in the file only so that the same correction is never proposed again.
struct CorrectionSuggestion {
    std::string id;
    std::string misrecognition;
    std::string canonical;
    std::optional<std::string> reading;
    std::int64_t count = 1;
    bool rejected = false;
    /// The dictionary entry with this canonical term when the correction was seen, if any:
    /// accepting adds to that entry rather than making a new one.
    std::optional<std::string> entryID;

    friend bool operator==(const CorrectionSuggestion&, const CorrectionSuggestion&) = default;
};

inline void to_json(Json& out, const CorrectionSuggestion& suggestion) {
    out = Json::object();
    out["id"] = suggestion.id;
    out["misrecognition"] = suggestion.misrecognition;
    out["canonical"] = suggestion.canonical;
    json::putOptional(out, "reading", suggestion.reading);
    out["count"] = suggestion.count;
    out["status"] = suggestion.rejected ? "rejected" : "pending";
    json::putOptional(out, "entryID", suggestion.entryID);
}

inline void from_json(const Json& in, CorrectionSuggestion& suggestion) {
    suggestion.id = json::uuidMember(in, "id");
    suggestion.misrecognition = json::required<std::string>(in, "misrecognition");
    suggestion.canonical = json::required<std::string>(in, "canonical");
    suggestion.reading = json::optional<std::string>(in, "reading");
    suggestion.count = json::required<std::int64_t>(in, "count");
    const std::string status = json::required<std::string>(in, "status");
    if (status != "pending" && status != "rejected") {
        throw DecodingError("member \"status\": expected \"pending\" or \"rejected\", found \"" +
                            status + "\"");
    }
    suggestion.rejected = status == "rejected";
    suggestion.entryID = json::optional<std::string>(in, "entryID");
}

}  // namespace kelvo
