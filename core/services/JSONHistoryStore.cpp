#include "core/services/JSONHistoryStore.h"

#include <utility>

#include "core/services/JsonFile.h"
#include "core/support/AtomicFile.h"

namespace kelvo {

JSONHistoryStore::JSONHistoryStore(std::filesystem::path fileURL) : fileURL_(std::move(fileURL)) {}

void JSONHistoryStore::appendItem(const HistoryItem& item) {
    std::vector<HistoryItem> items;
    if (jsonfile::exists(fileURL_)) {
        try {
            items = jsonfile::read<std::vector<HistoryItem>>(fileURL_);
        } catch (const Error&) {
            items.clear();
        }
    }
    if (items.size() > maxItems) {
        items.erase(items.begin() + maxItems, items.end());
    }
    items.insert(items.begin(), item);
    if (items.size() > maxItems) {
        items.erase(items.begin() + maxItems, items.end());
    }
    writeFileAtomically(fileURL_, jsonfile::prettyPrinted(Json(items)));
}

std::vector<HistoryItem> JSONHistoryStore::recentItems(std::size_t limit) {
    if (!jsonfile::exists(fileURL_)) {
        return {};
    }
    auto items = jsonfile::read<std::vector<HistoryItem>>(fileURL_);
    if (items.size() > limit) {
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(limit), items.end());
    }
    return items;
}

}  // namespace kelvo
