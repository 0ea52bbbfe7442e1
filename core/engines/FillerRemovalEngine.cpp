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

    bool removedOne = true;
    while (removedOne) {
        removedOne = false;
        for (const auto interjection : kLeadingInterjections) {
            if (unicode::startsWithCharacters(text, interjection)) {
                text.erase(0, interjection.size());
                removedOne = true;
            }
        }
    }

    for (const auto boundary : kSentenceBoundaries) {
        for (const auto interjection : kLeadingInterjections) {
            unicode::replaceAll(text, std::string(boundary) + std::string(interjection), boundary);
        }
    }

    while (unicode::startsWithCharacters(text, kComma) ||
           unicode::startsWithCharacters(text, kFullStop)) {
        text.erase(0, kComma.size());  // both marks are three bytes in UTF-8
    }

    unicode::replaceAll(text, "、、", "、");
    unicode::replaceAll(text, "。、", "。");

    return std::string(unicode::trimSpacesAndTabs(unicode::collapseSpaceRuns(text)));
}

}  // namespace kelvo
