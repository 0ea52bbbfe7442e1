#include "core/engines/CorrectionDetector.h"

#include <unicode/uchar.h>
#include <unicode/uscript.h>

#include <algorithm>
#include <string>

#include "core/support/Unicode.h"

namespace kelvo {
namespace {

constexpr std::int64_t kNewEntryPriority = 50;

enum class Kind { other, word, hiragana, katakana, han };

Kind kindOf(char32_t codePoint) {
    const auto c = static_cast<UChar32>(codePoint);
    if (c == 0x30FC || c == 0xFF70) {  // the long-vowel marks, written with katakana
        return Kind::katakana;
    }
    UErrorCode status = U_ZERO_ERROR;
    switch (uscript_getScript(c, &status)) {
        case USCRIPT_HAN:
            return Kind::han;
        case USCRIPT_HIRAGANA:
            return Kind::hiragana;
        case USCRIPT_KATAKANA:
            return Kind::katakana;
        default:
            break;
    }
    return u_isalnum(c) || u_getIntPropertyValue(c, UCHAR_GENERAL_CATEGORY_MASK) & U_GC_M_MASK
               ? Kind::word
               : Kind::other;
}

bool isKana(Kind kind) {
    return kind == Kind::hiragana || kind == Kind::katakana;
}

// Whether a changed part that begins or ends with `changed` continues into its neighbour
// `beside`: a word or kanji compound split by the edit. Kana runs are particles and endings as
// often as words, so they are never joined.
bool joins(char32_t beside, char32_t changed) {
    const Kind kind = kindOf(beside);
    return kind != Kind::other && kind != Kind::hiragana && kind == kindOf(changed);
}

std::u32string codePoints(const std::string& text) {
    std::u32string result;
    unicode::forEachCodePoint(text, [&result](char32_t codePoint, std::size_t, std::size_t) {
        result.push_back(codePoint);
    });
    return result;
}

std::string utf8(std::u32string_view text) {
    std::string result;
    for (const char32_t codePoint : text) {
        result += unicode::encode(codePoint);
    }
    return unicode::toNfc(result);
}

std::u32string_view trimmed(std::u32string_view text) {
    while (!text.empty() && kindOf(text.front()) == Kind::other) {
        text.remove_prefix(1);
    }
    while (!text.empty() && kindOf(text.back()) == Kind::other) {
        text.remove_suffix(1);
    }
    return text;
}

std::u32string lettersOnly(std::u32string_view text) {
    std::u32string result;
    std::copy_if(text.begin(), text.end(), std::back_inserter(result),
                 [](char32_t c) { return kindOf(c) != Kind::other; });
    return result;
}

// Runs of one kind of letters: words in English, kanji compounds and kana runs in Japanese.
std::size_t runCount(std::u32string_view text) {
    std::size_t runs = 0;
    Kind previous = Kind::other;
    for (const char32_t c : text) {
        const Kind kind = kindOf(c);
        if (kind != Kind::other && kind != previous) {
            ++runs;
        }
        previous = kind;
    }
    return runs;
}

bool allKana(std::u32string_view text) {
    return std::all_of(text.begin(), text.end(), [](char32_t c) { return isKana(kindOf(c)); });
}

bool hasKanji(std::u32string_view text) {
    return std::any_of(text.begin(), text.end(), [](char32_t c) { return kindOf(c) == Kind::han; });
}

bool contains(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

}  // namespace

std::optional<CorrectionSuggestion> CorrectionDetector::detect(
    const WatchedSpan& span, const std::vector<DictionaryEntry>& dictionary) {
    if (!span.changed()) {
        return std::nullopt;
    }
    const std::u32string before = codePoints(span.original());
    const std::u32string after = codePoints(span.current());
    // The changed part: [prefix, before.size() - suffix) became [prefix, after.size() - suffix).
    std::size_t prefix = 0;
    const std::size_t shorter = std::min(before.size(), after.size());
    while (prefix < shorter && before[prefix] == after[prefix]) {
        ++prefix;
    }
    std::size_t suffix = 0;
    while (suffix < shorter - prefix &&
           before[before.size() - 1 - suffix] == after[after.size() - 1 - suffix]) {
        ++suffix;
    }
    if (prefix + suffix == before.size() || prefix + suffix == after.size()) {
        return std::nullopt;  // only added, or only deleted
    }
    // A changed letter stands for its word, a changed kanji for its compound.
    while (prefix > 0 && joins(before[prefix - 1], before[prefix]) &&
           joins(after[prefix - 1], after[prefix])) {
        --prefix;
    }
    while (suffix > 0 &&
           joins(before[before.size() - suffix], before[before.size() - suffix - 1]) &&
           joins(after[after.size() - suffix], after[after.size() - suffix - 1])) {
        --suffix;
    }
    if (prefix < span.spanStart() || before.size() - suffix > span.spanEnd()) {
        return std::nullopt;  // the user's own text, or more than the dictation, was changed
    }
    const std::u32string_view replaced =
        trimmed(std::u32string_view(before).substr(prefix, before.size() - suffix - prefix));
    const std::u32string_view replacement =
        trimmed(std::u32string_view(after).substr(prefix, after.size() - suffix - prefix));
    if (replaced.empty() || replacement.empty() ||
        lettersOnly(replaced) == lettersOnly(replacement)) {
        return std::nullopt;  // punctuation and spacing
    }
    if (replaced.size() > maximumReplacedCharacters ||
        replacement.size() > maximumReplacementCharacters) {
        return std::nullopt;
    }
    // Most of the dictation in more than one word is a rewrite, not a misrecognised term.
    const std::size_t dictated = span.spanEnd() - span.spanStart();
    if (replaced.size() * 2 > dictated && runCount(replaced) > 1) {
        return std::nullopt;
    }

    CorrectionSuggestion suggestion;
    suggestion.misrecognition = utf8(replaced);
    suggestion.canonical = utf8(replacement);
    if (allKana(replaced) && hasKanji(replacement)) {
        suggestion.reading = suggestion.misrecognition;
    } else if (hasKanji(replaced) && allKana(replacement)) {
        suggestion.reading = suggestion.canonical;
    }
    for (const DictionaryEntry& entry : dictionary) {
        if (unicode::toNfc(entry.canonicalText) != suggestion.canonical) {
            continue;
        }
        if (contains(entry.commonMisrecognitions, suggestion.misrecognition) ||
            contains(entry.readings, suggestion.misrecognition)) {
            return std::nullopt;  // the dictionary corrects it already
        }
        suggestion.entryID = entry.id;
        break;
    }
    return suggestion;
}

void CorrectionDetector::mergeInto(std::vector<DictionaryEntry>& entries,
                                   const CorrectionSuggestion& suggestion) {
    auto entry = std::find_if(entries.begin(), entries.end(), [&](const DictionaryEntry& e) {
        return unicode::toNfc(e.canonicalText) == unicode::toNfc(suggestion.canonical);
    });
    if (entry == entries.end()) {
        DictionaryEntry added;
        added.id = makeUuid();
        added.canonicalText = suggestion.canonical;
        added.priority = kNewEntryPriority;
        entries.push_back(std::move(added));
        entry = std::prev(entries.end());
    }
    if (suggestion.reading && *suggestion.reading != entry->canonicalText &&
        !contains(entry->readings, *suggestion.reading)) {
        entry->readings.push_back(*suggestion.reading);
    }
    if (suggestion.misrecognition != suggestion.reading &&
        !contains(entry->commonMisrecognitions, suggestion.misrecognition)) {
        entry->commonMisrecognitions.push_back(suggestion.misrecognition);
    }
}

}  // namespace kelvo
