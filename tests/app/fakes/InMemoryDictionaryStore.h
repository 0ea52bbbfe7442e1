#pragma once

// A DictionaryStore over a vector, for building a real correction engine in tests.

#include <string>
#include <vector>

#include "core/models/DictionaryStore.h"

namespace kelvo::test {

class InMemoryDictionaryStore final : public DictionaryStore {
  public:
    explicit InMemoryDictionaryStore(std::vector<DictionaryEntry> entries = {})
        : entries(std::move(entries)) {}

    std::vector<DictionaryEntry> loadEntries() override { return entries; }
    void saveEntries(const std::vector<DictionaryEntry>& newEntries) override {
        entries = newEntries;
    }

    std::vector<DictionaryEntry> entries;
};

// An entry that corrects `misrecognitions` to `canonical`.
inline DictionaryEntry dictionaryEntry(std::string canonical,
                                       std::vector<std::string> misrecognitions,
                                       std::string id = "6F9619FF-8B86-D011-B42D-00C04FC964FF") {
    DictionaryEntry entry;
    entry.id = std::move(id);
    entry.canonicalText = std::move(canonical);
    entry.commonMisrecognitions = std::move(misrecognitions);
    return entry;
}

}  // namespace kelvo::test
