#include "cli/Environment.h"

#include <cstdlib>

namespace kelvo::cli {

Environment Environment::ofProcess() {
    return Environment([](std::string_view name) -> std::optional<std::string> {
        const char* value = std::getenv(std::string(name).c_str());
        if (value == nullptr) {
            return std::nullopt;
        }
        return std::string(value);
    });
}

}  // namespace kelvo::cli
