#include "core/engines/TextNormalizer.h"

#include "core/support/Unicode.h"

namespace kelvo {

namespace {

constexpr char32_t kFullWidthFirst = 0xFF01;  // "！"
constexpr char32_t kFullWidthLast = 0xFF5E;   // "～"
constexpr char32_t kFullWidthOffset = 0xFEE0;
constexpr char32_t kIdeographicSpace = 0x3000;

}  // namespace

std::string TextNormalizer::normalize(std::string_view text) {
    std::string folded;
    folded.reserve(text.size());
    unicode::forEachCodePoint(
        text, [&](char32_t codePoint, std::size_t offset, std::size_t length) {
            if (codePoint >= kFullWidthFirst && codePoint <= kFullWidthLast) {
                folded.push_back(static_cast<char>(codePoint - kFullWidthOffset));
            } else if (codePoint == kIdeographicSpace) {
                folded.push_back(' ');
            } else {
                // Copy the original bytes so that malformed input is not silently rewritten.
                folded.append(text, offset, length);
            }
        });
    return unicode::collapseSpaceRuns(unicode::trimSpacesAndTabs(folded));
}

}  // namespace kelvo
