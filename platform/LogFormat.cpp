#include "platform/LogFormat.h"

#include <charconv>
#include <system_error>

namespace kelvo::platform {

const char* boolText(bool value) noexcept {
    return value ? "true" : "false";
}

std::string fixedText(double value, int decimals) {
    // std::to_chars ignores the C locale, so a German desktop still logs "0.28", not "0,28".
    char buffer[64];
    auto result =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
    if (result.ec != std::errc()) {
        return "nan";
    }
    return std::string(buffer, result.ptr);
}

}  // namespace kelvo::platform
