#pragma once

// Helpers that render values the way the application's log lines print them: booleans as "true" /
// "false", and fixed-point numbers exactly as printf's "%.Nf" would ("650", "0.28", "12.0").
// Pure functions, callable from any thread.

#include <string>

namespace kelvo::platform {

// "true" or "false".
const char* boolText(bool value) noexcept;

// printf("%.*f", decimals, value) as a std::string, independent of the process locale.
std::string fixedText(double value, int decimals);

}  // namespace kelvo::platform
