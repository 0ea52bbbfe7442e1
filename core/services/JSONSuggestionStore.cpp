#include "core/services/JSONSuggestionStore.h"

#include <algorithm>
#include <utility>

#include "core/engines/CorrectionDetector.h"
#include "core/support/AtomicFile.h"
#include "core/support/FolderLock.h"

namespace kelvo {
namespace {

bool sameCorrection(const CorrectionSuggestion& a, const CorrectionSuggestion& b) {
    return a.misrecognition == b.misrecognition && a.canonical == b.canonical;
}

void write(const std::filesystem::path& target, const std::vector<CorrectionSuggestion>& list) {
    writeFileAtomically(target, jsonfile::prettyPrinted(Json(list)));
}

}  // namespace

std::filesystem::path JSONSuggestionStore::fileBeside(const std::filesystem::path& dictionaryFile) {
    return jsonfile::folderOf(dictionaryFile) / fileName;
}

JSONSuggestionStore::JSONSuggestionStore(std::filesystem::path fileURL,
                                         DamagedFileObserver onDamaged)
    : fileURL_(std::move(fileURL)), onDamaged_(std::move(onDamaged)) {}

std::vector<CorrectionSuggestion> JSONSuggestionStore::loadFrom(
    const std::filesystem::path& target) const {
    if (!jsonfile::exists(target)) {
        return {};
    }
    jsonfile::requireRegularFile(target, fileURL_);
    return jsonfile::read<std::vector<CorrectionSuggestion>>(target, fileURL_);
}

std::vector<CorrectionSuggestion> JSONSuggestionStore::loadSuggestions() const {
    return loadFrom(followSymlinks(fileURL_));
}

std::vector<CorrectionSuggestion> JSONSuggestionStore::pendingSuggestions() const {
    std::vector<CorrectionSuggestion> pending = loadSuggestions();
    std::erase_if(pending, [](const CorrectionSuggestion& s) { return s.rejected; });
    return pending;
}

std::optional<CorrectionSuggestion> JSONSuggestionStore::record(const CorrectionSuggestion& seen) {
    const std::filesystem::path target = followSymlinks(fileURL_);
    const FolderLock lock(jsonfile::folderOf(target), fileURL_);
    removeLeftoverTemporaryFiles(target);
    std::vector<CorrectionSuggestion> list;
    try {
        list = loadFrom(target);
    } catch (const DecodingError& error) {
        // Whatever the user had there is kept beside the fresh list.
        const std::filesystem::path movedTo =
            jsonfile::moveDamagedAside(target, fileURL_, "suggestion list");
        if (onDamaged_) {
            onDamaged_(fileURL_, movedTo, error.what());
        }
    }
    auto found = std::find_if(list.begin(), list.end(), [&seen](const CorrectionSuggestion& s) {
        return sameCorrection(s, seen);
    });
    if (found != list.end() && found->rejected) {
        return std::nullopt;
    }
    if (found == list.end()) {
        CorrectionSuggestion added = seen;
        added.id = makeUuid();
        added.count = 0;
        added.rejected = false;
        list.push_back(std::move(added));
        found = std::prev(list.end());
    }
    found->count += 1;
    found->reading = seen.reading;
    found->entryID = seen.entryID;
    write(target, list);
    return *found;
}

CorrectionSuggestion JSONSuggestionStore::requirePending(const std::string& id) const {
    for (const CorrectionSuggestion& suggestion : loadSuggestions()) {
        if (suggestion.id == id && !suggestion.rejected) {
            return suggestion;
        }
    }
    throw Error("no pending suggestion with ID " + id);
}

void JSONSuggestionStore::accept(const CorrectionSuggestion& accepted,
                                 JSONDictionaryStore& dictionary) {
    requirePending(accepted.id);
    // Both files share the folder's lock, so they are written one after the other: an entry
    // written twice (the suggestion list failed) would only add what the entry already holds.
    dictionary.updateEntries([&accepted](std::vector<DictionaryEntry>& entries) {
        CorrectionDetector::mergeInto(entries, accepted);
    });
    const std::filesystem::path target = followSymlinks(fileURL_);
    const FolderLock lock(jsonfile::folderOf(target), fileURL_);
    std::vector<CorrectionSuggestion> list = loadFrom(target);
    std::erase_if(list, [&accepted](const CorrectionSuggestion& s) { return s.id == accepted.id; });
    write(target, list);
}

void JSONSuggestionStore::forget(const std::string& id) {
    const std::filesystem::path target = followSymlinks(fileURL_);
    const FolderLock lock(jsonfile::folderOf(target), fileURL_);
    std::vector<CorrectionSuggestion> list = loadFrom(target);
    if (std::erase_if(list, [&id](const CorrectionSuggestion& s) { return s.id == id; }) > 0) {
        write(target, list);
    }
}

void JSONSuggestionStore::reject(const std::string& id) {
    const std::filesystem::path target = followSymlinks(fileURL_);
    const FolderLock lock(jsonfile::folderOf(target), fileURL_);
    std::vector<CorrectionSuggestion> list = loadFrom(target);
    auto found = std::find_if(list.begin(), list.end(), [&id](const CorrectionSuggestion& s) {
        return s.id == id && !s.rejected;
    });
    if (found == list.end()) {
        throw Error("no pending suggestion with ID " + id);
    }
    found->rejected = true;
    write(target, list);
}

}  // namespace kelvo
