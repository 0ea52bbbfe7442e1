#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kelvo {

/// One note read from a vault by VaultBrowser: its text and the parts a notes screen shows.
struct VaultFile {
    /// The whole file as read (UTF-8).
    std::string content;
    /// The "---" front matter's key/value pairs in file order, values as written apart from
    /// trimming (quotes are kept).
    std::vector<std::pair<std::string, std::string>> frontmatter;
    /// The text after the front matter (the whole content when there is none).
    std::string body;
    /// "[[target]]" link targets, aliases dropped, in order of first appearance, each once.
    std::vector<std::string> wikiLinks;

    friend bool operator==(const VaultFile&, const VaultFile&) = default;
};

}  // namespace kelvo
