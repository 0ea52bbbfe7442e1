#pragma once

#include <optional>
#include <string>

#include "core/models/Json.h"
#include "core/models/OverwritePolicy.h"

namespace kelvo {

/// Where and how to save a document.
struct SaveRequest {
    std::string destinationID;
    std::string fileName;
    /// Folder below the destination root.
    std::optional<std::string> subpath;
    OverwritePolicy overwritePolicy = OverwritePolicy::createNew;
    bool openAfterSave = false;

    friend bool operator==(const SaveRequest&, const SaveRequest&) = default;
};

inline void to_json(Json& out, const SaveRequest& request) {
    out = Json::object();
    out["destinationID"] = request.destinationID;
    out["fileName"] = request.fileName;
    json::putOptional(out, "subpath", request.subpath);
    out["overwritePolicy"] = request.overwritePolicy;
    out["openAfterSave"] = request.openAfterSave;
}

inline void from_json(const Json& in, SaveRequest& request) {
    request.destinationID = json::uuidMember(in, "destinationID");
    request.fileName = json::required<std::string>(in, "fileName");
    request.subpath = json::optional<std::string>(in, "subpath");
    request.overwritePolicy = json::required<OverwritePolicy>(in, "overwritePolicy");
    request.openAfterSave = json::required<bool>(in, "openAfterSave");
}

}  // namespace kelvo
