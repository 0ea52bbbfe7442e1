#pragma once

#include <string>

#include "cli/CommandContext.h"
#include "core/models/Json.h"
#include "core/support/Error.h"

namespace kelvo::cli {

/// Parses all of standard input as one JSON value. Throws DecodingError "standard input: invalid
/// JSON: ..." with the parser's position, without the library's internal error code.
Json parseStandardInput(CommandContext& context);

/// Parses standard input and decodes it as a `T`; `description` names the record for the message
/// "standard input is not <description>: <what is wrong>".
template <typename T>
T decodeStandardInput(CommandContext& context, const std::string& description) {
    const Json value = parseStandardInput(context);
    try {
        return json::Decode<T>::from(value);
    } catch (const DecodingError& error) {
        throw DecodingError("standard input is not " + description + ": " + error.what());
    }
}

}  // namespace kelvo::cli
