#pragma once

#include <map>
#include <string>
#include <vector>

#include "core/models/FrontmatterValue.h"
#include "core/models/Json.h"

namespace kelvo {

/// A formatted note: front matter, tags and Markdown body.
struct MarkdownDocument {
    std::string title;
    std::string body;
    /// Ordered by key in code-point order (byte order of UTF-8), the order notes are written in.
    std::map<std::string, FrontmatterValue> frontmatter;
    std::vector<std::string> tags;
    Date createdAt;

    friend bool operator==(const MarkdownDocument&, const MarkdownDocument&) = default;
};

inline void to_json(Json& out, const MarkdownDocument& document) {
    out = Json::object();
    out["title"] = document.title;
    out["body"] = document.body;
    Json frontmatter = Json::object();
    for (const auto& [key, value] : document.frontmatter) {
        frontmatter[key] = value;
    }
    out["frontmatter"] = std::move(frontmatter);
    out["tags"] = document.tags;
    out["createdAt"] = document.createdAt;
}

inline void from_json(const Json& in, MarkdownDocument& document) {
    document.title = json::required<std::string>(in, "title");
    document.body = json::required<std::string>(in, "body");
    const Json frontmatter = json::required<Json>(in, "frontmatter");
    json::requireObject(frontmatter);
    document.frontmatter.clear();
    for (const auto& [key, value] : frontmatter.items()) {
        try {
            document.frontmatter[key] = json::Decode<FrontmatterValue>::from(value);
        } catch (const DecodingError& error) {
            throw DecodingError("member \"frontmatter\": key \"" + key + "\": " + error.what());
        }
    }
    document.tags = json::required<std::vector<std::string>>(in, "tags");
    document.createdAt = json::required<Date>(in, "createdAt");
}

}  // namespace kelvo
