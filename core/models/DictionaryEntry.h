#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/models/Json.h"

namespace kelvo {

/// One term of the user dictionary, identified by `id` (upper-case UUID text).
struct DictionaryEntry {
    std::string id;
    /// The term as it must be written.
    std::string canonicalText;
    /// Spellings (e.g. kana) that recognition may produce for the term.
    std::vector<std::string> readings;
    /// Wrong spellings recognition is known to produce.
    std::vector<std::string> commonMisrecognitions;
    /// What a match becomes; empty means `canonicalText`.
    std::string replacementText;
    /// Higher numbers are applied first.
    std::int64_t priority = 0;
    bool enabled = true;
    std::optional<std::string> note;

    friend bool operator==(const DictionaryEntry&, const DictionaryEntry&) = default;
};

inline void to_json(Json& out, const DictionaryEntry& entry) {
    out = Json::object();
    out["id"] = entry.id;
    out["canonicalText"] = entry.canonicalText;
    out["readings"] = entry.readings;
    out["commonMisrecognitions"] = entry.commonMisrecognitions;
    out["replacementText"] = entry.replacementText;
    out["priority"] = entry.priority;
    out["enabled"] = entry.enabled;
    json::putOptional(out, "note", entry.note);
}

inline void from_json(const Json& in, DictionaryEntry& entry) {
    entry.id = json::uuidMember(in, "id");
    entry.canonicalText = json::required<std::string>(in, "canonicalText");
    entry.readings = json::required<std::vector<std::string>>(in, "readings");
    entry.commonMisrecognitions =
        json::required<std::vector<std::string>>(in, "commonMisrecognitions");
    entry.replacementText = json::required<std::string>(in, "replacementText");
    entry.priority = json::required<std::int64_t>(in, "priority");
    entry.enabled = json::required<bool>(in, "enabled");
    entry.note = json::optional<std::string>(in, "note");
}

}  // namespace kelvo
