#include "core/support/Utf8.h"

#include <algorithm>
#include <cstdio>

namespace kelvo {
namespace {

// The length of the well-formed UTF-8 sequence that starts at `p`, or 0 when it is not one.
std::size_t sequenceLength(const unsigned char* p, const unsigned char* end) noexcept {
    const auto isContinuation = [](unsigned char byte) { return (byte & 0xC0) == 0x80; };
    const unsigned char lead = *p;
    if (lead < 0x80) {
        return 1;
    }
    // The second byte's allowed range depends on the lead byte: narrowing it here is what
    // rejects overlong forms (E0, F0), surrogates (ED) and code points past U+10FFFF (F4).
    std::size_t length = 0;
    unsigned char secondMin = 0x80;
    unsigned char secondMax = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) {
            secondMin = 0xA0;
        } else if (lead == 0xED) {
            secondMax = 0x9F;
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) {
            secondMin = 0x90;
        } else if (lead == 0xF4) {
            secondMax = 0x8F;
        }
    } else {
        return 0;
    }
    if (static_cast<std::size_t>(end - p) < length) {
        return 0;
    }
    if (p[1] < secondMin || p[1] > secondMax) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (!isContinuation(p[i])) {
            return 0;
        }
    }
    return length;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) noexcept {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const auto* const end = p + bytes.size();
    while (p < end) {
        const std::size_t length = sequenceLength(p, end);
        if (length == 0) {
            return false;
        }
        p += length;
    }
    return true;
}

std::string visibleText(std::string_view bytes, std::size_t maximumBytes) {
    static constexpr std::string_view kEllipsis = "\u2026";
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const auto* const end = p + bytes.size();
    std::string out;
    out.reserve(std::min(bytes.size(), maximumBytes) + kEllipsis.size());
    while (p < end) {
        const std::size_t length = sequenceLength(p, end);
        std::string piece;
        if (length == 1 && *p == '\\') {
            // Doubled, so that an escape below is never confused with the same characters typed.
            piece = "\\\\";
            ++p;
        } else if (length == 0 || (length == 1 && (*p < 0x20 || *p == 0x7F))) {
            // A control character or a stray byte: its escape, never the byte itself, so that
            // nothing a file or a server chose can move the cursor or ring the terminal.
            char escape[8];
            switch (*p) {
                case '\n':
                    piece = "\\n";
                    break;
                case '\r':
                    piece = "\\r";
                    break;
                case '\t':
                    piece = "\\t";
                    break;
                default:
                    std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(*p));
                    piece = escape;
            }
            ++p;
        } else if (length == 2 && p[0] == 0xC2 && p[1] < 0xA0) {
            // C1 controls (U+0080...U+009F) are terminal escapes too.
            char escape[12];
            std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(p[1]));
            piece = escape;
            p += length;
        } else {
            piece.assign(reinterpret_cast<const char*>(p), length);
            p += length;
        }
        if (out.size() + piece.size() > maximumBytes) {
            out += kEllipsis;
            break;
        }
        out += piece;
    }
    return out;
}

}  // namespace kelvo
