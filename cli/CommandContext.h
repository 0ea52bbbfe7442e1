#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <string_view>

#include "cli/ArgumentParser.h"
#include "cli/Environment.h"
#include "core/models/Json.h"

namespace kelvo::cli {

/// What a running command may reach: standard input, its output, a diagnostics stream and the
/// environment, all passed in so that a command runs the same in-process (tests) as in `kelvo`.
/// `output` is held back by the dispatcher and reaches standard output only when the command
/// succeeds, so a failing command writes nothing there; `diagnostics` (standard error) is for
/// progress messages that must appear at once. Lives for one command run on one thread.
class CommandContext {
  public:
    CommandContext(std::istream& input, std::ostream& output, std::ostream& diagnostics,
                   const Environment& environment)
        : input_(input), output_(output), diagnostics_(diagnostics), environment_(environment) {}

    std::istream& input() { return input_; }
    std::ostream& output() { return output_; }
    std::ostream& diagnostics() { return diagnostics_; }
    const Environment& environment() const { return environment_; }

    /// The text a TEXT command works on: its first positional argument, or, without one, the
    /// whole of standard input exactly as it arrives (trailing line feeds included).
    std::string textArgument(const ParsedArguments& arguments);
    /// All of standard input, as is.
    std::string readAllInput();

    /// Writes `text` followed by exactly one line feed.
    void writeText(std::string_view text);
    /// Writes `value` pretty-printed the way the stores write their files (two-space indent,
    /// UTF-8 unescaped) and one line feed.
    void writeJson(const Json& value);

    /// "--dictionary PATH" or the default dictionary file in the data folder.
    std::filesystem::path dictionaryFile(const ParsedArguments& arguments) const;
    /// "--history PATH" or "history.json" in the data folder, beside the default dictionary even
    /// when "--dictionary" names another file: `history` has no "--dictionary" option, so only a
    /// fixed default lets it list what `process` recorded.
    std::filesystem::path historyFile(const ParsedArguments& arguments) const;

  private:
    std::istream& input_;
    std::ostream& output_;
    std::ostream& diagnostics_;
    const Environment& environment_;
};

}  // namespace kelvo::cli
