#include "core/services/BookmarkManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>
#include <vector>

#include "core/models/Json.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using testing::ScopedEnvironment;
using testing::TemporaryFolder;

class BookmarkManagerTest : public ::testing::Test {
  protected:
    fs::path suiteFile(const std::string& suite) const {
        return configHome_ / "KelvoVoiceMac" / (suite + ".json");
    }
    Json suiteContents(const std::string& suite) const {
        return Json::parse(testing::contentsOf(suiteFile(suite)));
    }
    fs::path makeFolder(const std::string& name) const {
        const fs::path folder = temp_.path() / name;
        fs::create_directories(folder);
        return folder;
    }

    TemporaryFolder temp_;
    fs::path configHome_ = temp_.path() / "config";
    ScopedEnvironment xdg_{"XDG_CONFIG_HOME", configHome_.string()};
};

std::uint64_t inodeOf(const fs::path& path) {
    struct stat status {};
    ::stat(path.c_str(), &status);
    return status.st_ino;
}

TEST_F(BookmarkManagerTest, BookmarkIsThereBetweenSaveAndRemove) {
    const BookmarkManager manager("com.example.kelvo");
    const fs::path vault = makeFolder("Vault ノート");

    EXPECT_FALSE(manager.hasBookmark("vault"));
    EXPECT_EQ(manager.resolveURL("vault"), std::nullopt);

    manager.saveBookmark(vault, "vault");
    EXPECT_TRUE(manager.hasBookmark("vault"));
    EXPECT_EQ(manager.resolveURL("vault"), vault);
    // (A later launch sees it: `kelvo folder set`, then `kelvo save`, KelvoBinaryTest.)

    manager.removeBookmark("vault");
    EXPECT_FALSE(manager.hasBookmark("vault"));
    EXPECT_EQ(manager.resolveURL("vault"), std::nullopt);
    manager.removeBookmark("vault");  // nothing left: still fine

    // The saved path is canonical: a linked or dotted path resolves to the folder itself.
    fs::create_directory_symlink(vault, temp_.path() / "link");
    manager.saveBookmark(temp_.path() / "link", "linked");
    manager.saveBookmark(vault / ".." / vault.filename(), "dotted");
    EXPECT_EQ(manager.resolveURL("linked"), vault);
    EXPECT_EQ(manager.resolveURL("dotted"), vault);
}

// A suite name that is no file name, a configuration home that cannot be made, a folder that is
// not one: the save fails with its case and message, and nothing is bookmarked.
TEST_F(BookmarkManagerTest, SavesThatCannotBeMadeFailWithTheirCase) {
    using Case = BookmarkManager::Error::Case;
    const fs::path blocker = temp_.write("blocker", "not a folder");
    const fs::path vault = makeFolder("vault");
    const struct {
        std::string suite;
        fs::path configHome;
        fs::path folder;
        std::string reason;  // the system's, when the folder is refused
    } cases[] = {
        {"", configHome_, vault, ""},
        {".", configHome_, vault, ""},
        {"..", configHome_, vault, ""},
        {"a/b", configHome_, vault, ""},
        {"/etc", configHome_, vault, ""},
        // Below a regular file no configuration home can be created, whoever runs the test.
        {"suite", blocker / "config", vault, ""},
        {"suite", configHome_, temp_.path() / "missing", "No such file or directory"},
        {"suite", configHome_, blocker, "Not a directory"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.suite + " " + c.folder.string());
        const ScopedEnvironment xdg("XDG_CONFIG_HOME", c.configHome.string());
        const BookmarkManager manager(c.suite);
        const auto error =
            test::thrown<BookmarkManager::Error>([&] { manager.saveBookmark(c.folder, "key"); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->errorCase(),
                  c.reason.empty() ? Case::userDefaultsUnavailable : Case::bookmarkCreationFailed);
        EXPECT_EQ(error->what(), c.reason.empty() ? "Unable to open UserDefaults suite: " + c.suite
                                                  : "Failed to create bookmark: " + c.reason);
        EXPECT_EQ(manager.defaults().has_value(), c.suite == "suite");
        EXPECT_FALSE(manager.hasBookmark("key"));
        EXPECT_EQ(manager.resolveScopedURL("key"), std::nullopt);
        manager.removeBookmark("key");
    }
    // A relative configuration home is ignored for ~/.config.
    const ScopedEnvironment relative("XDG_CONFIG_HOME", "relative/config");
    const ScopedEnvironment home("HOME", (temp_.path() / "home").string());
    EXPECT_EQ(BookmarkManager("suite").defaults(),
              temp_.path() / "home" / ".config" / "KelvoVoiceMac" / "suite.json");
}

TEST_F(BookmarkManagerTest, UnreadableDataResolvesToNothing) {
    const BookmarkManager manager("suite");
    const fs::path vault = makeFolder("vault");
    const Json suite = {{"garbage", "\x01\x02 not a bookmark"},
                        {"noIdentity", Json{{"path", vault.string()}}.dump()},
                        {"relative", Json{{"path", "vault"}, {"device", 1}, {"inode", 2}}.dump()},
                        {"notData", 42}};
    temp_.write("config/KelvoVoiceMac/suite.json", suite.dump());

    // (A scoped URL is the resolved one wrapped: one check serves both.)
    for (const char* key : {"garbage", "noIdentity", "relative", "notData", "absent"}) {
        EXPECT_EQ(manager.resolveURL(key), std::nullopt) << key;
    }
    EXPECT_TRUE(manager.hasBookmark("garbage"));
    EXPECT_FALSE(manager.hasBookmark("notData"));

    // A damaged suite file reads as empty, and the next write sets it aside rather than over it;
    // so does one nested too deeply to be written back (writing recurses once per level).
    std::vector<fs::path> setAside;
    const BookmarkManager watched(
        "suite", [&](const fs::path&, const fs::path& movedTo, const std::string&) {
            setAside.push_back(movedTo);
        });
    for (const std::string& damaged :
         {std::string("{ damaged"),
          "{\"deep\": " + std::string(500'000, '[') + std::string(500'000, ']') + "}"}) {
        std::ofstream(suiteFile("suite")) << damaged;
        EXPECT_FALSE(watched.hasBookmark("garbage"));
        watched.saveBookmark(vault, "vault");
        EXPECT_EQ(watched.resolveURL("vault"), vault);
        ASSERT_FALSE(setAside.empty());
        EXPECT_EQ(testing::contentsOf(setAside.back()), damaged);
    }
    EXPECT_EQ(setAside.size(), 2u);
}

TEST_F(BookmarkManagerTest, ReplacedFolderIsStaleAndTheBookmarkIsRewritten) {
    const BookmarkManager manager("suite");
    const fs::path vault = makeFolder("vault");
    manager.saveBookmark(vault, "vault");
    const std::string original = suiteContents("suite")["vault"];

    // The user's folder is moved away and a new one takes its name.
    fs::rename(vault, temp_.path() / "moved");
    fs::create_directory(vault);
    ASSERT_NE(inodeOf(vault), inodeOf(temp_.path() / "moved"));

    const auto scoped = manager.resolveScopedURL("vault");
    ASSERT_TRUE(scoped.has_value());
    EXPECT_EQ(scoped->url, vault);
    scoped->release();

    const std::string refreshed = suiteContents("suite")["vault"];
    EXPECT_NE(refreshed, original);
    EXPECT_EQ(Json::parse(refreshed)["inode"].get<std::uint64_t>(), inodeOf(vault));
    // Fresh data is not rewritten again.
    const auto modified = fs::last_write_time(suiteFile("suite"));
    EXPECT_EQ(manager.resolveURL("vault"), vault);
    EXPECT_EQ(fs::last_write_time(suiteFile("suite")), modified);

    // A file where the folder was is no folder. (Nothing there at all, and the data kept for
    // when it is back: KelvoBinaryTest's remembered folder.)
    fs::remove(vault);
    temp_.write("vault", "file");
    EXPECT_EQ(manager.resolveURL("vault"), std::nullopt);
}

TEST_F(BookmarkManagerTest, ConcurrentSavesOfDifferentKeysAreAllKept) {
    const fs::path vault = makeFolder("vault");
    std::vector<std::thread> writers;
    for (int index = 0; index < 8; ++index) {
        writers.emplace_back([&, index] {
            const BookmarkManager manager("shared");
            for (int round = 0; round < 5; ++round) {
                manager.saveBookmark(vault, "key" + std::to_string(index));
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    const BookmarkManager manager("shared");
    for (int index = 0; index < 8; ++index) {
        EXPECT_EQ(manager.resolveURL("key" + std::to_string(index)), vault) << index;
    }
}

}  // namespace
}  // namespace kelvo
