#include "core/services/JSONHistoryStore.h"

#include <algorithm>
#include <utility>

#include "core/services/JsonFile.h"
#include "core/support/AtomicFile.h"
#include "core/support/FolderLock.h"
#include "core/support/Unicode.h"

namespace kelvo {
namespace {

// Whether `record` is a history record, perhaps of a newer version: enumeration values this
// version does not know (a summary level added later) are no damage, and stay as they are.
bool isHistoryRecord(Json record) {
    const auto reset = [&record](const char* part, const char* member, Json known) {
        if (record.is_object() && record.contains(part) && record[part].is_object() &&
            record[part].contains(member)) {
            record[part][member] = std::move(known);
        }
    };
    for (const char* part : {"request", "result"}) {
        reset(part, "summaryLevel", Json(SummaryLevel::verbatim));
        reset(part, "processingMode", Json(ProcessingMode::voiceInput));
    }
    reset("request", "outputFormat", Json(OutputFormat::plainText));
    reset("request", "dictionaryScope", Json(DictionaryScope::all));
    try {
        json::Decode<HistoryItem>::from(record);
        return true;
    } catch (const Error&) {
        return false;
    }
}

void shorten(std::string& text) {
    static constexpr std::string_view kCut = "\u2026";
    if (text.size() > JSONHistoryStore::maxTextBytes) {
        text.resize(
            unicode::characterPrefixWithinBytes(text, JSONHistoryStore::maxTextBytes - kCut.size())
                .size());
        text += kCut;
    }
}

}  // namespace
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
            try {
                json::Decode<std::vector<HistoryItem>>::from(stored);
            } catch (const DecodingError&) {
                if (!stored.is_array() ||
                    !std::all_of(stored.begin(), stored.end(),
                                 [](const Json& r) { return isHistoryRecord(r); })) {
                    throw;
                }
            }
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

    // The history recalls a dictation; a long text is kept whole where it went (a note, the
    // clipboard), and here only its beginning, so that 500 records stay a modest file.
    HistoryItem kept = item;
    if (kept.request.rawText) {
        shorten(*kept.request.rawText);
    }
    for (std::string* text : {&kept.result.rawTranscript, &kept.result.correctedText,
                              &kept.result.processedText, &kept.result.finalText}) {
        shorten(*text);
    }
    Json items = Json::array();
    items.push_back(Json(kept));
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
