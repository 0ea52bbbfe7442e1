#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/support/DataLocations.h"

namespace kelvo::cli {

/// Read access to environment variables, injectable so that commands can be run in-process with
/// a made-up environment. `ofProcess()` reads the real one; nothing here writes to it.
class Environment {
  public:
    using Lookup = std::function<std::optional<std::string>(std::string_view name)>;

    explicit Environment(Lookup lookup) : lookup_(std::move(lookup)) {}

    /// The process's own environment (getenv).
    static Environment ofProcess();

    /// The variable's value, or nothing when it is unset.
    std::optional<std::string> get(std::string_view name) const { return lookup_(name); }

    /// The user's data folder and its files, by this environment's XDG_DATA_HOME and HOME.
    DataLocations dataLocations() const { return DataLocations(lookup_); }

  private:
    Lookup lookup_;
};

}  // namespace kelvo::cli
