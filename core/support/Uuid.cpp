#include "core/support/Uuid.h"

#include <uuid/uuid.h>

#include <cctype>

#include "core/support/Error.h"

namespace kelvo {

std::string makeUuid() {
    uuid_t raw;
    uuid_generate_random(raw);
    char text[37];
    uuid_unparse_upper(raw, text);
    return std::string(text, 36);
}

bool isUuid(std::string_view text) noexcept {
    if (text.size() != 36) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool hyphenPlace = i == 8 || i == 13 || i == 18 || i == 23;
        if (hyphenPlace ? text[i] != '-' : !std::isxdigit(static_cast<unsigned char>(text[i]))) {
            return false;
        }
    }
    return true;
}

std::string canonicalUuid(std::string_view text) {
    if (!isUuid(text)) {
        throw DecodingError("\"" + std::string(text) + "\" is not a UUID");
    }
    std::string upper(text);
    for (char& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return upper;
}

}  // namespace kelvo
