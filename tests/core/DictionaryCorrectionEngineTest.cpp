#include "core/engines/DictionaryCorrectionEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "core/support/Error.h"
#include "core/support/Unicode.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

constexpr const char* kIdA = "00000000-0000-0000-0000-00000000000A";
constexpr const char* kIdB = "00000000-0000-0000-0000-00000000000B";
constexpr const char* kIdC = "00000000-0000-0000-0000-00000000000C";

/// A store whose contents and failure the test sets between loads.
class ScriptedStore : public DictionaryStore {
  public:
    std::vector<DictionaryEntry> entries;
    bool failLoads = false;

    std::vector<DictionaryEntry> loadEntries() override {
        if (failLoads) {
            throw DecodingError("/tmp/dictionary.json: element 0: missing required member \"id\"");
        }
        return entries;
    }
    void saveEntries(const std::vector<DictionaryEntry>& newEntries) override {
        entries = newEntries;
    }
};

DictionaryEntry entry(std::string id, std::string canonical, std::vector<std::string> readings,
                      std::int64_t priority = 0, std::string replacement = "",
                      std::vector<std::string> misrecognitions = {}, bool enabled = true) {
    return {std::move(id),
            std::move(canonical),
            std::move(readings),
            std::move(misrecognitions),
            std::move(replacement),
            priority,
            enabled,
            std::nullopt};
}

class DictionaryCorrectionEngineTest : public ::testing::Test {
  protected:
    std::shared_ptr<ScriptedStore> store = std::make_shared<ScriptedStore>();

    DictionaryCorrectionEngine::Result apply(std::vector<DictionaryEntry> entries,
                                             std::string_view text,
                                             DictionaryScope scope = DictionaryScope::all) {
        store->entries = std::move(entries);
        const DictionaryCorrectionEngine engine(store);
        return engine.apply(text, scope);
    }
};

using Ids = std::vector<std::string>;

TEST_F(DictionaryCorrectionEngineTest, EntriesRewriteTheTextInPriorityThenStoredOrder) {
    const auto tokyo = entry(kIdA, "東京", {"とうきょう"}, 10);
    const auto offTokyo = entry(kIdA, "東京", {"とうきょう"}, 10, "", {}, false);
    const auto ai = entry(kIdA, "AI", {});
    const std::string nfc = "caf\u00E9";
    const std::string nfd = "cafe\u0301";
    const struct {
        std::vector<DictionaryEntry> entries;
        std::string text;
        std::string expected;
        Ids used;
        DictionaryScope scope = DictionaryScope::all;
    } cases[] = {
        {{tokyo}, "とうきょう", "とうきょう", {}, DictionaryScope::disabled},
        {{tokyo}, "とうきょうに", "東京に", {kIdA}, DictionaryScope::userOnly},  // as all
        {{}, "とうきょう", "とうきょう", {}},
        {{offTokyo}, "とうきょう", "とうきょう", {}},
        // Every occurrence; a non-empty replacement wins over the canonical text; reported once.
        {{entry(kIdA, "K", {"けるぼ"}, 0, "KV", {"ケルボ"})},
         "けるぼとケルボとけるぼ",
         "KVとKVとKV",
         {kIdA}},
        {{entry(kIdA, "AI", {"えーあい"})}, "ちえーあいす", "ちAIす", {kIdA}},  // no word bounds
        {{entry(kIdA, "東京", {"", "とうきょう"})}, "大阪", "大阪", {}},  // empty reading skipped
        {{ai}, "AIの話", "AIの話", {kIdA}},  // canonical text already there counts as used
        // Equal priority keeps the stored order and no longest-match rule applies: B rewrites "い"
        // before C could see "いう". (The order of entries and of an entry's candidates, chains
        // included, is checked against the plain algorithm below.)
        {{entry(kIdB, "X", {"い"}, 1), entry(kIdC, "Y", {"いう"}, 1)}, "いう", "Xう", {kIdB}},
        {{entry(kIdA, "東京都", {"東京"})}, "東京と東京", "東京都と東京都", {kIdA}},  // no loop
        // Matching is canonical (composed or decomposed alike) but case, width and kana exact.
        {{entry(kIdA, "Café", {nfc})}, nfd + "で", "Caf\u00E9で", {kIdA}},
        {{entry(kIdA, "カフェ", {nfd})}, nfc, "カフェ", {kIdA}},
        {{entry(kIdA, "画像", {"がぞう"})}, "か\u3099ぞう", "画像", {kIdA}},
        {{entry(kIdA, "E", {"e"})}, nfc, nfc, {}},  // a base letter inside its composed form
        {{entry(kIdA, "TOKYO", {"tokyo"})}, "Tokyo", "Tokyo", {}},
        {{ai}, "ＡＩ", "ＡＩ", {}},
        {{entry(kIdA, "X", {"かたかな"})}, "カタカナ", "カタカナ", {}},
        // Normalisation is only for matching: text without rewrites comes back byte for byte.
        {{tokyo}, nfd + " AI", nfd + " AI", {}},
        {{ai}, nfd + " AI", nfd + " AI", {kIdA}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE("case " + std::to_string(i) + ": " + cases[i].text);
        const auto result = apply(cases[i].entries, cases[i].text, cases[i].scope);
        EXPECT_EQ(result.text, cases[i].expected);
        EXPECT_EQ(result.usedEntryIDs, cases[i].used);
    }
}

TEST_F(DictionaryCorrectionEngineTest, HintsFollowApplicationOrderAndAFailedReloadKeepsTheOld) {
    store->entries = {entry(kIdA, "東京", {"とうきょう"}, 1), entry(kIdB, "AI", {"えーあい"}, 3),
                      entry(kIdC, "off", {}, 9, "", {}, false), entry(kIdC, "AI", {}, 3)};
    DictionaryCorrectionEngine engine(store);
    EXPECT_EQ(engine.hints(DictionaryScope::all), (Ids{"AI", "AI", "東京"}));
    EXPECT_EQ(engine.hints(DictionaryScope::userOnly), (Ids{"AI", "AI", "東京"}));
    EXPECT_TRUE(engine.hints(DictionaryScope::disabled).empty());
    EXPECT_EQ(engine.cachedEntries()->size(), 3u);

    // Edits in the store are not seen until a reload.
    store->entries = {entry(kIdB, "大阪", {"おおさか"})};
    EXPECT_EQ(engine.apply("おおさか", DictionaryScope::all).text, "おおさか");
    engine.reload();
    EXPECT_EQ(engine.apply("おおさか", DictionaryScope::all).text, "大阪");
    EXPECT_EQ(engine.hints(DictionaryScope::all), Ids{"大阪"});

    store->entries = {};
    store->failLoads = true;
    EXPECT_THROW(engine.reload(), DecodingError);
    EXPECT_EQ(engine.apply("おおさか", DictionaryScope::all).text, "大阪");
    EXPECT_EQ(engine.hints(DictionaryScope::all), Ids{"大阪"});

    // A failed first load leaves no engine at all.
    EXPECT_EQ(test::whatOf<DecodingError>([&] { DictionaryCorrectionEngine failed(store); }),
              "/tmp/dictionary.json: element 0: missing required member \"id\"");
}

/// A store whose list is swapped under the engine's feet, from another thread.
class SwappingStore : public DictionaryStore {
  public:
    std::vector<DictionaryEntry> loadEntries() override {
        const std::lock_guard lock(mutex_);
        flip_ = !flip_;
        if (flip_) {
            return {entry(kIdA, "東京", {"とうきょう"}), entry(kIdB, "大阪", {"おおさか"})};
        }
        return {entry(kIdC, "TOKYO", {"とうきょう"})};
    }
    void saveEntries(const std::vector<DictionaryEntry>&) override {}

  private:
    std::mutex mutex_;
    bool flip_ = false;
};

TEST(DictionaryCorrectionEngineThreads, EveryApplySeesOneWholeDictionaryWhileReloading) {
    DictionaryCorrectionEngine engine(std::make_shared<SwappingStore>());
    std::atomic<bool> done = false;
    std::thread reloader([&] {
        for (int i = 0; i < 300; ++i) {
            engine.reload();
        }
        done = true;
    });
    using Seen = std::pair<std::string, Ids>;
    int mixed = 0;
    for (int applied = 0; !done || applied < 100; ++applied) {
        const auto result = engine.apply("とうきょうとおおさか", DictionaryScope::all);
        const Seen seen{result.text, result.usedEntryIDs};
        mixed +=
            seen != Seen{"東京と大阪", {kIdA, kIdB}} && seen != Seen{"TOKYOとおおさか", {kIdC}};
    }
    reloader.join();
    EXPECT_EQ(mixed, 0);
}

/// The plain sequential algorithm without any pre-filtering, as a reference for the engine.
std::string referenceApply(std::vector<DictionaryEntry> entries, std::string text,
                           std::vector<std::string>& used) {
    std::erase_if(entries, [](const DictionaryEntry& e) { return !e.enabled; });
    std::stable_sort(entries.begin(), entries.end(), [](const auto& left, const auto& right) {
        return left.priority > right.priority;
    });
    for (const auto& e : entries) {
        std::vector<std::string> candidates{e.canonicalText};
        candidates.insert(candidates.end(), e.readings.begin(), e.readings.end());
        candidates.insert(candidates.end(), e.commonMisrecognitions.begin(),
                          e.commonMisrecognitions.end());
        const std::string replacement =
            e.replacementText.empty() ? e.canonicalText : e.replacementText;
        bool matched = false;
        for (const auto& candidate : candidates) {
            matched = unicode::replaceAll(text, candidate, replacement) > 0 || matched;
        }
        if (matched) {
            used.push_back(e.id);
        }
    }
    return text;
}

TEST(DictionaryCorrectionEngineReference, LargeRandomDictionariesMatchThePlainAlgorithm) {
    // Short words over a tiny alphabet collide and chain often, which is what the pre-filter
    // must never get wrong.
    const std::vector<std::string> alphabet{"あ", "い", "う", "ア", "a", "東", "ー"};
    std::mt19937 random(42);
    auto word = [&](int maxLength) {
        std::string out;
        const int length = 1 + static_cast<int>(random() % static_cast<unsigned>(maxLength));
        for (int i = 0; i < length; ++i) {
            out += alphabet[random() % alphabet.size()];
        }
        return out;
    };
    for (int round = 0; round < 40; ++round) {
        auto store = std::make_shared<ScriptedStore>();
        for (int i = 0; i < 30; ++i) {
            store->entries.push_back(entry(std::to_string(i), word(3), {word(4), word(2)},
                                           static_cast<std::int64_t>(random() % 4),
                                           random() % 3 == 0 ? word(3) : "", {word(5)},
                                           random() % 5 != 0));
        }
        const DictionaryCorrectionEngine engine(store);
        for (int t = 0; t < 10; ++t) {
            const std::string text = word(40);
            std::vector<std::string> expectedUsed;
            const std::string expected = referenceApply(store->entries, text, expectedUsed);
            const auto result = engine.apply(text, DictionaryScope::all);
            ASSERT_EQ(result.text, expected) << "round " << round << " text " << text;
            ASSERT_EQ(result.usedEntryIDs, expectedUsed) << "round " << round << " text " << text;
        }
    }
}

}  // namespace
}  // namespace kelvo
