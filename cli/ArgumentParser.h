#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/UsageError.h"
#include "core/models/EnumNames.h"

namespace kelvo::cli {

/// The options and positional arguments of one command line, as ArgumentParser found them.
/// A value type; lookups of names the parser never declared are programming errors and find
/// nothing. The typed accessors throw UsageError for values that do not fit, so a command can
/// convert all of its arguments before it touches any file.
class ParsedArguments {
  public:
    /// True when the flag or option appeared at least once.
    bool has(std::string_view name) const;
    /// The value of a single-valued option, if given.
    std::optional<std::string> value(std::string_view name) const;
    /// Every value of a repeatable option, in command-line order.
    std::vector<std::string> values(std::string_view name) const;
    const std::vector<std::string>& positionals() const { return positionals_; }
    /// The positional argument at `index`, if given.
    std::optional<std::string> positional(std::size_t index) const;
    /// "--help" was given: the caller prints usage instead of running the command.
    bool helpRequested() const { return helpRequested_; }

    /// A non-negative decimal integer option (no sign, no spaces), if given.
    std::optional<std::uint64_t> count(std::string_view name) const;
    /// A signed decimal integer option that fits 64 bits, if given.
    std::optional<std::int64_t> integer(std::string_view name) const;

    /// An enumeration option spelled exactly as one of the case names, if given.
    template <typename E>
    std::optional<E> enumeration(std::string_view name) const {
        const auto text = value(name);
        if (!text) {
            return std::nullopt;
        }
        const auto found = enumFromName<E>(*text);
        if (!found) {
            throw UsageError("invalid value '" + *text + "' for " + std::string(name) +
                             " (expected " + enumNameList<E>() + ")");
        }
        return found;
    }

  private:
    friend class ArgumentParser;
    std::map<std::string, std::vector<std::string>, std::less<>> options_;
    std::vector<std::string> positionals_;
    bool helpRequested_ = false;
};

/// Declares a command's options and splits its arguments. Options are long ("--name"), take
/// their value as the next argument or after "=", and may appear anywhere among the positional
/// arguments; "--" ends the options, so a text that starts with "--" can still be passed. A single
/// "-" or a text such as "- 牛乳" is positional: only "--" introduces an option. "--help" is
/// always understood. Built once per command and then only read, so it may be shared freely.
class ArgumentParser {
  public:
    /// "--json": present or not; takes no value.
    ArgumentParser& flag(std::string name);
    /// "--level L": at most once; when `required`, leaving it out is a usage error.
    ArgumentParser& option(std::string name, bool required = false);
    /// "--hint H": any number of times, values kept in order.
    ArgumentParser& repeatable(std::string name);
    /// How many positional arguments are accepted (default none).
    ArgumentParser& positionals(std::size_t maximumCount);

    /// Throws UsageError for unknown options, missing values, repeats of single-valued options,
    /// values given to flags, missing required options and too many positional arguments.
    ParsedArguments parse(std::span<const std::string> arguments) const;

  private:
    enum class Kind { flag, single, repeatable };
    struct Declaration {
        Kind kind;
        bool required;
    };
    std::map<std::string, Declaration, std::less<>> declarations_;
    std::vector<std::string> requiredNames_;
    std::size_t maximumPositionals_ = 0;
};

}  // namespace kelvo::cli
