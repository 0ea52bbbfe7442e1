#pragma once

#include <functional>
#include <string>

#include "cli/ArgumentParser.h"
#include "cli/CommandContext.h"

namespace kelvo::cli {

/// One command of the `kelvo` tool, as registered with CommandRegistry. `name` is one word
/// ("correct") or a group and a word ("dictionary add"). `run` receives arguments that already
/// passed `arguments`; it converts the remaining values (enumerations, numbers) before any file
/// is read or written, throws UsageError for values that do not fit, and reports failures by
/// throwing kelvo::Error (or any std::exception) whose what() is the message for the user.
struct Command {
    std::string name;
    /// What follows "kelvo <name>" in the usage line, e.g. "[--scope S] [TEXT]".
    std::string synopsis;
    /// One line for the help listing.
    std::string summary;
    ArgumentParser arguments;
    std::function<void(const ParsedArguments&, CommandContext&)> run;
};

}  // namespace kelvo::cli
