#include "core/services/JSONDictionaryStore.h"

#include <utility>

#include "core/services/JsonFile.h"
#include "core/support/AtomicFile.h"

namespace kelvo {

JSONDictionaryStore::JSONDictionaryStore(std::filesystem::path fileURL, SaveObserver didSave)
    : fileURL_(std::move(fileURL)), didSave_(std::move(didSave)) {}

std::vector<DictionaryEntry> JSONDictionaryStore::loadEntries() {
    if (!jsonfile::exists(fileURL_)) {
        return {};
    }
    return jsonfile::read<std::vector<DictionaryEntry>>(fileURL_);
}

void JSONDictionaryStore::saveEntries(const std::vector<DictionaryEntry>& entries) {
    writeFileAtomically(fileURL_, jsonfile::prettyPrinted(Json(entries)));
    if (didSave_) {
        didSave_(fileURL_);
    }
}

}  // namespace kelvo
