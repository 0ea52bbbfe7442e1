#include "core/support/Unicode.h"

#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <string.h>

#include <memory>

namespace kelvo::unicode {

namespace {

/// A character break iterator over a UTF-8 text, without copying the text to UTF-16.
class CharacterBreaks {
  public:
    explicit CharacterBreaks(std::string_view text) {
        UErrorCode status = U_ZERO_ERROR;
        utext_ = utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status);
        iterator_.reset(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_SUCCESS(status) && iterator_) {
            iterator_->setText(utext_, status);
        }
        ok_ = U_SUCCESS(status) && iterator_ != nullptr;
    }
    ~CharacterBreaks() { utext_close(utext_); }
    CharacterBreaks(const CharacterBreaks&) = delete;
    CharacterBreaks& operator=(const CharacterBreaks&) = delete;

    bool ok() const { return ok_; }
    icu::BreakIterator& iterator() { return *iterator_; }

  private:
    UText* utext_ = nullptr;
    std::unique_ptr<icu::BreakIterator> iterator_;
    bool ok_ = false;
};

bool isSpaceOrTab(char c) {
    return c == ' ' || c == '\t';
}

/// Byte search from `start`. glibc's memmem skips by byte pairs, where std::string::find stops at
/// every occurrence of the first byte: in Japanese UTF-8 nearly every third byte is 0xE3, which
/// made the find the dominant cost of correction and filler removal.
std::size_t findBytes(std::string_view text, std::string_view pattern, std::size_t start) {
    if (start > text.size()) {
        return std::string::npos;
    }
    const void* found =
        ::memmem(text.data() + start, text.size() - start, pattern.data(), pattern.size());
    return found == nullptr
               ? std::string::npos
               : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

}  // namespace

std::string toNfc(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status)) {
        return std::string(text);
    }
    const icu::UnicodeString source = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    // Most dictation text is already NFC; skip the copy when the quick check says so.
    if (nfc->isNormalized(source, status) && U_SUCCESS(status)) {
        return std::string(text);
    }
    status = U_ZERO_ERROR;
    const icu::UnicodeString normalized = nfc->normalize(source, status);
    if (U_FAILURE(status)) {
        return std::string(text);
    }
    std::string out;
    normalized.toUTF8String(out);
    return out;
}

std::size_t replaceAll(std::string& text, std::string_view from, std::string_view to) {
    if (from.empty()) {
        return 0;
    }
    std::size_t position = findBytes(text, from, 0);
    if (position == std::string::npos) {
        return 0;
    }
    std::string out;
    out.reserve(text.size());
    std::size_t count = 0;
    std::size_t copied = 0;
    while (position != std::string::npos) {
        out.append(text, copied, position - copied);
        out.append(to);
        copied = position + from.size();
        ++count;
        position = findBytes(text, from, copied);
    }
    out.append(text, copied, std::string::npos);
    text = std::move(out);
    return count;
}

bool startsWithCharacters(std::string_view text, std::string_view prefix) {
    if (text.substr(0, prefix.size()) != prefix) {
        return false;
    }
    if (prefix.size() == text.size() || prefix.empty()) {
        return true;
    }
    CharacterBreaks breaks(text);
    return !breaks.ok() || breaks.iterator().isBoundary(static_cast<int32_t>(prefix.size()));
}

std::size_t characterCount(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    CharacterBreaks breaks(text);
    if (!breaks.ok()) {
        return text.size();
    }
    std::size_t count = 0;
    breaks.iterator().first();
    while (breaks.iterator().next() != icu::BreakIterator::DONE) {
        ++count;
    }
    return count;
}

std::string_view characterPrefix(std::string_view text, std::size_t count) {
    if (count == 0) {
        return text.substr(0, 0);
    }
    CharacterBreaks breaks(text);
    if (!breaks.ok()) {
        return text.substr(0, count);
    }
    breaks.iterator().first();
    int32_t end = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int32_t next = breaks.iterator().next();
        if (next == icu::BreakIterator::DONE) {
            return text;
        }
        end = next;
    }
    return text.substr(0, static_cast<std::size_t>(end));
}

std::string_view characterPrefixWithinBytes(std::string_view text, std::size_t maximumBytes) {
    if (text.size() <= maximumBytes) {
        return text;
    }
    CharacterBreaks breaks(text);
    if (breaks.ok()) {
        // The last character boundary at or before maximumBytes.
        const int32_t end = breaks.iterator().preceding(static_cast<int32_t>(maximumBytes + 1));
        if (end != icu::BreakIterator::DONE && end > 0) {
            return text.substr(0, static_cast<std::size_t>(end));
        }
        // Not even the first character fits (a run of combining marks is one character, however
        // long): whole code points rather than nothing.
    }
    std::size_t end = maximumBytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;  // never inside a UTF-8 sequence
    }
    return text.substr(0, end);
}

std::string_view trimSpacesAndTabs(std::string_view text) {
    while (!text.empty() && isSpaceOrTab(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpaceOrTab(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string_view trimWhitespaceAndNewlines(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end) {
        std::size_t length = 0;
        if (!u_isUWhiteSpace(static_cast<UChar32>(decodeAt(text, begin, length)))) {
            break;
        }
        begin += length;
    }
    while (end > begin) {
        std::size_t start = end - 1;
        while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) {
            --start;
        }
        std::size_t length = 0;
        const char32_t codePoint = decodeAt(text, start, length);
        if (start + length != end || !u_isUWhiteSpace(static_cast<UChar32>(codePoint))) {
            break;
        }
        end = start;
    }
    return text.substr(begin, end - begin);
}

std::string collapseSpaceRuns(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (c == ' ' && !out.empty() && out.back() == ' ') {
            continue;
        }
        out.push_back(c);
    }
    return out;
}

std::string toLower(std::string_view text) {
    icu::UnicodeString value = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    value.toLower(icu::Locale::getRoot());
    std::string out;
    value.toUTF8String(out);
    return out;
}

bool isLetterMarkOrDigit(char32_t codePoint) {
    const auto c = static_cast<UChar32>(codePoint);
    return u_isalpha(c) || (U_GET_GC_MASK(c) & U_GC_M_MASK) != 0 ||
           u_charType(c) == U_DECIMAL_DIGIT_NUMBER;
}

std::string encode(char32_t codePoint) {
    char buffer[4];
    int32_t length = 0;
    UBool error = false;
    U8_APPEND(buffer, length, 4, static_cast<UChar32>(codePoint), error);
    if (error) {
        return "\xEF\xBF\xBD";
    }
    return std::string(buffer, static_cast<std::size_t>(length));
}

char32_t decodeAt(std::string_view text, std::size_t offset, std::size_t& length) {
    auto index = static_cast<int32_t>(offset);
    UChar32 codePoint = 0;
    U8_NEXT(reinterpret_cast<const uint8_t*>(text.data()), index, static_cast<int32_t>(text.size()),
            codePoint);
    length = static_cast<std::size_t>(index) - offset;
    return codePoint < 0 ? U'\uFFFD' : static_cast<char32_t>(codePoint);
}

}  // namespace kelvo::unicode
