#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

#include "core/models/HistoryStore.h"

namespace kelvo {

/// The most recent completed dictations, newest first, kept as one pretty-printed JSON array in a
/// single file and capped at 500 records. Nothing is held in memory between calls; every write
/// replaces the file atomically. The folder must already exist. Calls block on I/O and may run on
/// any thread, but the store takes no lock: two appends at the same time can both read the same
/// old file and the later write wins, so callers that must not lose records serialise appends.
class JSONHistoryStore : public HistoryStore {
  public:
    static constexpr std::size_t maxItems = 500;

    explicit JSONHistoryStore(std::filesystem::path fileURL);

    /// Adds `item` in front and drops what falls beyond 500 records. A history that cannot be
    /// read or decoded is treated as empty on purpose, so a damaged file never blocks recording
    /// new dictations (it is replaced by one holding only `item`). Throws FileError when the new
    /// file cannot be written; the previous file then stays.
    void appendItem(const HistoryItem& item) override;

    /// The first `limit` records, newest first. A missing file is an empty history. Unlike
    /// `appendItem`, throws FileError or DecodingError (naming the file) for a file that cannot
    /// be read or decoded.
    std::vector<HistoryItem> recentItems(std::size_t limit) override;

    const std::filesystem::path& fileURL() const { return fileURL_; }

  private:
    const std::filesystem::path fileURL_;
};

}  // namespace kelvo
