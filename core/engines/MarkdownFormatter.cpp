#include "core/engines/MarkdownFormatter.h"

#include <array>
#include <utility>

#include "core/models/EnumNames.h"
#include "core/support/Unicode.h"

namespace kelvo {

namespace {

constexpr std::array<std::string_view, 3> kTitleSeparators{"。", ".", "\n"};
constexpr std::size_t kMaxTitleCharacters = 40;

constexpr const char* kSource = "KelvoVoice";
constexpr std::string_view kOpenBox = "- [ ]";
constexpr std::string_view kCheckedBox = "- [x]";
constexpr std::string_view kNewTask = "- [ ] ";
constexpr std::array<std::string_view, 2> kBullets{"- ", "* "};

bool isNewline(char32_t codePoint) {
    // Line feed, vertical tab, form feed, carriage return, next line, line and paragraph separator.
    return (codePoint >= 0x0A && codePoint <= 0x0D) || codePoint == 0x85 || codePoint == 0x2028 ||
           codePoint == 0x2029;
}

std::string joined(const std::vector<std::string>& items, std::string_view separator) {
    std::string out;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) {
            out += separator;
        }
        out += items[i];
    }
    return out;
}

// "[a, b]": the items bare, as long as none would break the note's lines.
std::string bracketed(const std::vector<std::string>& items) {
    std::vector<std::string> shown;
    shown.reserve(items.size());
    for (const std::string& item : items) {
        shown.push_back(FrontmatterValue::bareText(item));
    }
    return "[" + joined(shown, ", ") + "]";
}

std::string renderValue(const FrontmatterValue& value) {
    if (auto scalar = value.scalarText()) {
        return std::move(*scalar);
    }
    return bracketed(*value.asArray());
}

}  // namespace

MarkdownFormatter::MarkdownFormatter(Clock now) : now_(std::move(now)) {}

std::string MarkdownFormatter::title(std::string_view text) {
    std::string_view candidate = text;
    for (const auto separator : kTitleSeparators) {
        const auto position = text.find(separator);
        if (position == std::string_view::npos) {
            continue;
        }
        const auto before = unicode::trimSpacesAndTabs(text.substr(0, position));
        if (!before.empty()) {
            candidate = before;
            break;
        }
    }
    if (unicode::characterCount(candidate) > kMaxTitleCharacters) {
        candidate = unicode::characterPrefix(candidate, kMaxTitleCharacters);
    }
    return std::string(unicode::trimSpacesAndTabs(candidate));
}

MarkdownDocument MarkdownFormatter::makeDocument(const VoiceInputResult& result,
                                                 const std::vector<std::string>& tags) const {
    MarkdownDocument document;
    document.title = title(result.finalText);
    document.createdAt = now_();
    document.body = body(result.finalText, result.processingMode);
    auto& frontmatter = document.frontmatter;
    frontmatter["title"] = FrontmatterValue::string(document.title);
    frontmatter["created"] = FrontmatterValue::string(document.createdAt.iso8601());
    frontmatter["source"] = FrontmatterValue::string(kSource);
    frontmatter["summary_level"] =
        FrontmatterValue::string(std::string(summaryLevelWord(result.summaryLevel)));
    frontmatter["processing_mode"] =
        FrontmatterValue::string(std::string(enumName(result.processingMode)));
    if (!result.usedDictionaryEntryIDs.empty()) {
        frontmatter["dictionary_corrections"] = FrontmatterValue::integer(
            static_cast<std::int64_t>(result.usedDictionaryEntryIDs.size()));
    }
    document.tags = tags.empty() ? std::vector<std::string>{kDefaultTag} : tags;
    return document;
}

MarkdownDocument MarkdownFormatter::makeSimpleDocument(const VoiceInputResult& result,
                                                       const std::vector<std::string>& tags) const {
    MarkdownDocument document;
    document.title = title(result.finalText);
    document.createdAt = now_();
    document.body = result.finalText;
    document.frontmatter["title"] = FrontmatterValue::string(document.title);
    document.frontmatter["created"] = FrontmatterValue::string(document.createdAt.iso8601());
    document.tags = tags;
    return document;
}

std::string MarkdownFormatter::render(const MarkdownDocument& document) {
    std::vector<std::string> lines;
    lines.emplace_back(kFrontmatterDelimiter);
    // The map is ordered by UTF-8 bytes, which is code-point order.
    for (const auto& [key, value] : document.frontmatter) {
        lines.push_back(key + ": " + renderValue(value));
    }
    if (!document.tags.empty()) {
        lines.push_back("tags: " + bracketed(document.tags));
    }
    lines.emplace_back(kFrontmatterDelimiter);
    lines.emplace_back();
    lines.push_back("# " + document.title);
    lines.emplace_back();
    lines.push_back(document.body);
    return joined(lines, "\n");
}

std::string MarkdownFormatter::body(std::string_view text, ProcessingMode processingMode) {
    return processingMode == ProcessingMode::todo ? todoList(text) : std::string(text);
}

std::string MarkdownFormatter::todoList(std::string_view text) {
    std::vector<std::string_view> pieces;
    std::size_t pieceStart = 0;
    unicode::forEachCodePoint(
        text, [&](char32_t codePoint, std::size_t offset, std::size_t length) {
            if (isNewline(codePoint)) {
                pieces.push_back(text.substr(pieceStart, offset - pieceStart));
                pieceStart = offset + length;
            }
        });
    pieces.push_back(text.substr(pieceStart));

    std::vector<std::string> tasks;
    for (const auto piece : pieces) {
        const auto line = unicode::trimSpacesAndTabs(piece);
        if (line.empty()) {
            continue;
        }
        if (unicode::startsWithCharacters(line, kOpenBox) ||
            unicode::startsWithCharacters(line, kCheckedBox)) {
            tasks.emplace_back(line);
            continue;
        }
        std::string_view rest = line;
        for (const auto bullet : kBullets) {
            if (unicode::startsWithCharacters(line, bullet)) {
                rest = line.substr(bullet.size());
                break;
            }
        }
        tasks.push_back(std::string(kNewTask) + std::string(rest));
    }
    return joined(tasks, "\n");
}

}  // namespace kelvo
