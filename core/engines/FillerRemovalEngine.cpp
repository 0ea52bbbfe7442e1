#include "core/engines/FillerRemovalEngine.h"

#include <array>
#include <utility>

#include "core/support/Unicode.h"

namespace kelvo {

namespace {

/// Interjections dropped from the start of the text, tried in this order on every pass.
constexpr std::array<std::string_view, 2> kLeadingInterjections{"あっ、", "あ、"};

/// Marks after which an interjection starts a new sentence or clause and is dropped.
constexpr std::array<std::string_view, 5> kSentenceBoundaries{"。", "、", "！", "？", "\n"};

constexpr std::string_view kComma = "、";
constexpr std::string_view kFullStop = "。";

// Whether `text` from byte `at` on starts with `prefix` as whole characters. Whether a character
// ends after the prefix depends only on the code point that follows, so a short window past it
// decides as well as the whole text would, at a cost independent of the text's length.
bool startsWithAt(std::string_view text, std::size_t at, std::string_view prefix) {
    constexpr std::size_t kLookahead = 16;
    return unicode::startsWithCharacters(text.substr(at, prefix.size() + kLookahead), prefix);
}

}  // namespace

const std::vector<std::string>& FillerRemovalEngine::defaultFillers() {
    static const std::vector<std::string> fillers{
        "えーと",   "えーっと", "えー、",         "えー ",      "えっとー", "えっとう",
        "えっと",   "あー、",   "あー ",          "あのー",     "あのう",   "あの、",
        "まあ、",   "まあ ",    "そのー",         "そのう",     "なんか、", "なんか ",
        "うーん、", "うーん ",  "ちょっと待って", "ちょっと、",
    };
    return fillers;
}

FillerRemovalEngine::FillerRemovalEngine(std::vector<std::string> fillers)
    : fillers_(std::move(fillers)) {}

std::string FillerRemovalEngine::removeFillers(std::string_view input) const {
    std::string text(input);

    // Everywhere, inside words too; a filler that two deletions join is caught if its turn is
    // still to come.
    for (const auto& filler : fillers_) {
        unicode::replaceAll(text, filler, "");
    }

    // Leading interjections, then (after the boundary step) leading marks, are counted from the
    // front and cut once: erasing them one by one from the front is quadratic in a long run.
    std::size_t start = 0;
    bool removedOne = true;
    while (removedOne) {
        removedOne = false;
        for (const auto interjection : kLeadingInterjections) {
            if (startsWithAt(text, start, interjection)) {
                start += interjection.size();
                removedOne = true;
            }
        }
    }
    text.erase(0, start);

    for (const auto boundary : kSentenceBoundaries) {
        for (const auto interjection : kLeadingInterjections) {
            unicode::replaceAll(text, std::string(boundary) + std::string(interjection), boundary);
        }
    }

    start = 0;
    while (startsWithAt(text, start, kComma) || startsWithAt(text, start, kFullStop)) {
        start += kComma.size();  // both marks are three bytes in UTF-8
    }
    text.erase(0, start);

    unicode::replaceAll(text, "、、", "、");
    unicode::replaceAll(text, "。、", "。");

    return std::string(unicode::trimSpacesAndTabs(unicode::collapseSpaceRuns(text)));
}

}  // namespace kelvo
