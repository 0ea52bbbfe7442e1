#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/models/DictionaryEntry.h"
#include "core/models/DictionaryScope.h"
#include "core/models/DictionaryStore.h"

namespace kelvo {

/// Rewrites recognised text with the user dictionary and offers the dictionary's terms as
/// recognition hints. The engine holds its store for its whole life and keeps a prepared,
/// immutable snapshot of the enabled entries (highest priority first, stable); `apply` and
/// `hints` read one snapshot without locking out each other, and a successful `reload` swaps in a
/// new one atomically, so every call sees the old or the new dictionary whole. Any thread may call
/// any operation at any time. Matching is by canonical equivalence: candidates and text are
/// compared in NFC, otherwise byte for byte (case-, width- and kana-sensitive, no word
/// boundaries).
class DictionaryCorrectionEngine {
  public:
    struct Result {
        std::string text;
        /// Entries that matched, in application order, each at most once.
        std::vector<std::string> usedEntryIDs;
    };

    /// Loads at once; a store failure is thrown unchanged and no engine exists.
    explicit DictionaryCorrectionEngine(std::shared_ptr<DictionaryStore> store);
    ~DictionaryCorrectionEngine();

    DictionaryCorrectionEngine(const DictionaryCorrectionEngine&) = delete;
    DictionaryCorrectionEngine& operator=(const DictionaryCorrectionEngine&) = delete;

    /// Loads the store again. On failure the error is thrown and the previous entries stay.
    void reload();

    /// Every prepared entry in turn replaces each of its candidates (canonical text, readings,
    /// misrecognitions) wherever it occurs in the text as changed so far. An entry counts as used
    /// when any candidate occurs, even if the replacement equals it. When something was replaced
    /// the returned text is in NFC; otherwise it is the input byte for byte. `disabled` and an
    /// empty dictionary return the input unchanged.
    Result apply(std::string_view text, DictionaryScope scope) const;

    /// The canonical text of every prepared entry, in application order; empty for `disabled`.
    std::vector<std::string> hints(DictionaryScope scope) const;

    /// The prepared entries (enabled only, in application order).
    std::shared_ptr<const std::vector<DictionaryEntry>> cachedEntries() const;

  private:
    struct Snapshot;

    std::shared_ptr<const Snapshot> snapshot() const;
    std::shared_ptr<const Snapshot> load() const;

    const std::shared_ptr<DictionaryStore> store_;
    /// Serialises reloads so that a slower, older load never replaces a newer one.
    std::mutex reloadMutex_;
    mutable std::mutex snapshotMutex_;
    std::shared_ptr<const Snapshot> snapshot_;
};

}  // namespace kelvo
