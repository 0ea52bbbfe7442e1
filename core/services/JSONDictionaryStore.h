#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include "core/models/DictionaryStore.h"
#include "core/services/JsonFile.h"

namespace kelvo {

/// The user dictionary kept as one pretty-printed JSON array in a single file. Nothing is held in
/// memory between calls: every load reads the whole file and every save replaces it atomically,
/// so a reader sees the old or the new list whole. The folder must already exist; the store never
/// creates it. A linked file stays a link (its target is replaced), and members of stored entries
/// that a newer version wrote survive a save. Calls block on I/O and may run on any thread. Saves
/// hold an advisory lock on the folder; concurrent `saveEntries` still end with the last
/// writer's list, so read-modify-write goes through `updateEntries`, which loses nothing.
class JSONDictionaryStore : public DictionaryStore {
  public:
    using SaveObserver = std::function<void(const std::filesystem::path&)>;
    using DamagedFileObserver = jsonfile::DamagedFileObserver;

    /// `didSave` is called with `fileURL` after every successful save; `onDamaged` when a save
    /// moved an unreadable or undecodable file aside.
    explicit JSONDictionaryStore(std::filesystem::path fileURL, SaveObserver didSave = {},
                                 DamagedFileObserver onDamaged = {});

    /// The stored list as it is (disabled entries included, stored order). A missing file is an
    /// empty dictionary and is not created. Throws FileError when the file cannot be read and
    /// DecodingError naming the file when it is not a valid entry list; a damaged file is left
    /// untouched.
    std::vector<DictionaryEntry> loadEntries() override;

    /// Replaces the file with `entries`. A file there that cannot be read or decoded (an editor
    /// may save after a failed load) is not destroyed: it is moved aside first
    /// ("dictionary.json.damaged-<UTC time>" beside it) and reported to `onDamaged`. Throws
    /// FileError when something other than a regular file is there, or when the damaged file
    /// cannot be moved or the new one written; the previous file then stays and `didSave` is not
    /// called.
    void saveEntries(const std::vector<DictionaryEntry>& entries) override;

    /// Load, `change`, save as one step under the folder's lock, so that concurrent updaters
    /// (another kelvo, the app) lose nothing. A damaged file fails the load and is left untouched.
    void updateEntries(const std::function<void(std::vector<DictionaryEntry>&)>& change);

    const std::filesystem::path& fileURL() const { return fileURL_; }

  private:
    // Writes `entries` to `target` (fileURL_ with links followed) while the caller holds the
    // folder's lock, keeping the members of stored entries that this version does not know.
    void writeLocked(const std::filesystem::path& target,
                     const std::vector<DictionaryEntry>& entries);

    const std::filesystem::path fileURL_;
    const SaveObserver didSave_;
    const DamagedFileObserver onDamaged_;
};

}  // namespace kelvo
