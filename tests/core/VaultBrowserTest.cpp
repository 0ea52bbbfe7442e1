#include "core/services/VaultBrowser.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>

#include "tests/core/TemporaryFolder.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::Pair;
using testing::ScopedEnvironment;
using testing::TemporaryFolder;

constexpr double kTenOClock = 1741914000.0;  // 2025-03-14 01:00 UTC
constexpr double kNineOClock = kTenOClock - 3600;

void setModified(const fs::path& path, double unixSeconds) {
    const timespec time{static_cast<time_t>(unixSeconds), 0};
    const timespec times[2] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

std::vector<std::string> pathsOf(const std::vector<VaultEntry>& entries) {
    std::vector<std::string> paths;
    for (const VaultEntry& entry : entries) {
        paths.push_back(entry.relativePath);
    }
    return paths;
}

template <typename Operation>
std::string errorOf(Operation&& operation) {
    return test::whatOf<VaultBrowser::Error>(operation);
}

class VaultBrowserTest : public ::testing::Test {
  protected:
    VaultBrowserTest() {
        fs::create_directories(vault_);
        manager_->saveBookmark(vault_, "vault");
    }

    /// Empty files at these paths in the vault (what they hold does not matter to a listing).
    void write(std::initializer_list<const char*> files) const {
        for (const char* file : files) {
            temp_.write(fs::path("vault") / file, "");
        }
    }

    /// Gives every item the same date, so that names decide the order.
    void setAllModified(double unixSeconds) {
        for (const auto& item : fs::recursive_directory_iterator(vault_)) {
            setModified(item.path(), unixSeconds);
        }
    }

    TemporaryFolder temp_;
    ScopedEnvironment xdg_{"XDG_CONFIG_HOME", (temp_.path() / "config").string()};
    fs::path vault_ = temp_.path() / "vault";
    std::shared_ptr<BookmarkManager> manager_ = std::make_shared<BookmarkManager>("vault-tests");
    VaultBrowser browser_{manager_, "vault"};
};

TEST_F(VaultBrowserTest, ListingKeepsFoldersAndMarkdownNotesAndSkipsHiddenItems) {
    write({"a.md", "b.MARKDOWN", "c.txt", "README", ".hidden.md", ".DS_Store",
           ".obsidian/workspace.md", "projects/plan.md", "projects/deep/idea.Md"});
    setAllModified(kTenOClock);

    const std::vector<VaultEntry> entries = browser_.list();
    EXPECT_THAT(pathsOf(entries),
                ElementsAre("a.md", "b.MARKDOWN", "projects/deep", "projects/deep/idea.Md",
                            "projects/plan.md", "projects"));
    EXPECT_EQ(entries[5],
              (VaultEntry{"projects", "projects", true, Date::fromUnixSeconds(kTenOClock)}));
}

TEST_F(VaultBrowserTest, ListingOrderIsNewestFirstThenNamesByNumericValue) {
    write({"early.md", "late.md", "note 10.md", "note 2.md"});
    fs::create_directory(vault_ / "folder");
    setAllModified(kNineOClock - 60);
    setModified(vault_ / "late.md", kTenOClock);
    setModified(vault_ / "early.md", kNineOClock);

    // Folders and notes are not grouped apart; equal dates fall back to the names.
    EXPECT_THAT(pathsOf(browser_.list()),
                ElementsAre("late.md", "early.md", "folder", "note 2.md", "note 10.md"));

    std::vector<VaultEntry> entries{
        {"undated 10", "undated 10", false, std::nullopt},
        {"nine", "nine", false, Date::fromUnixSeconds(kNineOClock)},
        {"undated 2", "undated 2", true, std::nullopt},
        {"ten", "ten", false, Date::fromUnixSeconds(kTenOClock)},
    };
    VaultBrowser::sortForListing(entries);
    EXPECT_THAT(pathsOf(entries), ElementsAre("ten", "nine", "undated 2", "undated 10"));
}

TEST(VaultBrowserParse, FrontmatterSplitEdgeCases) {
    // No front matter at all.
    VaultFile plain = VaultBrowser::parse("# Title\n---\nbody");
    EXPECT_TRUE(plain.frontmatter.empty());
    EXPECT_EQ(plain.body, "# Title\n---\nbody");

    // An opening line without a closing one: the body stays whole.
    VaultFile unclosed = VaultBrowser::parse("---\ntitle: x\nbody");
    EXPECT_TRUE(unclosed.frontmatter.empty());
    EXPECT_EQ(unclosed.body, "---\ntitle: x\nbody");

    // CRLF files split the same way; the body is joined with LF.
    VaultFile windows = VaultBrowser::parse("---\r\na: 1\r\n---\r\nline 1\r\nline 2\r\n");
    EXPECT_THAT(windows.frontmatter, ElementsAre(Pair("a", "1")));
    EXPECT_EQ(windows.body, "line 1\nline 2\n");

    // Keys and values trimmed, lines without a colon skipped, empty keys kept as written, an
    // empty body.
    VaultFile bare = VaultBrowser::parse("---\n: orphan\nno colon\n  k  :  [a, b]  \nv:\n---");
    EXPECT_THAT(bare.frontmatter,
                ElementsAre(Pair("", "orphan"), Pair("k", "[a, b]"), Pair("v", "")));
    EXPECT_EQ(bare.body, "");
    EXPECT_EQ(VaultBrowser::parse("---\n---\n\nbody").body, "\nbody");
}

TEST(VaultBrowserParse, WikiLinksFollowThePattern) {
    EXPECT_THAT(VaultBrowser::wikiLinks("[[Note|Alias]] and [[Note]]"), ElementsAre("Note"));
    EXPECT_THAT(VaultBrowser::wikiLinks("[[Note#Heading]]"), ElementsAre("Note#Heading"));
    EXPECT_THAT(VaultBrowser::wikiLinks("[[ 会議 ]] [[会議|a|b]] [[\n次回\n]]"),
                ElementsAre("会議", "次回"));
    // Nothing between the brackets, only an alias, or a "]" inside: no link.
    EXPECT_THAT(VaultBrowser::wikiLinks("[[]] [[ |alias]] [[a]b]] [[open"), ElementsAre());
    // An extra opening bracket belongs to the target, as in the pattern.
    EXPECT_THAT(VaultBrowser::wikiLinks("[[[x]] [[y]]]"), ElementsAre("[x", "y"));
    // After an opening that fails at a lone "]", the search goes on behind that "]".
    EXPECT_THAT(VaultBrowser::wikiLinks("[[a [[b]c [[d]] [[x]y[[z]]"), ElementsAre("d", "z"));
}

TEST_F(VaultBrowserTest, ErrorsCarryTheJapaneseDescriptions) {
    temp_.write("vault/latin1.md", "caf\xe9");
    EXPECT_EQ(errorOf([&] { browser_.read("latin1.md"); }),
              "読み込みに失敗しました: \"latin1.md\" is not UTF-8 text");

    // (No folder at all: `kelvo vault list` before `kelvo folder set`, KelvoBinaryTest.)
    // The folder is handed out but cannot be opened (a file stands where it should be).
    const fs::path file = temp_.write("not-a-folder", "");
    const VaultBrowser denied([file] { return std::optional<ScopedURL>(ScopedURL{file, [] {}}); });
    EXPECT_EQ(errorOf([&] { denied.list(); }), "保存先フォルダにアクセスできません");
}

TEST_F(VaultBrowserTest, FallbackKeyServesAndEveryOperationReleasesTheFolderOnce) {
    temp_.write("vault/a.md", "a");
    EXPECT_THAT(pathsOf(VaultBrowser(manager_, "unset", "vault").list()), ElementsAre("a.md"));
    auto releases = std::make_shared<int>(0);
    const VaultBrowser browser([this, releases] {
        return std::optional<ScopedURL>(ScopedURL{vault_, [releases] { ++*releases; }});
    });
    browser.list();
    browser.read("a.md");
    browser.search("a");
    EXPECT_THROW(browser.read("missing.md"), VaultBrowser::Error);
    EXPECT_EQ(*releases, 4);
}

TEST_F(VaultBrowserTest, MissingFoldersAndPathsLeavingTheVaultAreNotFound) {
    temp_.write("secret.md", "outside");
    temp_.write("outside/other.md", "outside");
    temp_.write("vault/inside.md", "inside");
    fs::create_symlink(temp_.path() / "secret.md", vault_ / "leak.md");
    fs::create_directory_symlink(temp_.path() / "outside", vault_ / "portal");
    fs::create_symlink(vault_ / "inside.md", vault_ / "alias.md");
    fs::create_directory_symlink(vault_, vault_ / "loop");

    // Nothing there, a folder, or a path that leaves the vault: one answer for all.
    fs::create_directory(vault_ / "folder");
    for (const std::string& path : std::vector<std::string>{
             "missing.md", "folder", "../secret.md", (temp_.path() / "secret.md").string(),
             "inside.md/../../secret.md", "leak.md", "portal/other.md", "", "."}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(errorOf([&] { browser_.read(path); }), "見つかりません: " + path);
    }
    EXPECT_EQ(browser_.read("alias.md").body, "inside");

    // Links are never descended into; a link to a note is listed only when the note is inside.
    setAllModified(kTenOClock);
    EXPECT_THAT(pathsOf(browser_.list()), ElementsAre("alias.md", "folder", "inside.md"));
}

TEST_F(VaultBrowserTest, SearchMatchesNoteNamesWithoutExtension) {
    write({"Note 2.md", "my NOTE.markdown", "notes/other.md", "note.txt", "会議メモ.md",
           "cafe\xcc\x81.md"});  // a decomposed é
    setAllModified(kTenOClock);

    EXPECT_THAT(pathsOf(browser_.search("  note \n")),
                ElementsAre("my NOTE.markdown", "Note 2.md"));
    EXPECT_THAT(pathsOf(browser_.search("md")), ElementsAre());
    EXPECT_THAT(pathsOf(browser_.search("メモ")), ElementsAre("会議メモ.md"));
    EXPECT_THAT(pathsOf(browser_.search("CAFÉ")), ElementsAre("cafe\xcc\x81.md"));
    EXPECT_EQ(browser_.search(" ").size(), 5u);
}

}  // namespace
}  // namespace kelvo
