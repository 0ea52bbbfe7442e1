#include "core/services/JSONSuggestionStore.h"

#include <gtest/gtest.h>

#include "tests/core/TemporaryFolder.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

// A damaged list is reported by readers and moved aside (never overwritten) by the next record;
// the same correction counts up, a rejected one stays rejected, an accepted one becomes a
// dictionary entry and leaves the list.
TEST(JSONSuggestionStoreTest, DamagedFileCountsRejectionAndAcceptance) {
    testing::TemporaryFolder folder;
    const auto file = folder.write("suggestions.json", "[ damaged");
    std::vector<std::string> reports;
    JSONSuggestionStore store(file, [&](const auto&, const auto& movedTo, const auto& reason) {
        reports.push_back(testing::contentsOf(movedTo) + " | " + reason);
    });
    EXPECT_EQ(test::whatOf<DecodingError>([&] { store.loadSuggestions(); }).rfind(file.string(), 0),
              0u);

    CorrectionSuggestion seen{"", "クバネティス", "Kubernetes", std::nullopt,
                              1,  false,          std::nullopt};
    const auto first = store.record(seen);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].substr(0, 12), "[ damaged | ");
    ASSERT_TRUE(first && isUuid(first->id));
    EXPECT_EQ(store.record(seen)->count, 2);

    CorrectionSuggestion other{"", "とうきょう", "東京", "とうきょう", 1, false, std::nullopt};
    const auto rejected = store.record(other);
    store.reject(rejected->id);
    EXPECT_FALSE(store.record(other));
    EXPECT_EQ(test::whatOf<Error>([&] { store.reject(rejected->id); }),
              "no pending suggestion with ID " + rejected->id);

    JSONDictionaryStore dictionary(folder.path() / "dictionary.json");
    DictionaryEntry kubernetes;
    kubernetes.id = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";
    kubernetes.canonicalText = "Kubernetes";
    kubernetes.commonMisrecognitions = {"K8s"};
    dictionary.saveEntries({kubernetes});
    store.accept(*first, dictionary);
    const auto entries = dictionary.loadEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].commonMisrecognitions, (std::vector<std::string>{"K8s", "クバネティス"}));
    EXPECT_EQ(store.pendingSuggestions().size(), 0u);
    EXPECT_EQ(store.loadSuggestions().size(), 1u);  // the rejected one, kept
    // Nothing half-written is left beside the files.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 3);
}

}  // namespace
}  // namespace kelvo
