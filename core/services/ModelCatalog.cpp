#include "core/services/ModelCatalog.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>

#include "core/services/JsonFile.h"
#include "core/support/Error.h"

namespace kelvo {
namespace {

constexpr std::uint64_t kMiB = 1024 * 1024;

constexpr const char* kWhisperBaseURL =
    "https://huggingface.co/ggerganov/whisper.cpp/resolve/main/";

// SHA-1 digests are those whisper.cpp publishes for its models: models/README.md of the
// whisper.cpp repository for the full-precision ones, the model card of the Hugging Face
// repository the files come from (ggerganov/whisper.cpp) for the quantised variants. kotoba-tech
// publishes none for its ggml files. Sizes are the publishers' rounded figures.
ModelCatalogEntry whisperModel(std::string name, std::uint64_t sizeMiB, std::string sha1, int rank,
                               std::string description) {
    ModelCatalogEntry entry;
    entry.fileName = "ggml-" + name + ".bin";
    entry.url = std::string(kWhisperBaseURL) + entry.fileName;
    entry.name = std::move(name);
    entry.sizeBytes = sizeMiB * kMiB;
    entry.sha1 = std::move(sha1);
    entry.rank = rank;
    entry.description = std::move(description);
    return entry;
}

ModelCatalogEntry kotobaModel(const std::string& version, std::uint64_t sizeMiB, int rank) {
    ModelCatalogEntry entry;
    entry.name = "kotoba-whisper-" + version;
    entry.fileName = "ggml-kotoba-whisper-" + version + ".bin";
    entry.url = "https://huggingface.co/kotoba-tech/kotoba-whisper-" + version +
                "-ggml/resolve/main/" + entry.fileName;
    entry.sizeBytes = sizeMiB * kMiB;
    entry.languages = {"ja"};
    entry.rank = rank;
    entry.description = "Japanese only (distilled from large-v3)";
    return entry;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

bool isHexDigest(const std::string& text, std::size_t length) {
    return text.size() == length && std::all_of(text.begin(), text.end(), [](unsigned char c) {
               return std::isdigit(c) || (c >= 'a' && c <= 'f');
           });
}

}  // namespace

ModelCatalog::ModelCatalog(std::vector<ModelCatalogEntry> entries) : entries_(std::move(entries)) {}

ModelCatalog ModelCatalog::builtIn() {
    return ModelCatalog({
        whisperModel("tiny", 75, "bd577a113a864445d4c299885e0cb97d4ba92b5f", 10,
                     "fastest, least accurate"),
        whisperModel("tiny-q5_1", 31, "2827a03e495b1ed3048ef28a6a4620537db4ee51", 8,
                     "tiny, quantised"),
        whisperModel("tiny-q8_0", 42, "19e8118f6652a650569f5a949d962154e01571d9", 9,
                     "tiny, quantised"),
        whisperModel("base", 142, "465707469ff3a37a2b9b8d8f89f2f99de7299dac", 20, "fast"),
        whisperModel("base-q5_1", 57, "a3733eda680ef76256db5fc5dd9de8629e62c5e7", 18,
                     "base, quantised"),
        whisperModel("base-q8_0", 78, "7bb89bb49ed6955013b166f1b6a6c04584a20fbe", 19,
                     "base, quantised"),
        whisperModel("small", 466, "55356645c2b361a969dfd0ef2c5a50d530afd8d5", 40, "balanced"),
        whisperModel("small-q5_1", 181, "6fe57ddcfdd1c6b07cdcc73aaf620810ce5fc771", 38,
                     "small, quantised"),
        whisperModel("small-q8_0", 252, "bcad8a2083f4e53d648d586b7dbc0cd673d8afad", 39,
                     "small, quantised"),
        whisperModel("medium", 1536, "fd9727b6e1217c2f614f9b698455c4ffd82463b4", 60,
                     "accurate, slow"),
        whisperModel("medium-q5_0", 514, "7718d4c1ec62ca96998f058114db98236937490e", 58,
                     "medium, quantised"),
        whisperModel("medium-q8_0", 785, "e66645948aff4bebbec71b3485c576f3d63af5d6", 59,
                     "medium, quantised"),
        whisperModel("large-v2", 2970, "0f4c8e34f21cf1a914c59d8b3ce882345ad349d6", 80,
                     "very accurate, very slow"),
        whisperModel("large-v2-q5_0", 1126, "00e39f2196344e901b3a2bd5814807a769bd1630", 79,
                     "large-v2, quantised"),
        whisperModel("large-v3", 2970, "ad82bf6a9043ceed055076d0fd39f5f186ff8062", 85,
                     "most accurate multilingual, very slow"),
        whisperModel("large-v3-q5_0", 1126, "e6e2ed78495d403bef4b7cff42ef4aaadcfea8de", 84,
                     "large-v3, quantised"),
        whisperModel("large-v3-turbo", 1536, "4af2b29d7ec73d781377bfd1758ca957a807e941", 75,
                     "large-v3 accuracy at medium speed"),
        whisperModel("large-v3-turbo-q5_0", 547, "e050f7970618a659205450ad97eb95a18d69c9ee", 73,
                     "large-v3-turbo, quantised"),
        whisperModel("large-v3-turbo-q8_0", 834, "01bf15bedffe9f39d65c1b6ff9b687ea91f59e0e", 74,
                     "large-v3-turbo, quantised"),
        kotobaModel("v1.0", 1450, 90),
        kotobaModel("v2.0", 1450, 95),
    });
}

ModelCatalog ModelCatalog::fromJsonFile(const std::filesystem::path& file) {
    const Json document = jsonfile::parse(file, readWholeFile(file));
    const auto fail = [&file](const std::string& what) {
        throw DecodingError(file.string() + ": " + what);
    };
    if (!document.is_array()) {
        fail("expected an array of models");
    }
    // Read as the records read integers: nlohmann's own conversion would wrap -1 to a size near
    // 2^64 and convert 1e30 with undefined behaviour.
    const auto wholeNumber = [&fail](const Json& value, const char* member, std::int64_t lowest,
                                     std::int64_t highest) {
        std::int64_t number = 0;
        try {
            number = json::Decode<std::int64_t>::from(value);
        } catch (const DecodingError& error) {
            fail(std::string("member \"") + member + "\": " + error.what());
        }
        if (number < lowest || number > highest) {
            fail(std::string("member \"") + member +
                 "\" is out of range: " + std::to_string(number));
        }
        return number;
    };
    std::vector<ModelCatalogEntry> entries;
    for (const Json& item : document) {
        try {
            ModelCatalogEntry entry;
            entry.name = item.at("name").get<std::string>();
            entry.url = item.at("url").get<std::string>();
            entry.sizeBytes = static_cast<std::uint64_t>(
                wholeNumber(item.at("sizeBytes"), "sizeBytes", 0, INT64_MAX));
            entry.fileName = item.value("fileName", entry.url.substr(entry.url.rfind('/') + 1));
            entry.sizeIsExact = item.value("sizeIsExact", false);
            entry.sha1 = lowered(item.value("sha1", std::string()));
            entry.sha256 = lowered(item.value("sha256", std::string()));
            entry.languages = item.value("languages", std::vector<std::string>());
            entry.rank = item.contains("rank")
                             ? static_cast<int>(wholeNumber(item["rank"], "rank", INT_MIN, INT_MAX))
                             : 0;
            entry.description = item.value("description", std::string());
            // A control character (a NUL above all: the file and its record would share a name
            // as the system sees it) has no business in a file name.
            const bool controlCharacter =
                std::any_of(entry.fileName.begin(), entry.fileName.end(),
                            [](unsigned char c) { return c < 0x20 || c == 0x7F; });
            if (entry.name.empty() || entry.fileName.empty() || controlCharacter ||
                entry.fileName.find('/') != std::string::npos || entry.fileName[0] == '.') {
                fail("model \"" + entry.name + "\" has no usable file name");
            }
            if ((!entry.sha1.empty() && !isHexDigest(entry.sha1, 40)) ||
                (!entry.sha256.empty() && !isHexDigest(entry.sha256, 64))) {
                fail("model \"" + entry.name + "\" has a malformed checksum");
            }
            entries.push_back(std::move(entry));
        } catch (const Json::exception& error) {
            fail(error.what());
        }
    }
    return ModelCatalog(std::move(entries));
}

const ModelCatalogEntry* ModelCatalog::find(std::string_view name) const {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [name](const ModelCatalogEntry& e) { return e.name == name; });
    return found == entries_.end() ? nullptr : &*found;
}

std::vector<const ModelCatalogEntry*> ModelCatalog::modelsForLanguage(
    const std::string& language) const {
    std::vector<const ModelCatalogEntry*> result;
    for (const ModelCatalogEntry& entry : entries_) {
        if (serves(entry, language)) {
            result.push_back(&entry);
        }
    }
    std::stable_sort(
        result.begin(), result.end(),
        [](const ModelCatalogEntry* a, const ModelCatalogEntry* b) { return a->rank > b->rank; });
    return result;
}

bool ModelCatalog::serves(const ModelCatalogEntry& entry, const std::string& language) {
    const std::vector<std::string>& languages =
        entry.languages.empty() ? whisperLanguages() : entry.languages;
    return std::find(languages.begin(), languages.end(), language) != languages.end();
}

std::string ModelCatalog::sizeText(std::uint64_t bytes) {
    char text[32];
    if (bytes >= 1'000'000'000) {
        std::snprintf(text, sizeof text, "%.1f GB", static_cast<double>(bytes) / 1e9);
    } else {
        // Below 10 MB the tenths still tell two small models apart.
        std::snprintf(text, sizeof text, bytes < 10'000'000 ? "%.1f MB" : "%.0f MB",
                      static_cast<double>(bytes) / 1e6);
    }
    return text;
}

std::string ModelCatalog::languageOfLocale(std::string_view locale) {
    return lowered(locale.substr(0, locale.find_first_of("-_.@")));
}

const std::vector<std::string>& ModelCatalog::whisperLanguages() {
    static const std::vector<std::string> languages = {
        "en", "zh", "de", "es",  "ru", "ko", "fr", "ja", "pt", "tr", "pl", "ca", "nl", "ar", "sv",
        "it", "id", "hi", "fi",  "vi", "he", "uk", "el", "ms", "cs", "ro", "da", "hu", "ta", "no",
        "th", "ur", "hr", "bg",  "lt", "la", "mi", "ml", "cy", "sk", "te", "fa", "lv", "bn", "sr",
        "az", "sl", "kn", "et",  "mk", "br", "eu", "is", "hy", "ne", "mn", "bs", "kk", "sq", "sw",
        "gl", "mr", "pa", "si",  "km", "sn", "yo", "so", "af", "oc", "ka", "be", "tg", "sd", "gu",
        "am", "yi", "lo", "uz",  "fo", "ht", "ps", "tk", "nn", "mt", "sa", "lb", "my", "bo", "tl",
        "mg", "as", "tt", "haw", "ln", "ha", "ba", "jw", "su", "yue"};
    return languages;
}

}  // namespace kelvo
