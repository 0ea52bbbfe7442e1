#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "core/models/HistoryStore.h"
#include "core/services/JsonFile.h"

namespace kelvo {

/// The most recent completed dictations, newest first, kept as one pretty-printed JSON array in a
/// single file and capped at 500 records. Nothing is held in memory between calls; every write
/// replaces the file atomically (a linked file stays a link: its target is replaced). The folder
/// must already exist. Calls block on I/O and may run on any thread; an append holds an advisory
/// lock on the folder across its read and write, so concurrent appenders (threads, processes)
/// lose no record. Stored records are carried over as read, members and enumeration values
/// unknown to this version included.
class JSONHistoryStore : public HistoryStore {
  public:
    static constexpr std::size_t maxItems = 500;
    /// The most bytes of one text a record keeps (about 20,000 Japanese characters, over an hour
    /// of dictation): a longer one is cut at a character boundary and ends in an ellipsis.
    static constexpr std::size_t maxTextBytes = 64 * 1024;

    /// Told when an append found the history unreadable or undecodable and moved it aside.
    using DamagedFileObserver = jsonfile::DamagedFileObserver;

    explicit JSONHistoryStore(std::filesystem::path fileURL, DamagedFileObserver onDamaged = {});

    /// Adds `item` in front (its texts cut to `maxTextBytes`) and drops what falls beyond 500
    /// records. A history that cannot be read or decoded is treated as empty on purpose, so a
    /// damaged file never blocks recording new dictations: it is moved aside first
    /// ("history.json.damaged-<UTC time>" beside it, reported once to `onDamaged`; only the
    /// newest few such copies are kept) and a file holding only `item` takes its place. Throws
    /// FileError when something other than a regular file is there, or when the damaged file
    /// cannot be moved or the new one written; the previous file then stays.
    void appendItem(const HistoryItem& item) override;

    /// The first `limit` records, newest first. A missing file is an empty history. Unlike
    /// `appendItem`, throws FileError or DecodingError (naming the file) for a file that cannot
    /// be read or decoded.
    std::vector<HistoryItem> recentItems(std::size_t limit) override;

    const std::filesystem::path& fileURL() const { return fileURL_; }

  private:
    const std::filesystem::path fileURL_;
    const DamagedFileObserver onDamaged_;
};

}  // namespace kelvo
