#include "core/services/JSONDictionaryStore.h"

#include <map>
#include <set>
#include <utility>
#include <vector>

#include "core/services/JsonFile.h"
#include "core/support/AtomicFile.h"
#include "core/support/FolderLock.h"

namespace kelvo {
namespace {

// The members this version writes; any other member of a stored entry came from a newer version.
const std::set<std::string>& knownMembers() {
    static const std::set<std::string> known = [] {
        DictionaryEntry full;
        full.note = "";  // optional members too
        const Json encoded = Json(full);
        std::set<std::string> keys;
        for (auto member = encoded.begin(); member != encoded.end(); ++member) {
            keys.insert(member.key());
        }
        return keys;
    }();
    return known;
}

using UnknownMembers = std::map<std::string, std::vector<std::pair<std::string, Json>>>;

// The stored entries' unknown members by entry id (`stored` is a decodable entry list).
UnknownMembers unknownMembersById(const Json& stored) {
    UnknownMembers byId;
    for (std::size_t i = 0; i < stored.size(); ++i) {
        const Json& entry = stored[i];
        if (!entry.is_object() || !entry.contains("id") || !entry["id"].is_string()) {
            continue;
        }
        std::vector<std::pair<std::string, Json>> unknown;
        for (auto member = entry.begin(); member != entry.end(); ++member) {
            if (!knownMembers().contains(member.key())) {
                unknown.emplace_back(member.key(), member.value());
            }
        }
        if (!unknown.empty()) {
            byId[entry["id"].get<std::string>()] = std::move(unknown);
        }
    }
    return byId;
}

}  // namespace

JSONDictionaryStore::JSONDictionaryStore(std::filesystem::path fileURL, SaveObserver didSave,
                                         DamagedFileObserver onDamaged)
    : fileURL_(std::move(fileURL)),
      didSave_(std::move(didSave)),
      onDamaged_(std::move(onDamaged)) {}

std::vector<DictionaryEntry> JSONDictionaryStore::loadEntries() {
    const std::filesystem::path target = followSymlinks(fileURL_);
    if (!jsonfile::exists(target)) {
        return {};
    }
    jsonfile::requireRegularFile(target, fileURL_);
    return jsonfile::read<std::vector<DictionaryEntry>>(target, fileURL_);
}

void JSONDictionaryStore::saveEntries(const std::vector<DictionaryEntry>& entries) {
    {
        const std::filesystem::path target = followSymlinks(fileURL_);
        const FolderLock lock(jsonfile::folderOf(target), fileURL_);
        writeLocked(target, entries);
    }
    if (didSave_) {
        didSave_(fileURL_);
    }
}

void JSONDictionaryStore::updateEntries(
    const std::function<void(std::vector<DictionaryEntry>&)>& change) {
    {
        const std::filesystem::path target = followSymlinks(fileURL_);
        const FolderLock lock(jsonfile::folderOf(target), fileURL_);
        std::vector<DictionaryEntry> entries = loadEntries();
        change(entries);
        writeLocked(target, entries);
    }
    if (didSave_) {
        didSave_(fileURL_);
    }
}

void JSONDictionaryStore::writeLocked(const std::filesystem::path& target,
                                      const std::vector<DictionaryEntry>& entries) {
    removeLeftoverTemporaryFiles(target);
    UnknownMembers unknown;
    if (jsonfile::exists(target)) {
        jsonfile::requireRegularFile(target, fileURL_);
        try {
            const Json stored = jsonfile::parse(fileURL_, readWholeFile(target));
            json::Decode<std::vector<DictionaryEntry>>::from(stored);
            unknown = unknownMembersById(stored);
        } catch (const Error& error) {
            // The list the user could not load is kept beside the one replacing it.
            const std::filesystem::path movedTo =
                jsonfile::moveDamagedAside(target, fileURL_, "dictionary");
            if (onDamaged_) {
                onDamaged_(fileURL_, movedTo, error.what());
            }
        }
    }
    Json list = Json::array();
    for (const DictionaryEntry& entry : entries) {
        Json encoded = Json(entry);
        if (const auto found = unknown.find(entry.id); found != unknown.end()) {
            for (const auto& [key, value] : found->second) {
                encoded[key] = value;
            }
        }
        list.push_back(std::move(encoded));
    }
    // A link stays a link: its target is replaced, atomically, in the target's own folder.
    writeFileAtomically(target, jsonfile::prettyPrinted(list));
}

}  // namespace kelvo
