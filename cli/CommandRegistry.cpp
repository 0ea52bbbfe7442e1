#include "cli/CommandRegistry.h"

#include <istream>
#include <new>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "cli/ReportedFailure.h"
#include "cli/UsageError.h"
#include "core/models/DictionaryScope.h"
#include "core/models/OutputFormat.h"
#include "core/models/ProcessingMode.h"
#include "core/models/SummaryLevel.h"

namespace kelvo::cli {

namespace {

constexpr const char* kErrorPrefix = "kelvo: ";
constexpr const char* kGeneralUsage = "usage: kelvo <command> [options] (see 'kelvo help')";

std::string usageLine(const Command& command) {
    std::string line = "usage: kelvo " + command.name;
    if (!command.synopsis.empty()) {
        line += ' ' + command.synopsis;
    }
    return line;
}

/// Error descriptions from lower layers (a decoder naming a line, a system message) may span
/// lines; standard error gets exactly one.
std::string oneLine(std::string text) {
    for (char& character : text) {
        if (character == '\n' || character == '\r') {
            character = ' ';
        }
    }
    return text;
}

void reportUsageError(std::ostream& errors, const std::string& reason, const std::string& usage) {
    errors << kErrorPrefix << oneLine(reason) << '\n' << usage << '\n';
}

}  // namespace

void CommandRegistry::add(Command command) {
    if (find(command.name) != nullptr) {
        throw std::logic_error("duplicate kelvo command " + command.name);
    }
    commands_.push_back(std::move(command));
}

const Command* CommandRegistry::find(const std::string& name) const {
    for (const Command& command : commands_) {
        if (command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

bool CommandRegistry::isGroup(const std::string& word) const {
    for (const Command& command : commands_) {
        if (command.name.starts_with(word + ' ')) {
            return true;
        }
    }
    return false;
}

std::string CommandRegistry::groupUsage(const std::string& group) const {
    std::string usage;
    for (const Command& command : commands_) {
        if (command.name.starts_with(group + ' ')) {
            usage += (usage.empty() ? "" : "\n") + usageLine(command);
        }
    }
    return usage;
}

std::string CommandRegistry::helpText() const {
    std::ostringstream text;
    text << "usage: kelvo <command> [options]\n\nCommands:\n";
    for (const Command& command : commands_) {
        text << "  kelvo " << command.name;
        if (!command.synopsis.empty()) {
            text << ' ' << command.synopsis;
        }
        text << "\n      " << command.summary << '\n';
    }
    text << "\nTEXT is the positional argument or, without one, all of standard input.\n"
         << "Values: L (level) " << enumNameList<SummaryLevel>() << "\n"
         << "        M (mode) " << enumNameList<ProcessingMode>() << "\n"
         << "        F (format) " << enumNameList<OutputFormat>() << "\n"
         << "        S (scope) " << enumNameList<DictionaryScope>() << "\n"
         << "Files: --dictionary defaults to $XDG_DATA_HOME/KelvoVoiceMac/dictionary.json\n"
         << "       (~/.local/share when XDG_DATA_HOME is unset), --history to history.json\n"
         << "       in that folder, also when --dictionary names another file. The remembered\n"
         << "       folder is kept in $XDG_CONFIG_HOME/KelvoVoiceMac/kelvo.json (~/.config).\n"
         << "Exit status: 0 success, 1 failure (reason on standard error), 2 usage error.\n";
    return text.str();
}

int CommandRegistry::run(std::span<const std::string> arguments, std::istream& input,
                         std::ostream& output, std::ostream& errors,
                         const Environment& environment) const {
    if (arguments.empty()) {
        reportUsageError(errors, "missing command", kGeneralUsage);
        return kUsageError;
    }
    if (arguments[0] == "help" || arguments[0] == "--help") {
        return runHelp(arguments.subspan(1), output, errors);
    }
    std::span<const std::string> rest;
    const Command* command = lookUp(arguments, rest);
    if (command == nullptr) {
        return reportMissingCommand(arguments, output, errors);
    }
    return execute(*command, rest, input, output, errors, environment);
}

int CommandRegistry::runHelp(std::span<const std::string> topic, std::ostream& output,
                             std::ostream& errors) const {
    if (topic.empty()) {
        output << helpText();
        return kSuccess;
    }
    std::string name = topic[0];
    if (topic.size() >= 2 && find(name + ' ' + topic[1]) != nullptr) {
        name += ' ' + topic[1];
    }
    if (const Command* command = find(name)) {
        output << usageLine(*command) << "\n  " << command->summary << '\n';
        return kSuccess;
    }
    if (isGroup(name)) {
        output << groupUsage(name) << '\n';
        return kSuccess;
    }
    reportUsageError(errors, "unknown command '" + name + "'", kGeneralUsage);
    return kUsageError;
}

const Command* CommandRegistry::lookUp(std::span<const std::string> arguments,
                                       std::span<const std::string>& rest) const {
    // A two-word command ("dictionary add") wins over a one-word one.
    if (arguments.size() >= 2) {
        if (const Command* command = find(arguments[0] + ' ' + arguments[1])) {
            rest = arguments.subspan(2);
            return command;
        }
    }
    rest = arguments.subspan(1);
    return find(arguments[0]);
}

int CommandRegistry::reportMissingCommand(std::span<const std::string> arguments,
                                          std::ostream& output, std::ostream& errors) const {
    const std::string& first = arguments[0];
    if (!isGroup(first)) {
        reportUsageError(errors, "unknown command '" + first + "'", kGeneralUsage);
        return kUsageError;
    }
    if (arguments.size() == 2 && arguments[1] == "--help") {
        output << groupUsage(first) << '\n';
        return kSuccess;
    }
    const std::string reason = arguments.size() >= 2 && arguments[1] != "--help"
                                   ? "unknown " + first + " command '" + arguments[1] + "'"
                                   : "missing " + first + " command";
    reportUsageError(errors, reason, groupUsage(first));
    return kUsageError;
}

int CommandRegistry::execute(const Command& command, std::span<const std::string> rest,
                             std::istream& input, std::ostream& output, std::ostream& errors,
                             const Environment& environment) const {
    // Output is held back so that a failing command writes nothing but its error line.
    std::ostringstream heldOutput;
    try {
        const ParsedArguments parsed = command.arguments.parse(rest);
        if (parsed.helpRequested()) {
            output << usageLine(command) << "\n  " << command.summary << '\n';
            return kSuccess;
        }
        CommandContext context(input, heldOutput, errors, environment);
        command.run(parsed, context);
    } catch (const UsageError& error) {
        reportUsageError(errors, error.what(), usageLine(command));
        return kUsageError;
    } catch (const ReportedFailure& error) {
        output << heldOutput.str();
        output.flush();
        errors << kErrorPrefix << oneLine(error.what()) << '\n';
        return kFailure;
    } catch (const std::bad_alloc&) {
        // Its own text ("std::bad_alloc") means nothing to a user.
        errors << kErrorPrefix
               << "not enough memory to finish (is the input larger than this machine can hold?)\n";
        return kFailure;
    } catch (const std::exception& error) {
        errors << kErrorPrefix << oneLine(error.what()) << '\n';
        return kFailure;
    }
    output << heldOutput.str();
    output.flush();
    if (!output) {
        errors << kErrorPrefix << "cannot write to standard output\n";
        return kFailure;
    }
    return kSuccess;
}

}  // namespace kelvo::cli
