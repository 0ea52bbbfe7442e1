// The dictionary file as the store reads it (any bytes a user or an editor may leave there).
// Contract: it decodes or fails with DecodingError, never anything else; a decoded list written
// the way the store writes it reads back as the same list, and writing that again gives the same
// bytes; the document as read (unknown members included) writes and reads back unchanged; the
// correction engine takes any decoded list and rewrites text with it.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/services/JsonFile.h"
#include "core/support/Unicode.h"
#include "core/support/Utf8.h"
#include "fuzz/FuzzCheck.h"

namespace {

using namespace kelvo;

const std::filesystem::path kFile = "dictionary.json";

std::vector<DictionaryEntry> decodeFile(std::string_view data) {
    return json::Decode<std::vector<DictionaryEntry>>::from(jsonfile::parse(kFile, data));
}

std::string encodeFile(const std::vector<DictionaryEntry>& entries) {
    return jsonfile::prettyPrinted(Json(entries));
}

class MemoryStore : public DictionaryStore {
  public:
    explicit MemoryStore(std::vector<DictionaryEntry> entries) : entries_(std::move(entries)) {}
    std::vector<DictionaryEntry> loadEntries() override { return entries_; }
    void saveEntries(const std::vector<DictionaryEntry>& entries) override { entries_ = entries; }

  private:
    std::vector<DictionaryEntry> entries_;
};

// Each entry rewrites the text as the entries before it left it, so a dictionary whose
// replacements contain other entries' candidates multiplies the text's length, as specified.
// Texts that could grow past 32 MB are not corrected here: they would only measure the memory
// limit. A candidate's occurrence grows at most by its replacement's share of its length; the
// text itself at most threefold when composed.
bool growthStaysSmall(const std::vector<DictionaryEntry>& entries, std::size_t textBytes) {
    double bytes = 3.0 * static_cast<double>(textBytes);
    for (const DictionaryEntry& entry : entries) {
        const double replacement = static_cast<double>(unicode::toNfc(entry.replacementText.empty()
                                                                          ? entry.canonicalText
                                                                          : entry.replacementText)
                                                           .size());
        std::vector<std::string> candidates = entry.readings;
        candidates.push_back(entry.canonicalText);
        candidates.insert(candidates.end(), entry.commonMisrecognitions.begin(),
                          entry.commonMisrecognitions.end());
        for (const std::string& candidate : candidates) {
            if (!candidate.empty() && bytes < 1e300) {
                const double length = static_cast<double>(unicode::toNfc(candidate).size());
                bytes *= std::max(1.0, replacement / std::max(1.0, length));
            }
        }
    }
    return bytes <= 32.0 * 1024 * 1024;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Json document;
    std::vector<DictionaryEntry> entries;
    if (!fuzz::failsOnlyWithOwnError<DecodingError>([&] {
            document = jsonfile::parse(kFile, text);
            entries = json::Decode<std::vector<DictionaryEntry>>::from(document);
        })) {
        return 0;
    }
    // A save writes back the members of stored entries that this version does not know.
    const std::string kept = jsonfile::prettyPrinted(document);
    fuzz::check(jsonfile::parse(kFile, kept) == document, "stored entries change when kept", kept);

    const std::string written = encodeFile(entries);
    std::vector<DictionaryEntry> reread;
    fuzz::check(fuzz::failsOnlyWithOwnError([&] { reread = decodeFile(written); }),
                "the written dictionary does not read back", written);
    fuzz::check(reread == entries, "the dictionary read back differs", written);
    fuzz::check(encodeFile(reread) == written, "writing the dictionary again changed it", written);

    // A loaded dictionary goes straight to the engine; any list must prepare and apply. The text
    // holds every candidate, so each enabled entry's matching runs.
    DictionaryCorrectionEngine engine(std::make_shared<MemoryStore>(entries));
    engine.hints(DictionaryScope::all);
    std::string sample;
    for (const DictionaryEntry& entry : entries) {
        sample += entry.canonicalText + " ";
        for (const std::string& reading : entry.readings) {
            sample += reading + "、";
        }
        for (const std::string& wrong : entry.commonMisrecognitions) {
            sample += wrong + "。";
        }
    }
    if (!growthStaysSmall(entries, sample.size())) {
        return 0;
    }
    const auto result = engine.apply(sample, DictionaryScope::all);
    fuzz::check(isValidUtf8(result.text), "the corrected text is not UTF-8", result.text);
    fuzz::check(result.usedEntryIDs.size() <= entries.size(), "more entries used than exist");
    return 0;
}
