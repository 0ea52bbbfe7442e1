#include "cli/CommandContext.h"

#include <istream>
#include <iterator>
#include <ostream>

#include "core/services/JsonFile.h"
#include "core/support/Error.h"
#include "core/support/Utf8.h"

namespace kelvo::cli {

std::string CommandContext::textArgument(const ParsedArguments& arguments) {
    // The text engines work on UTF-8; other bytes are refused here, as a JSON input refuses them,
    // instead of being half-decoded into replacement characters.
    if (auto text = arguments.positional(0)) {
        if (!isValidUtf8(*text)) {
            throw DecodingError("TEXT is not valid UTF-8");
        }
        return std::move(*text);
    }
    std::string text = readAllInput();
    if (!isValidUtf8(text)) {
        throw DecodingError("standard input is not valid UTF-8");
    }
    return text;
}

std::string CommandContext::readAllInput() {
    std::string text{std::istreambuf_iterator<char>(input_), std::istreambuf_iterator<char>()};
    if (input_.bad()) {
        throw FileError("cannot read standard input");
    }
    return text;
}

void CommandContext::writeText(std::string_view text) {
    output_ << text << '\n';
}

void CommandContext::writeJson(const Json& value) {
    output_ << jsonfile::prettyPrinted(value) << '\n';
}

std::filesystem::path CommandContext::dictionaryFile(const ParsedArguments& arguments) const {
    if (const auto path = arguments.value("--dictionary")) {
        return *path;
    }
    return environment_.dataLocations().dictionaryFile();
}

std::filesystem::path CommandContext::historyFile(const ParsedArguments& arguments) const {
    if (const auto path = arguments.value("--history")) {
        return *path;
    }
    return environment_.dataLocations().historyFile();
}

}  // namespace kelvo::cli
