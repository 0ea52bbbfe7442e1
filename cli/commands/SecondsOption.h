#pragma once

// The "--seconds N" option shared by the commands that record from the microphone: a positive
// number of seconds, fractions allowed. Anything else is a usage error naming the value.

#include <optional>

#include "cli/ArgumentParser.h"

namespace kelvo::cli {

std::optional<double> secondsOption(const ParsedArguments& arguments);

}  // namespace kelvo::cli
