// A note read from the vault: front matter and wiki links, from any text. Contract: reading never
// fails (whatever the text, a note comes back), its parts are consistent with the text, and a
// note our writers produced (the save adapter's file and the formatter's rendering, for the same
// bytes taken as the dictated text) reads back with the values they wrote, each on its own line
// whatever it holds (line breaks, "---", quotes), and a text value, unquoted (and decoded when it
// held a line break or another control character), is the text itself.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "core/engines/MarkdownFormatter.h"
#include "core/models/Json.h"
#include "core/services/LocalFolderSaveAdapter.h"
#include "core/services/VaultBrowser.h"
#include "core/support/Unicode.h"
#include "core/support/Utf8.h"
#include "fuzz/FuzzCheck.h"

namespace {

using namespace kelvo;
using Pairs = std::vector<std::pair<std::string, std::string>>;

bool hasLineBreak(std::string_view text) {
    return text.find_first_of("\r\n") != std::string_view::npos;
}

// The body as the reader hands it back: CR LF and lone CR become LF.
std::string withLineFeeds(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            out += '\n';
            if (i + 1 < text.size() && text[i + 1] == '\n') {
                ++i;
            }
        } else {
            out += text[i];
        }
    }
    return out;
}

void checkRead(const std::string& content) {
    VaultFile file;
    fuzz::mustNotFail("reading a note failed", [&] { file = VaultBrowser::parse(content); });
    fuzz::check(file.content == content, "the note's content is not the text read");
    fuzz::check(file.wikiLinks == VaultBrowser::wikiLinks(content), "links differ from the text's");
    std::unordered_set<std::string> seen;
    for (const std::string& link : file.wikiLinks) {
        fuzz::check(!link.empty() && link.find_first_of("]|") == std::string::npos,
                    "a link target holds its own delimiters", link);
        fuzz::check(unicode::trimWhitespaceAndNewlines(link) == link, "an untrimmed link", link);
        fuzz::check(seen.insert(link).second, "a link listed twice", link);
        fuzz::check(content.find(link) != std::string::npos, "a link not in the text", link);
    }
    if (!content.starts_with("---")) {
        fuzz::check(file.frontmatter.empty() && file.body == content,
                    "front matter found without a \"---\" line");
    }
    for (const auto& [key, value] : file.frontmatter) {
        fuzz::check(
            key.find(':') == std::string::npos && !hasLineBreak(key) && !hasLineBreak(value),
            "a front matter pair spans lines or keeps its colon", key);
    }
    fuzz::check(file.body.size() <= content.size(), "the body is longer than the note");
}

// What the reader must find in a written note: each entry with its value as written (a list is
// laid out on the following lines, which carry no key), then the tags line.
Pairs expectedPairs(const MarkdownDocument& document, std::string tagsValue) {
    Pairs pairs;
    for (const auto& [key, value] : document.frontmatter) {
        pairs.emplace_back(key, value.scalarText().value_or(""));
    }
    if (!document.tags.empty()) {
        pairs.emplace_back("tags", std::move(tagsValue));
    }
    return pairs;
}

// Whether the writers escape `text`: when it holds a line break or another control character.
bool escaped(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20; }) ||
           text.find("\u0085") != std::string_view::npos ||
           text.find("\u2028") != std::string_view::npos ||
           text.find("\u2029") != std::string_view::npos;
}

// A text value as read back: an escaped one decodes as a JSON string, any other is quoted as is.
std::string unquoted(const std::string& value, bool wasEscaped) {
    return wasEscaped ? Json::parse(value).get<std::string>() : value.substr(1, value.size() - 2);
}

void checkWrittenNote(const MarkdownDocument& document) {
    const VaultFile saved = VaultBrowser::parse(LocalFolderSaveAdapter::fileText(document));
    const VaultFile rendered = VaultBrowser::parse(MarkdownFormatter::render(document));
    for (const auto& [key, value] : saved.frontmatter) {
        if (const auto found = document.frontmatter.find(key);
            found != document.frontmatter.end()) {
            // A note is UTF-8 text; other bytes cannot be escaped back as they were.
            if (const std::string* text = found->second.asString(); text && isValidUtf8(*text)) {
                fuzz::check(unquoted(value, escaped(*text)) == *text,
                            "a text value reads back otherwise", value);
            }
        }
    }
    fuzz::check(saved.frontmatter == expectedPairs(document, ""),
                "the saved note's front matter reads back otherwise", saved.content);
    fuzz::check(saved.body == "\n" + withLineFeeds(document.body),
                "the saved note's body reads back otherwise", saved.content);

    std::string tagList;
    for (const std::string& tag : document.tags) {
        tagList += (tagList.empty() ? "" : ", ") + tag;
    }
    fuzz::check(rendered.frontmatter == expectedPairs(document, "[" + tagList + "]"),
                "the rendered note's front matter reads back otherwise", rendered.content);
    // The heading is the title as it is: one with a line break runs on into the body.
    if (!hasLineBreak(document.title)) {
        fuzz::check(
            rendered.body == "\n# " + document.title + "\n\n" + withLineFeeds(document.body),
            "the rendered note's body reads back otherwise", rendered.content);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    checkRead(content);

    // The same bytes as dictated text; the length picks the rest of the result and the date.
    VoiceInputResult result;
    result.finalText = content;
    const auto modes = allCases<ProcessingMode>();
    const auto levels = allCases<SummaryLevel>();
    result.processingMode = modes[size % modes.size()];
    result.summaryLevel = levels[(size / modes.size()) % levels.size()];
    result.usedDictionaryEntryIDs.assign(size % 3, "5B2C3D4E-0000-4000-8000-00000000000A");
    const MarkdownFormatter formatter(
        [size] { return Date{static_cast<double>(size) * 86'413.25 - 1.0e8}; });
    checkWrittenNote(formatter.makeDocument(result, {}));
    checkWrittenNote(formatter.makeSimpleDocument(result, {"voice", "日本語 メモ"}));
    return 0;
}
