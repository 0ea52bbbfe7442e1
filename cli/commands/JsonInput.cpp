#include "cli/commands/JsonInput.h"

#include "core/services/JsonFile.h"

namespace kelvo::cli {

Json parseStandardInput(CommandContext& context) {
    // The stores' parser: the same wording without the library's codes, and the same limit on
    // nesting (writing a deeper value back out would overflow the stack).
    return jsonfile::parse("standard input", context.readAllInput());
}

}  // namespace kelvo::cli
