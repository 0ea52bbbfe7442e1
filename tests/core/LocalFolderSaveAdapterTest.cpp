#include "core/services/LocalFolderSaveAdapter.h"

#include <gtest/gtest.h>

#include <ctime>
#include <memory>

#include "tests/core/TemporaryFolder.h"

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using testing::contentsOf;
using testing::ScopedEnvironment;
using testing::TemporaryFolder;

/// 2025-03-14 00:05:00 UTC, which is 09:05 in Tokyo.
constexpr double kCreatedUnixSeconds = 1741910700.0;
/// What the injected clock says during a save.
constexpr double kNowUnixSeconds = 1741911000.75;

class LocalFolderSaveAdapterTest : public ::testing::Test {
  protected:
    // File names use local time; Tokyo makes a UTC slip visible.
    LocalFolderSaveAdapterTest() { ::tzset(); }

    /// An adapter whose resolver hands out `base` (or nothing) and counts releases.
    LocalFolderSaveAdapter adapter(std::optional<fs::path> base, fs::path fallback = {}) {
        return LocalFolderSaveAdapter(
            [base, releases = releases_]() -> std::optional<ScopedURL> {
                if (!base) {
                    return std::nullopt;
                }
                return ScopedURL{*base, [releases] { ++*releases; }};
            },
            fallback.empty() ? temp_.path() / "fallback" : fallback,
            [] { return Date::fromUnixSeconds(kNowUnixSeconds); });
    }

    static MarkdownDocument document(std::string title, std::string body = "本文") {
        MarkdownDocument document;
        document.title = std::move(title);
        document.body = std::move(body);
        document.createdAt = Date::fromUnixSeconds(kCreatedUnixSeconds);
        return document;
    }
    static SaveRequest request(OverwritePolicy policy = OverwritePolicy::createNew,
                               std::optional<std::string> subpath = std::nullopt) {
        SaveRequest request;
        request.destinationID = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";
        request.fileName = "ignored.md";
        request.subpath = std::move(subpath);
        request.overwritePolicy = policy;
        return request;
    }

    int releases() const { return *releases_; }

    ScopedEnvironment zone_{"TZ", "JST-9"};
    TemporaryFolder temp_;
    fs::path vault_ = temp_.path() / "vault";
    std::shared_ptr<int> releases_ = std::make_shared<int>(0);
};

TEST_F(LocalFolderSaveAdapterTest, FileNameIsLocalDateAndCleanedTitle) {
    const struct {
        const char* title;
        const char* fileName;
    } cases[] = {
        {"Team sync 2/3", "2025-03-14-0905-Team-sync-23.md"},
        {"議事録 第2回（案）", "2025-03-14-0905-議事録-第2回案.md"},
        {"snake_case-and.dots!?", "2025-03-14-0905-snake_case-anddots.md"},
        {"café\xcc\x81 ok", "2025-03-14-0905-café\xcc\x81-ok.md"},  // marks survive
        {"", "2025-03-14-0905-.md"},
        {"?!/", "2025-03-14-0905-.md"},
    };
    for (const auto& [title, fileName] : cases) {
        SCOPED_TRACE(title);
        EXPECT_EQ(LocalFolderSaveAdapter::fileName(document(title)), fileName);
    }
    // A long title is cut after a whole character (here "か" and a combining voiced mark, six
    // bytes), short enough for a name of at most 255 bytes with a timestamp added. Combining marks
    // alone are one character, here too long for a name: cut between marks.
    std::string voiced;
    std::string marks;
    for (int i = 0; i < 200; ++i) {
        voiced += "か\u3099";
        marks += "\xcc\x81";
    }
    EXPECT_EQ(LocalFolderSaveAdapter::fileName(document(voiced)),
              "2025-03-14-0905-" + voiced.substr(0, 35 * 6) + ".md");
    EXPECT_EQ(LocalFolderSaveAdapter::fileName(document(marks)),
              "2025-03-14-0905-" + marks.substr(0, 214) + ".md");
}

TEST_F(LocalFolderSaveAdapterTest, FileTextListsFrontmatterByKeyThenTagsThenBody) {
    MarkdownDocument note = document("title", "line 1\nline 2");
    note.frontmatter["title"] = FrontmatterValue::string("say \"hi\"");
    note.frontmatter["count"] = FrontmatterValue::integer(-3);
    note.frontmatter["draft"] = FrontmatterValue::boolean(false);
    note.frontmatter["done"] = FrontmatterValue::boolean(true);
    note.frontmatter["aliases"] = FrontmatterValue::array({"a b", "c\"d", "e\n---\\"});
    note.frontmatter["empty"] = FrontmatterValue::array({});
    note.tags = {"kelvo-voice", "会議", "x\ny"};

    EXPECT_EQ(LocalFolderSaveAdapter::fileText(note),
              "---\n"
              "aliases:\n"
              "  - \"a b\"\n"
              "  - \"c\"d\"\n"
              "  - \"e\\n---\\\\\"\n"  // what would break the note is escaped
              "count: -3\n"
              "done: true\n"
              "draft: false\n"
              "empty: []\n"
              "title: \"say \"hi\"\"\n"
              "tags:\n"
              "  - kelvo-voice\n"
              "  - 会議\n"
              "  - \"x\\ny\"\n"
              "---\n"
              "\n"
              "line 1\nline 2");

    EXPECT_EQ(LocalFolderSaveAdapter::fileText(document("t", "")), "---\n---\n\n");
}

TEST_F(LocalFolderSaveAdapterTest, ExistingFileUnderEachPolicy) {
    LocalFolderSaveAdapter saver = adapter(vault_);
    const auto save = [&](const std::string& body, OverwritePolicy policy) {
        return saver.save(document("memo", body), request(policy));
    };
    // Without a clash appendTimestamp keeps the plain name.
    const fs::path plain = vault_ / "2025-03-14-0905-memo.md";
    EXPECT_EQ(save("old", OverwritePolicy::appendTimestamp).savedURL, plain);
    EXPECT_EQ(save("new", OverwritePolicy::createNew),
              (SaveResult{false, std::nullopt, SaveDestinationType::localFolder,
                          "File already exists at " + plain.string()}));
    EXPECT_EQ(contentsOf(plain), "---\n---\n\nold");
    EXPECT_EQ(releases(), 2);

    const fs::path stamped = vault_ / "2025-03-14-0905-memo-1741911000.md";
    EXPECT_EQ(save("stamped", OverwritePolicy::appendTimestamp).savedURL, stamped);
    EXPECT_EQ(contentsOf(stamped), "---\n---\n\nstamped");
    EXPECT_EQ(contentsOf(plain), "---\n---\n\nold");
    // The stamped name is not tested again: a second clash in the same second replaces it.
    EXPECT_TRUE(save("again", OverwritePolicy::appendTimestamp).success);
    EXPECT_EQ(contentsOf(stamped), "---\n---\n\nagain");

    EXPECT_EQ(save("replaced", OverwritePolicy::overwrite).savedURL, plain);
    EXPECT_EQ(contentsOf(plain), "---\n---\n\nreplaced");
    EXPECT_EQ(releases(), 5);
    // Every write went through a temporary file, and none is left beside the notes.
    EXPECT_EQ(std::distance(fs::directory_iterator(vault_), fs::directory_iterator()), 2);
}

// Where each note goes, or why it does not; every folder handed out is released once.
TEST_F(LocalFolderSaveAdapterTest, FolderSubpathAndWhatStandsInTheWay) {
    const fs::path outside = temp_.path() / "outside";
    fs::create_directories(vault_ / "inside");
    fs::create_directories(vault_ / "2025-03-14-0905-folder.md");
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, vault_ / "escape");
    fs::create_directory_symlink(vault_ / "inside", vault_ / "alias");
    fs::create_symlink(temp_.path() / "nowhere", vault_ / "2025-03-14-0905-dangling.md");
    const fs::path blocker = temp_.write("vault/blocker", "file");
    const std::string leaves = "Subpath leads outside the destination folder: ";
    const struct {
        std::optional<fs::path> folder;
        std::string title;
        std::optional<std::string> subpath;
        std::string outcome;  // the saved file, or the start of the error
    } cases[] = {
        {vault_, "memo", std::nullopt, (vault_ / "2025-03-14-0905-memo.md").string()},
        {std::nullopt, "memo", std::nullopt,
         (temp_.path() / "fallback" / "2025-03-14-0905-memo.md").string()},
        {vault_, "memo", "会議/2025/03",
         (vault_ / "会議/2025/03/2025-03-14-0905-memo.md").string()},
        {vault_, "x", "", (vault_ / "2025-03-14-0905-x.md").string()},
        {vault_, "memo", "alias/sub", (vault_ / "alias/sub/2025-03-14-0905-memo.md").string()},
        {vault_, "dangling", std::nullopt, "File already exists at " + vault_.string()},
        {vault_, "memo", "blocker/sub", "Failed to create directory: Not a directory"},
        {blocker, "memo", std::nullopt, "Failed to write file: "},
        // "fresh/../inside" would stay inside, but any ".." is refused before anything is made.
        {vault_, "memo", "../outside", leaves + "../outside"},
        {vault_, "memo", "/tmp", leaves + "/tmp"},
        {vault_, "memo", "inside/../../outside", leaves + "inside/../../outside"},
        {vault_, "memo", "escape", leaves + "escape"},
        {vault_, "memo", "escape/deeper", leaves + "escape/deeper"},
        {vault_, "memo", "fresh/../inside", leaves + "fresh/../inside"},
    };
    int handedOut = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.outcome);
        const SaveResult result = adapter(c.folder).save(
            document(c.title), request(OverwritePolicy::createNew, c.subpath));
        handedOut += c.folder ? 1 : 0;
        EXPECT_EQ(result.destinationType, SaveDestinationType::localFolder);
        EXPECT_EQ(result.success, result.savedURL.has_value());
        const std::string outcome = result.savedURL ? result.savedURL->string() : *result.error;
        EXPECT_TRUE(outcome.starts_with(c.outcome)) << outcome;
        EXPECT_EQ(releases(), handedOut);
    }
    EXPECT_EQ(contentsOf(vault_ / "2025-03-14-0905-memo.md"), "---\n---\n\n本文");
    EXPECT_EQ(contentsOf(blocker), "file");
    EXPECT_FALSE(fs::exists(temp_.path() / "nowhere"));
    EXPECT_FALSE(fs::exists(vault_ / "fresh"));
    EXPECT_TRUE(fs::is_empty(outside));
    // A folder where the note would go cannot be overwritten by it.
    const auto onto = adapter(vault_).save(document("folder"), request(OverwritePolicy::overwrite));
    EXPECT_TRUE(onto.error.value_or("").starts_with("Failed to write file: ")) << *onto.error;

    // A resolver that throws gives no folder either.
    LocalFolderSaveAdapter throwing(
        []() -> std::optional<ScopedURL> { throw std::runtime_error("keychain locked"); },
        temp_.path() / "fallback", [] { return Date::fromUnixSeconds(kNowUnixSeconds); });
    EXPECT_EQ(throwing.save(document("memo2"), request()).savedURL,
              temp_.path() / "fallback" / "2025-03-14-0905-memo2.md");
}

}  // namespace
}  // namespace kelvo
