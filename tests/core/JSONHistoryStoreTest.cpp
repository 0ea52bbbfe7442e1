#include "core/services/JSONHistoryStore.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/support/Error.h"
#include "core/support/FolderLock.h"
#include "core/support/Uuid.h"
#include "tests/core/FileSizeLimit.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/RefusedFifo.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

using testing::contentsOf;

HistoryItem item(int number) {
    HistoryItem history;
    history.id = makeUuid();
    history.createdAt = Date{700000000.25 + number};
    history.request.rawText = "第" + std::to_string(number) + "項";
    history.result.rawTranscript = *history.request.rawText;
    history.result.finalText = *history.request.rawText;
    return history;
}

/// Newest first, as the store keeps them: items[0] is number `count` - 1.
std::vector<HistoryItem> items(int count) {
    std::vector<HistoryItem> list;
    for (int number = count - 1; number >= 0; --number) {
        list.push_back(item(number));
    }
    return list;
}

class JSONHistoryStoreTest : public ::testing::Test {
  protected:
    testing::TemporaryFolder folder;
    std::filesystem::path file = folder.path() / "history.json";
    JSONHistoryStore store{file};

    void storeDirectly(const std::vector<HistoryItem>& list) {
        folder.write("history.json", Json(list).dump(2));
    }
    std::vector<HistoryItem> stored() {
        return json::Decode<std::vector<HistoryItem>>::from(Json::parse(contentsOf(file)));
    }
};

TEST_F(JSONHistoryStoreTest, ADamagedFileIsMovedAsideOnceAndAFreshHistoryStarts) {
    std::vector<std::pair<std::filesystem::path, std::string>> reports;
    JSONHistoryStore reporting(file, [&](const std::filesystem::path& damaged,
                                         const std::filesystem::path& movedTo,
                                         const std::string& reason) {
        EXPECT_EQ(damaged, file);
        EXPECT_EQ(movedTo.parent_path(), file.parent_path());
        EXPECT_TRUE(movedTo.filename().string().starts_with("history.json.damaged-")) << movedTo;
        reports.emplace_back(movedTo, reason);
    });
    reporting.appendItem(item(1));
    EXPECT_TRUE(reports.empty()) << "a missing file is no damage";

    for (const char* damaged : {"not json", "{}", R"([{"id": "nope"}])", ""}) {
        SCOPED_TRACE(damaged);
        folder.write("history.json", damaged);
        const HistoryItem fresh = item(2);
        EXPECT_NO_THROW(reporting.appendItem(fresh));
        EXPECT_EQ(stored(), std::vector<HistoryItem>{fresh});
        ASSERT_FALSE(reports.empty());
        EXPECT_EQ(contentsOf(reports.back().first), damaged);
    }
    EXPECT_NE(reports[0].second.find("invalid JSON"), std::string::npos) << reports[0].second;
    // Only the newest copies are kept: the first one set aside is gone.
    std::size_t copies = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        copies += entry.path().filename().string().starts_with("history.json.damaged-");
    }
    EXPECT_EQ(copies, jsonfile::keptDamagedCopies);
    EXPECT_FALSE(std::filesystem::exists(reports.front().first));
    const std::size_t reported = reports.size();
    reporting.appendItem(item(3));
    EXPECT_EQ(reports.size(), reported);
}

// A full history (here one that somehow holds more) keeps its newest 499 behind the new record.
TEST_F(JSONHistoryStoreTest, HistoryIsCappedAtFiveHundredRecords) {
    const auto oversized = items(503);
    storeDirectly(oversized);
    const HistoryItem newest = item(1000);
    store.appendItem(newest);
    const auto after = stored();
    ASSERT_EQ(after.size(), 500u);
    EXPECT_EQ(after.front(), newest);
    EXPECT_EQ(after[1], oversized[0]);
    EXPECT_EQ(after.back(), oversized[498]);

    // One record keeps the beginning of a long text, cut at a character.
    HistoryItem longest = item(2);
    longest.result.finalText = "あ" + std::string(JSONHistoryStore::maxTextBytes, 'x');
    store.appendItem(longest);
    const std::string kept = stored().front().result.finalText;
    EXPECT_EQ(kept.size(), JSONHistoryStore::maxTextBytes);
    EXPECT_TRUE(kept.starts_with("あx") && kept.ends_with("x…"));
}

TEST_F(JSONHistoryStoreTest, NewestFirstWithDatesAsWrittenAndDamageReported) {
    EXPECT_TRUE(store.recentItems(5).empty());
    EXPECT_FALSE(std::filesystem::exists(file));
    store.appendItem(item(1));  // (where an append goes is checked with the cap)
    // Dates are plain seconds since 2001 and Japanese text is written as it is.
    const std::string text = contentsOf(file);
    EXPECT_NE(text.find("\"createdAt\": 700000001.25"), std::string::npos) << text;
    EXPECT_NE(text.find("第1項"), std::string::npos);
    EXPECT_TRUE(text.starts_with("[\n  {\n    \"id\": ")) << text;

    const auto ten = items(10);
    storeDirectly(ten);
    EXPECT_EQ(store.recentItems(3), (std::vector<HistoryItem>(ten.begin(), ten.begin() + 3)));
    EXPECT_TRUE(store.recentItems(0).empty());
    EXPECT_EQ(store.recentItems(50), ten);

    Json damaged = Json(ten);
    damaged[4]["result"].erase("finalText");
    folder.write("history.json", damaged.dump());
    EXPECT_EQ(
        test::whatOf<DecodingError>([&] { store.recentItems(3); }),
        file.string() + ": element 4: member \"result\": missing required member \"finalText\"");
    EXPECT_THROW(store.recentItems(0), DecodingError);
}

TEST_F(JSONHistoryStoreTest, FailedAppendKeepsThePreviousFile) {
    storeDirectly(items(3));
    const std::string before = contentsOf(file);
    {
        const testing::FileSizeLimit limit(before.size() / 2);
        EXPECT_THROW(store.appendItem(item(9)), FileError);
    }
    EXPECT_EQ(contentsOf(file), before);

    JSONHistoryStore elsewhere(folder.path() / "missing" / "history.json");
    EXPECT_THROW(elsewhere.appendItem(item(1)), FileError);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "missing"));
}

// Members this version does not know are written back as read, and writing JSON recurses once
// per level: a record nested this deep must count as damage, not overflow the stack.
TEST_F(JSONHistoryStoreTest, AFileNestedTooDeeplyIsDamagedNotACrash) {
    constexpr std::size_t kLevels = 500'000;
    folder.write("history.json", "[{\"x\": " + std::string(kLevels, '[') +
                                     std::string(kLevels, ']') + ", " +
                                     Json(item(2)).dump().substr(1) + "]");
    const HistoryItem fresh = item(1);
    store.appendItem(fresh);
    EXPECT_EQ(stored(), std::vector<HistoryItem>{fresh});
}

TEST_F(JSONHistoryStoreTest, ConcurrentWritersLoseNoRecord) {
    constexpr int kPerWriter = 60;
    const auto writer = [this] {
        JSONHistoryStore own(file);
        for (int i = 0; i < kPerWriter; ++i) {
            own.appendItem(item(i));
        }
    };
    std::thread first(writer);
    std::thread second(writer);
    first.join();
    second.join();
    EXPECT_EQ(stored().size(), 2u * kPerWriter);

    // A writer that never lets go makes the next one give up with a reason, not wait for ever.
    const FolderLock held(folder.path(), file);
    auto waiting = std::async(std::launch::async, [&] {
        return test::whatOf<FileError>(
            [&] { FolderLock(folder.path(), file, std::chrono::milliseconds(50)); });
    });
    ASSERT_EQ(waiting.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(waiting.get(), "Could not lock \"" + file.string() +
                                 "\": another program has been writing in its folder for 50 ms; "
                                 "try again when it has finished");
}

TEST_F(JSONHistoryStoreTest, LinkStaysALinkUnknownMembersSurviveAndLeftoversGo) {
    std::filesystem::create_directory(folder.path() / "real");
    Json old = Json(items(1));
    old[0]["fromANewerVersion"] = Json{{"kept", true}};
    old[0]["result"]["alsoNewer"] = 7;
    old[0]["request"]["summaryLevel"] = 7;  // a level added later
    old[0]["result"]["processingMode"] = "dream";
    folder.write("real/h.json", old.dump(2));
    std::filesystem::create_symlink("real/h.json", file);
    const auto leftover = folder.write("real/.h.json.Ab12Cd", "half a write");

    store.appendItem(item(5));
    EXPECT_TRUE(std::filesystem::is_symlink(file));
    // Not const: a lost member then reads as null instead of undefined behaviour.
    Json written = Json::parse(contentsOf(folder.path() / "real/h.json"));
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[1]["fromANewerVersion"]["kept"], true);
    EXPECT_EQ(written[1]["result"]["alsoNewer"], 7);
    EXPECT_EQ(written[1]["request"]["summaryLevel"], 7);
    EXPECT_EQ(written[1]["result"]["processingMode"], "dream");
    EXPECT_FALSE(std::filesystem::exists(leftover));
}

TEST_F(JSONHistoryStoreTest, FifoAtTheHistoryPathIsRefusedNotWaitedOn) {
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    for (const auto& attempt : {std::function<void()>([&] { store.appendItem(item(1)); }),
                                std::function<void()>([&] { store.recentItems(1); })}) {
        const std::string error = test::whatOfRefusedFifo<FileError>(file, attempt);
        EXPECT_NE(error.find(file.string() + "\" is not a regular file"), std::string::npos)
            << error;
    }
}

}  // namespace
}  // namespace kelvo
