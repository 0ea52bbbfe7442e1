#include "core/services/JSONHistoryStore.h"

#include <utility>

#include "core/services/JsonFile.h"
#include "core/support/AtomicFile.h"
#include "core/support/FolderLock.h"

namespace kelvo {
JSONHistoryStore::JSONHistoryStore(std::filesystem::path fileURL, DamagedFileObserver onDamaged)
    : fileURL_(std::move(fileURL)), onDamaged_(std::move(onDamaged)) {}

void JSONHistoryStore::appendItem(const HistoryItem& item) {
    // A linked history stays a link: the new file replaces the link's target, in its folder.
    const std::filesystem::path target = followSymlinks(fileURL_);
    const FolderLock lock(jsonfile::folderOf(target), fileURL_);
    removeLeftoverTemporaryFiles(target);

    // The stored records are kept as read, so members a newer version wrote survive.
    Json stored = Json::array();
    if (jsonfile::exists(target)) {
        jsonfile::requireRegularFile(target, fileURL_);
        try {
            stored = jsonfile::parse(fileURL_, readWholeFile(target));
            json::Decode<std::vector<HistoryItem>>::from(stored);
        } catch (const Error& error) {
            // Still a fresh history, as before, but the old one is moved aside, not destroyed.
            const std::filesystem::path movedTo =
                jsonfile::moveDamagedAside(target, fileURL_, "history");
            if (onDamaged_) {
                onDamaged_(fileURL_, movedTo, error.what());
            }
            stored = Json::array();
        }
    }

    Json items = Json::array();
    items.push_back(Json(item));
    for (std::size_t i = 0; i < stored.size() && items.size() < maxItems; ++i) {
        items.push_back(std::move(stored[i]));
    }
    writeFileAtomically(target, jsonfile::prettyPrinted(items));
}

std::vector<HistoryItem> JSONHistoryStore::recentItems(std::size_t limit) {
    const std::filesystem::path target = followSymlinks(fileURL_);
    if (!jsonfile::exists(target)) {
        return {};
    }
    jsonfile::requireRegularFile(target, fileURL_);
    auto items = jsonfile::read<std::vector<HistoryItem>>(target, fileURL_);
    if (items.size() > limit) {
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(limit), items.end());
    }
    return items;
}

}  // namespace kelvo
