// The history file as the store reads it. Contract: it decodes or fails with DecodingError, never
// anything else; a decoded history written the way the store writes records reads back as the
// same records (an audio file URL's path in its normal form: the URL names the file, "a/../b" and
// "b" alike) and writing that again gives the same bytes. The stored document itself, as an
// append keeps it, writes and reads back unchanged.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/models/HistoryItem.h"
#include "core/services/JsonFile.h"
#include "fuzz/FuzzCheck.h"

namespace {

using namespace kelvo;

const std::filesystem::path kFile = "history.json";

std::vector<HistoryItem> decodeFile(std::string_view data) {
    return json::Decode<std::vector<HistoryItem>>::from(jsonfile::parse(kFile, data));
}

std::string encodeFile(const std::vector<HistoryItem>& items) {
    return jsonfile::prettyPrinted(Json(items));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Json document;
    std::vector<HistoryItem> items;
    if (!fuzz::failsOnlyWithOwnError<DecodingError>([&] {
            document = jsonfile::parse(kFile, text);
            items = json::Decode<std::vector<HistoryItem>>::from(document);
        })) {
        return 0;
    }
    // An append writes the stored records back as read, members it does not know included.
    const std::string kept = jsonfile::prettyPrinted(document);
    fuzz::check(jsonfile::parse(kFile, kept) == document, "stored records change when kept", kept);

    const std::string written = encodeFile(items);
    std::vector<HistoryItem> reread;
    fuzz::check(fuzz::failsOnlyWithOwnError([&] { reread = decodeFile(written); }),
                "the written history does not read back", written);
    for (HistoryItem& item : items) {
        if (auto& url = item.request.audioFileURL) {
            *url = url->lexically_normal();
        }
    }
    fuzz::check(reread == items, "the history read back differs", written);
    fuzz::check(encodeFile(reread) == written, "writing the history again changed it", written);
    return 0;
}
