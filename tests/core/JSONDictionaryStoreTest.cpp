#include "core/services/JSONDictionaryStore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "core/support/Error.h"
#include "core/support/Uuid.h"
#include "tests/core/FileSizeLimit.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/RefusedFifo.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

using testing::contentsOf;

DictionaryEntry tokyo() {
    return DictionaryEntry{
        "3F2504E0-4F89-11D3-9A0C-0305E82C3301", "東京", {"とうきょう"}, {}, "", 10, true, "首都"};
}

class JSONDictionaryStoreTest : public ::testing::Test {
  protected:
    testing::TemporaryFolder folder;
    std::filesystem::path file = folder.path() / "dictionary.json";
    std::vector<std::filesystem::path> saved;
    JSONDictionaryStore store{file,
                              [this](const std::filesystem::path& url) { saved.push_back(url); }};
};

TEST_F(JSONDictionaryStoreTest, SaveWritesAPrettyPrintedArrayAndCallsDidSaveOnce) {
    DictionaryEntry disabled = tokyo();
    disabled.id = "00000000-0000-0000-0000-000000000002";
    disabled.enabled = false;
    store.saveEntries({tokyo(), disabled});

    // Two-space indentation, keys in declaration order, Japanese unescaped: what the general
    // serialiser writes (JsonFile's and the record encoders' tests pin both).
    EXPECT_EQ(contentsOf(file), Json(std::vector<DictionaryEntry>{tokyo(), disabled}).dump(2));
    EXPECT_EQ(saved, std::vector<std::filesystem::path>{file});
    // Loaded back as stored: disabled entries and order included.
    EXPECT_EQ(store.loadEntries(), (std::vector<DictionaryEntry>{tokyo(), disabled}));

    store.saveEntries({});
    EXPECT_EQ(contentsOf(file), "[]");
    EXPECT_EQ(saved.size(), 2u);
}

// A damaged file fails the load naming it and is left alone; the editor may save after that, and
// the list the user could not load then survives beside the new file.
TEST_F(JSONDictionaryStoreTest, DamagedFilesFailTheLoadAndAreMovedAsideByASave) {
    Json entries = Json::array({Json(tokyo()), Json(tokyo())});
    entries[1].erase("priority");
    for (const auto& [text, error] :
         {std::pair<std::string, std::string>{"[{]", ": invalid JSON: "},
          {entries.dump(), ": element 1: missing required member \"priority\""},
          {R"({"entries": []})", ": expected an array, found object"}}) {
        folder.write("dictionary.json", text);
        const std::string shown = test::whatOf<DecodingError>([&] { store.loadEntries(); });
        EXPECT_TRUE(shown.starts_with(file.string() + error)) << shown;
        EXPECT_EQ(contentsOf(file), text);
    }
    EXPECT_TRUE(saved.empty());

    std::vector<std::pair<std::filesystem::path, std::string>> reports;
    JSONDictionaryStore reporting(
        file, {},
        [&](const std::filesystem::path& damaged, const std::filesystem::path& movedTo,
            const std::string& reason) {
            EXPECT_EQ(damaged, file);
            reports.emplace_back(movedTo, reason);
        });
    folder.write("dictionary.json", "[{]");
    reporting.saveEntries({tokyo()});
    EXPECT_EQ(reporting.loadEntries(), std::vector<DictionaryEntry>{tokyo()});
    ASSERT_EQ(reports.size(), 1u);
    const auto& [movedTo, reason] = reports[0];
    EXPECT_EQ(movedTo.parent_path(), file.parent_path());
    EXPECT_TRUE(movedTo.filename().string().starts_with("dictionary.json.damaged-")) << movedTo;
    EXPECT_EQ(contentsOf(movedTo), "[{]");
    EXPECT_TRUE(reason.starts_with(file.string() + ": invalid JSON: ")) << reason;
    reporting.saveEntries({});
    EXPECT_EQ(reports.size(), 1u);
}

TEST_F(JSONDictionaryStoreTest, FailedSaveKeepsThePreviousFileAndSkipsDidSave) {
    store.saveEntries({tokyo()});
    const std::string before = contentsOf(file);
    saved.clear();
    {
        const testing::FileSizeLimit limit(64);
        EXPECT_THROW(store.saveEntries(std::vector<DictionaryEntry>(50, tokyo())), FileError);
    }
    EXPECT_EQ(contentsOf(file), before);
    EXPECT_TRUE(saved.empty());
    // No temporary file is left beside it.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);

    // A missing file is an empty dictionary; a save never creates the folder.
    JSONDictionaryStore elsewhere(folder.path() / "missing" / "dictionary.json");
    EXPECT_TRUE(elsewhere.loadEntries().empty());
    EXPECT_THROW(elsewhere.saveEntries({tokyo()}), FileError);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "missing"));
}

TEST_F(JSONDictionaryStoreTest, ConcurrentUpdatesLoseNoEntry) {
    constexpr int kPerWriter = 40;
    const auto writer = [this](const std::string& prefix) {
        JSONDictionaryStore own(file);
        for (int i = 0; i < kPerWriter; ++i) {
            own.updateEntries([&](std::vector<DictionaryEntry>& entries) {
                DictionaryEntry entry = tokyo();
                entry.id = makeUuid();
                entry.canonicalText = prefix + std::to_string(i);
                entries.push_back(entry);
            });
        }
    };
    std::thread first(writer, "a");
    std::thread second(writer, "b");
    first.join();
    second.join();
    EXPECT_EQ(store.loadEntries().size(), 2u * kPerWriter);
}

TEST_F(JSONDictionaryStoreTest, LinkStaysALinkAndUnknownMembersSurviveASave) {
    std::filesystem::create_directory(folder.path() / "real");
    Json old = Json(std::vector<DictionaryEntry>{tokyo()});
    old[0]["colour"] = "blue";
    folder.write("real/d.json", old.dump(2));
    std::filesystem::create_symlink(folder.path() / "real/d.json", file);

    auto entries = store.loadEntries();
    entries[0].note.reset();  // a known optional member removed on purpose stays removed
    store.saveEntries(entries);
    EXPECT_TRUE(std::filesystem::is_symlink(file));
    Json written = Json::parse(contentsOf(folder.path() / "real/d.json"));
    EXPECT_EQ(written[0]["colour"], "blue");
    EXPECT_FALSE(written[0].contains("note"));
}

TEST_F(JSONDictionaryStoreTest, FolderFifoOrDeviceIsRefusedWithAClearError) {
    std::filesystem::create_directory(folder.path() / "folder");
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    const std::pair<std::filesystem::path, std::string> cases[] = {
        {folder.path() / "folder", "is a folder"},
        {file, "is not a regular file"},
        {"/dev/zero", "is not a regular file"}};
    for (const auto& [path, reason] : cases) {
        const std::string error = test::whatOfRefusedFifo<FileError>(
            file, [&] { JSONDictionaryStore(path).loadEntries(); });
        EXPECT_NE(error.find(path.string() + "\" " + reason), std::string::npos) << error;
    }
}

}  // namespace
}  // namespace kelvo
