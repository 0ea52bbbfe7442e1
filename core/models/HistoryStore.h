#pragma once

#include <cstddef>
#include <vector>

#include "core/models/HistoryItem.h"

namespace kelvo {

/// Where completed dictations are kept, newest first. Calls block on I/O.
class HistoryStore {
public:
    virtual ~HistoryStore() = default;
    /// Adds `item` as the newest record.
    virtual void appendItem(const HistoryItem& item) = 0;
    /// At most `limit` records, newest first.
    virtual std::vector<HistoryItem> recentItems(std::size_t limit) = 0;
};

}  // namespace kelvo
