#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include "core/models/DictionaryStore.h"

namespace kelvo {

/// The user dictionary kept as one pretty-printed JSON array in a single file. Nothing is held in
/// memory between calls: every load reads the whole file and every save replaces it atomically,
/// so a reader sees the old or the new list whole. The folder must already exist; the store never
/// creates it. Calls block on I/O and may run on any thread; the store takes no lock, so
/// concurrent saves end with the last writer's list.
class JSONDictionaryStore : public DictionaryStore {
  public:
    using SaveObserver = std::function<void(const std::filesystem::path&)>;

    /// `didSave` is called with `fileURL` after every successful save.
    explicit JSONDictionaryStore(std::filesystem::path fileURL, SaveObserver didSave = {});

    /// The stored list as it is (disabled entries included, stored order). A missing file is an
    /// empty dictionary and is not created. Throws FileError when the file cannot be read and
    /// DecodingError naming the file when it is not a valid entry list; a damaged file is left
    /// untouched.
    std::vector<DictionaryEntry> loadEntries() override;

    /// Replaces the file with `entries`. Throws FileError when the file cannot be written; the
    /// previous file then stays and `didSave` is not called.
    void saveEntries(const std::vector<DictionaryEntry>& entries) override;

    const std::filesystem::path& fileURL() const { return fileURL_; }

  private:
    const std::filesystem::path fileURL_;
    const SaveObserver didSave_;
};

}  // namespace kelvo
