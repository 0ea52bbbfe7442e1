#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/Environment.h"

namespace kelvo::cli {

/// The commands of the `kelvo` tool and the one place that turns their outcome into exit status
/// and messages:
/// - 0: the command succeeded; its output is written to `output` in one piece.
/// - 1: the command threw; nothing is written to `output`, and `errors` gets one line,
///   "kelvo: " followed by the error's description.
/// - 2: the command line does not fit (unknown command or option, bad value); `errors` gets the
///   reason and the command's usage line, `output` nothing, and the command never runs.
/// "kelvo help", "kelvo --help" and "kelvo <command> --help" print usage to `output` with 0.
/// Commands are added once at start-up; `run` may then be called any number of times.
class CommandRegistry {
  public:
    /// Adds a command; names must be unique (a duplicate is a programming error and throws
    /// std::logic_error).
    void add(Command command);

    /// Runs the command named by the leading argument(s) and returns the exit status.
    int run(std::span<const std::string> arguments, std::istream& input, std::ostream& output,
            std::ostream& errors, const Environment& environment) const;

    /// The full help text: every command's usage line and summary.
    std::string helpText() const;

    static constexpr int kSuccess = 0;
    static constexpr int kFailure = 1;
    static constexpr int kUsageError = 2;

  private:
    // "help [command]": usage of everything, of one command or of a group.
    int runHelp(std::span<const std::string> topic, std::ostream& output,
                std::ostream& errors) const;
    // The command the leading argument(s) name, or nullptr; `rest` gets its own arguments.
    const Command* lookUp(std::span<const std::string> arguments,
                          std::span<const std::string>& rest) const;
    // Why no command matched (unknown command, unknown or missing group member, group help).
    int reportMissingCommand(std::span<const std::string> arguments, std::ostream& output,
                             std::ostream& errors) const;
    // Parses the command's arguments and runs it, mapping its outcome to the exit status.
    int execute(const Command& command, std::span<const std::string> rest, std::istream& input,
                std::ostream& output, std::ostream& errors, const Environment& environment) const;

    const Command* find(const std::string& name) const;
    bool isGroup(const std::string& word) const;
    std::string groupUsage(const std::string& group) const;

    std::vector<Command> commands_;
};

}  // namespace kelvo::cli
