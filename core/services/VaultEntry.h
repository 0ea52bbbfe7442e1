#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "core/support/Date.h"

namespace kelvo {

/// One note or folder of a vault as VaultBrowser lists it. Identified by `relativePath`; equal and
/// hashed by all fields.
struct VaultEntry {
    /// Last path component.
    std::string name;
    /// Path below the vault folder, components joined by "/", without a leading "/".
    std::string relativePath;
    bool isDirectory = false;
    /// Content modification date; absent when the item could not be examined.
    std::optional<Date> modifiedAt;

    friend bool operator==(const VaultEntry&, const VaultEntry&) = default;
};

}  // namespace kelvo

template <>
struct std::hash<kelvo::VaultEntry> {
    std::size_t operator()(const kelvo::VaultEntry& entry) const noexcept {
        std::size_t seed = std::hash<std::string>{}(entry.name);
        const auto combine = [&seed](std::size_t value) {
            seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
        };
        combine(std::hash<std::string>{}(entry.relativePath));
        combine(std::hash<bool>{}(entry.isDirectory));
        combine(entry.modifiedAt ? std::hash<double>{}(entry.modifiedAt->secondsSinceReferenceDate)
                                 : 0x5bd1e995U);
        return seed;
    }
};
