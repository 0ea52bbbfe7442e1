#include "cli/commands/SecondsOption.h"

#include <charconv>
#include <cmath>
#include <string>

#include "cli/UsageError.h"

namespace kelvo::cli {

std::optional<double> secondsOption(const ParsedArguments& arguments) {
    const auto text = arguments.value("--seconds");
    if (!text) {
        return std::nullopt;
    }
    double seconds = 0;
    const char* end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, seconds);
    if (error != std::errc() || stop != end || !std::isfinite(seconds) || seconds <= 0) {
        throw UsageError("invalid value '" + *text +
                         "' for --seconds (expected a positive number of seconds)");
    }
    return seconds;
}

}  // namespace kelvo::cli
