#include "cli/ArgumentParser.h"

#include <charconv>

namespace kelvo::cli {

namespace {

template <typename Integer>
std::optional<Integer> parseDecimal(std::string_view text) {
    // from_chars would accept a leading minus for signed types only; the explicit check keeps
    // "+5", " 5" and "5x" out for both.
    if (text.empty()) {
        return std::nullopt;
    }
    Integer number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

bool ParsedArguments::has(std::string_view name) const {
    return options_.find(name) != options_.end();
}

std::optional<std::string> ParsedArguments::value(std::string_view name) const {
    const auto found = options_.find(name);
    if (found == options_.end() || found->second.empty()) {
        return std::nullopt;
    }
    return found->second.back();
}

std::vector<std::string> ParsedArguments::values(std::string_view name) const {
    const auto found = options_.find(name);
    return found == options_.end() ? std::vector<std::string>{} : found->second;
}

std::optional<std::string> ParsedArguments::positional(std::size_t index) const {
    if (index >= positionals_.size()) {
        return std::nullopt;
    }
    return positionals_[index];
}

std::optional<std::uint64_t> ParsedArguments::count(std::string_view name) const {
    const auto text = value(name);
    if (!text) {
        return std::nullopt;
    }
    const auto number = parseDecimal<std::uint64_t>(*text);
    if (!number || text->front() == '-') {
        throw UsageError("invalid value '" + *text + "' for " + std::string(name) +
                         " (expected a non-negative integer)");
    }
    return number;
}

std::optional<std::int64_t> ParsedArguments::integer(std::string_view name) const {
    const auto text = value(name);
    if (!text) {
        return std::nullopt;
    }
    const auto number = parseDecimal<std::int64_t>(*text);
    if (!number) {
        throw UsageError("invalid value '" + *text + "' for " + std::string(name) +
                         " (expected an integer)");
    }
    return number;
}

ArgumentParser& ArgumentParser::flag(std::string name) {
    declarations_[std::move(name)] = Declaration{Kind::flag, false};
    return *this;
}

ArgumentParser& ArgumentParser::option(std::string name, bool required) {
    if (required) {
        requiredNames_.push_back(name);
    }
    declarations_[std::move(name)] = Declaration{Kind::single, required};
    return *this;
}

ArgumentParser& ArgumentParser::repeatable(std::string name) {
    declarations_[std::move(name)] = Declaration{Kind::repeatable, false};
    return *this;
}

ArgumentParser& ArgumentParser::positionals(std::size_t maximumCount) {
    maximumPositionals_ = maximumCount;
    return *this;
}

ParsedArguments ArgumentParser::parse(std::span<const std::string> arguments) const {
    ParsedArguments parsed;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (optionsEnded || !argument.starts_with("--")) {
            if (parsed.positionals_.size() >= maximumPositionals_) {
                throw UsageError("unexpected argument '" + argument + "'");
            }
            parsed.positionals_.push_back(argument);
            continue;
        }
        if (argument == "--") {
            optionsEnded = true;
            continue;
        }
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        if (name == "--help" && equals == std::string::npos) {
            parsed.helpRequested_ = true;
            continue;
        }
        const auto declaration = declarations_.find(name);
        if (declaration == declarations_.end()) {
            throw UsageError("unknown option '" + name + "'");
        }
        std::vector<std::string>& values = parsed.options_[name];
        if (declaration->second.kind == Kind::flag) {
            if (equals != std::string::npos) {
                throw UsageError("option '" + name + "' takes no value");
            }
            continue;
        }
        if (declaration->second.kind == Kind::single && !values.empty()) {
            throw UsageError("option '" + name + "' given more than once");
        }
        if (equals != std::string::npos) {
            values.push_back(argument.substr(equals + 1));
        } else if (i + 1 < arguments.size()) {
            values.push_back(arguments[++i]);
        } else {
            throw UsageError("option '" + name + "' needs a value");
        }
    }
    if (!parsed.helpRequested_) {
        for (const std::string& name : requiredNames_) {
            if (!parsed.has(name)) {
                throw UsageError("missing option '" + name + "'");
            }
        }
    }
    return parsed;
}

}  // namespace kelvo::cli
