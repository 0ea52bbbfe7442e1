#pragma once

#include <string>

#include "core/models/Json.h"
#include "core/models/VoiceInputRequest.h"
#include "core/models/VoiceInputResult.h"

namespace kelvo {

/// One completed dictation, identified by `id`.
struct HistoryItem {
    std::string id;
    Date createdAt;
    VoiceInputRequest request;
    VoiceInputResult result;

    friend bool operator==(const HistoryItem&, const HistoryItem&) = default;
};

inline void to_json(Json& out, const HistoryItem& item) {
    out = Json::object();
    out["id"] = item.id;
    out["createdAt"] = item.createdAt;
    out["request"] = item.request;
    out["result"] = item.result;
}

inline void from_json(const Json& in, HistoryItem& item) {
    item.id = json::uuidMember(in, "id");
    item.createdAt = json::required<Date>(in, "createdAt");
    item.request = json::required<VoiceInputRequest>(in, "request");
    item.result = json::required<VoiceInputResult>(in, "result");
}

}  // namespace kelvo
