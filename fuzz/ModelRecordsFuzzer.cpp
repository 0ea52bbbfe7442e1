// The two JSON files of the model inventory: a replacement catalogue (`kelvo models --catalog`,
// a mirror's list) and the "<model>.verified" record beside an installed model. The first byte
// picks the file and, for a record, the catalogue entry it is measured against; the rest is the
// file. Contract: a catalogue reads or fails with DecodingError naming the file, and its entries
// have usable file names and well-formed digests; whatever a record holds, the inventory answers
// every question about the model without failing, and calls it installed exactly when it has a
// verification text.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "core/services/ModelCatalog.h"
#include "core/services/ModelInventory.h"
#include "fuzz/FuzzCheck.h"

namespace {

using namespace kelvo;

// A folder of this process's own under the temporary folder, made once and reused.
const std::filesystem::path& scratchFolder() {
    static const std::filesystem::path folder = [] {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kelvo-fuzz-models-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            fuzz::fail("cannot create a scratch folder");
        }
        std::ofstream(std::filesystem::path(pattern) / "model.bin", std::ios::binary) << "abc";
        std::atexit([] { std::filesystem::remove_all(scratchFolder()); });
        return std::filesystem::path(pattern);
    }();
    return folder;
}

void writeFile(const std::filesystem::path& path, std::string_view data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data.data(), static_cast<std::streamsize>(data.size()));
    fuzz::check(out.good(), "cannot write a scratch file");
}

bool isLowerHex(const std::string& text, std::size_t length) {
    return text.size() == length && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

void checkCatalogue(std::string_view data) {
    const std::filesystem::path file = scratchFolder() / "catalog.json";
    writeFile(file, data);
    std::vector<ModelCatalogEntry> entries;
    try {
        entries = ModelCatalog::fromJsonFile(file).entries();
    } catch (const DecodingError& error) {
        fuzz::check(std::string_view(error.what()).starts_with(file.string() + ": "),
                    "a catalogue error does not name the file", error.what());
        return;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        fuzz::fail("reading a catalogue failed with another error", error.what());
    }
    for (const ModelCatalogEntry& entry : entries) {
        fuzz::check(!entry.name.empty() && !entry.fileName.empty() &&
                        entry.fileName.find('/') == std::string::npos && entry.fileName[0] != '.',
                    "a catalogue entry without a usable file name", entry.fileName);
        fuzz::check((entry.sha1.empty() || isLowerHex(entry.sha1, 40)) &&
                        (entry.sha256.empty() || isLowerHex(entry.sha256, 64)),
                    "a catalogue entry with a malformed digest", entry.name);
    }
    ModelCatalog(entries).modelsForLanguage("ja");
}

void checkRecord(std::uint8_t selector, std::string_view data) {
    ModelCatalogEntry entry;
    entry.name = "fuzz";
    entry.fileName = "model.bin";
    entry.url = "https://models.invalid/model.bin";
    entry.sizeBytes = 3;
    entry.sizeIsExact = (selector & 2) != 0;
    if ((selector & 4) != 0) {
        entry.sha1 = "a9993e364706816aba3e25717850c26c9cd0d89d";  // of "abc", the model file
    }
    if ((selector & 8) != 0) {
        entry.languages = {"ja"};
    }
    const ModelInventory inventory(ModelCatalog({entry}), scratchFolder());
    writeFile(inventory.recordFile(entry), data);

    bool installed = false;
    std::optional<std::string> verification;
    fuzz::mustNotFail("the inventory failed over a record", [&] {
        installed = inventory.isInstalled(entry);
        verification = inventory.verificationText(entry);
        inventory.status(entry);
        inventory.installedModels();
        inventory.modelForLocale("ja-JP");
        inventory.installedLanguages();
    });
    fuzz::check(installed == verification.has_value(),
                "installed and verified disagree over a record");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view file(reinterpret_cast<const char*>(data + 1), size - 1);
    if ((data[0] & 1) == 0) {
        checkCatalogue(file);
    } else {
        checkRecord(data[0], file);
    }
    return 0;
}
