#pragma once

#include <vector>

#include "core/models/DictionaryEntry.h"

namespace kelvo {

/// Where the user dictionary is kept. Calls block on I/O; the caller picks the thread.
/// Failures are thrown as the implementation's errors and reach callers unchanged.
class DictionaryStore {
public:
    virtual ~DictionaryStore() = default;
    /// The stored entries, in stored order.
    virtual std::vector<DictionaryEntry> loadEntries() = 0;
    /// Replaces the stored list.
    virtual void saveEntries(const std::vector<DictionaryEntry>& entries) = 0;
};

}  // namespace kelvo
