#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/models/Json.h"
#include "core/models/SaveDestinationType.h"

namespace kelvo {

/// The outcome of a save; destinations report failures here instead of throwing.
struct SaveResult {
    bool success = false;
    /// The saved file; stored in JSON as its "file://" URL text.
    std::optional<std::filesystem::path> savedURL;
    SaveDestinationType destinationType = SaveDestinationType::localFolder;
    /// Message when `success` is false.
    std::optional<std::string> error;

    friend bool operator==(const SaveResult&, const SaveResult&) = default;
};

inline void to_json(Json& out, const SaveResult& result) {
    out = Json::object();
    out["success"] = result.success;
    if (result.savedURL) {
        out["savedURL"] = fileUrlString(*result.savedURL);
    }
    out["destinationType"] = result.destinationType;
    json::putOptional(out, "error", result.error);
}

inline void from_json(const Json& in, SaveResult& result) {
    result.success = json::required<bool>(in, "success");
    if (const auto url = json::optional<std::string>(in, "savedURL")) {
        try {
            result.savedURL = pathFromFileUrl(*url);
        } catch (const DecodingError& error) {
            throw DecodingError(std::string("member \"savedURL\": ") + error.what());
        }
    } else {
        result.savedURL.reset();
    }
    result.destinationType = json::required<SaveDestinationType>(in, "destinationType");
    result.error = json::optional<std::string>(in, "error");
}

}  // namespace kelvo
