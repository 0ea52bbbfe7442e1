#pragma once

// A DictionaryStore over a vector, for building a real correction engine in tests.

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

}  // namespace kelvo::test
