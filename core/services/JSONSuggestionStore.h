#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/models/CorrectionSuggestion.h"
#include "core/services/JSONDictionaryStore.h"
#include "core/services/JsonFile.h"

namespace kelvo {

/// The dictionary suggestions learnt from the user's corrections, kept as one pretty-printed JSON
/// array in "suggestions.json" beside the dictionary, by the dictionary's rules: nothing is held
/// in memory between calls, every write replaces the file atomically under the folder's advisory
/// lock as one read-modify-write, and a damaged file is never overwritten. Calls block on I/O and
/// may run on any thread. Rejected suggestions stay in the file so that the same correction is
/// not proposed again; accepted ones leave it.
class JSONSuggestionStore {
  public:
    using DamagedFileObserver = jsonfile::DamagedFileObserver;

    static constexpr const char* fileName = "suggestions.json";

    /// "suggestions.json" in the folder of `dictionaryFile`.
    static std::filesystem::path fileBeside(const std::filesystem::path& dictionaryFile);

    /// `onDamaged` is told when record() moved an unreadable or undecodable file aside.
    explicit JSONSuggestionStore(std::filesystem::path fileURL, DamagedFileObserver onDamaged = {});

    /// Every stored suggestion, rejected ones included, in stored order. A missing file is an
    /// empty list. Throws FileError or DecodingError naming the file; a damaged file is left as
    /// it is.
    std::vector<CorrectionSuggestion> loadSuggestions() const;
    /// The suggestions still waiting for an answer.
    std::vector<CorrectionSuggestion> pendingSuggestions() const;

    /// Adds a correction that was seen: the same replacement of the same text counts up the
    /// stored suggestion (taking the new reading and entry), a new one gets a fresh id and count
    /// 1. Returns the stored suggestion, or nothing when that correction was rejected before. A
    /// damaged file is moved aside ("suggestions.json.damaged-<UTC time>") and reported to
    /// `onDamaged`, and a fresh list begins. Throws FileError when the file cannot be written.
    std::optional<CorrectionSuggestion> record(const CorrectionSuggestion& seen);

    /// Writes `accepted` (the pending suggestion with id `accepted.id`, possibly edited) into the
    /// dictionary through `dictionary.updateEntries` and removes it from the list. Throws Error
    /// "no pending suggestion with ID <id>" when there is none, and the stores' errors.
    void accept(const CorrectionSuggestion& accepted, JSONDictionaryStore& dictionary);
    /// Marks the pending suggestion `id` rejected. Throws Error when there is none.
    void reject(const std::string& id);
    /// Removes the suggestion `id` (already written into the dictionary by its editor); nothing
    /// happens when there is none.
    void forget(const std::string& id);

    const std::filesystem::path& fileURL() const { return fileURL_; }

  private:
    std::vector<CorrectionSuggestion> loadFrom(const std::filesystem::path& target) const;
    CorrectionSuggestion requirePending(const std::string& id) const;

    const std::filesystem::path fileURL_;
    const DamagedFileObserver onDamaged_;
};

}  // namespace kelvo
