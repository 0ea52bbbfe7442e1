#pragma once

#include "core/models/EnumNames.h"

namespace kelvo {

enum class SaveDestinationType {
    localFolder,
    obsidianVault,
    notion,
    supabaseStorage,
    cloudflareR2,
    cloudflareD1
};

template <>
struct EnumNames<SaveDestinationType> {
    static constexpr const char* typeName = "SaveDestinationType";
    static constexpr std::array<std::pair<SaveDestinationType, std::string_view>, 6> cases{{
        {SaveDestinationType::localFolder, "localFolder"},
        {SaveDestinationType::obsidianVault, "obsidianVault"},
        {SaveDestinationType::notion, "notion"},
        {SaveDestinationType::supabaseStorage, "supabaseStorage"},
        {SaveDestinationType::cloudflareR2, "cloudflareR2"},
        {SaveDestinationType::cloudflareD1, "cloudflareD1"},
    }};
};

inline void to_json(Json& out, SaveDestinationType value) {
    json::encodeByName(out, value);
}
inline void from_json(const Json& in, SaveDestinationType& value) {
    json::decodeByName(in, value);
}

}  // namespace kelvo
