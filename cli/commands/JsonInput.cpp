#include "cli/commands/JsonInput.h"

namespace kelvo::cli {

namespace {

/// nlohmann prefixes every message with "[json.exception.<kind>.<id>] ", which means nothing to
/// the person at the terminal.
std::string withoutLibraryPrefix(const std::string& message) {
    if (message.starts_with("[json.exception.")) {
        const std::size_t end = message.find("] ");
        if (end != std::string::npos) {
            return message.substr(end + 2);
        }
    }
    return message;
}

}  // namespace

Json parseStandardInput(CommandContext& context) {
    const std::string text = context.readAllInput();
    try {
        return Json::parse(text);
    } catch (const nlohmann::json::exception& error) {
        throw DecodingError("standard input is not valid JSON: " +
                            withoutLibraryPrefix(error.what()));
    }
}

}  // namespace kelvo::cli
