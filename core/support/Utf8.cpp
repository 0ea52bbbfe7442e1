#include "core/support/Utf8.h"

namespace kelvo {

bool isValidUtf8(std::string_view bytes) noexcept {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const auto* const end = p + bytes.size();
    const auto isContinuation = [](unsigned char byte) { return (byte & 0xC0) == 0x80; };
    while (p < end) {
        const unsigned char lead = *p;
        if (lead < 0x80) {
            ++p;
            continue;
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
            return false;
        }
        if (static_cast<std::size_t>(end - p) < length) {
            return false;
        }
        if (p[1] < secondMin || p[1] > secondMax) {
            return false;
        }
        for (std::size_t i = 2; i < length; ++i) {
            if (!isContinuation(p[i])) {
                return false;
            }
        }
        p += length;
    }
    return true;
}

}  // namespace kelvo
