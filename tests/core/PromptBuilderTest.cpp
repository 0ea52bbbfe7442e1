#include "core/engines/PromptBuilder.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace kelvo {
namespace {

TEST(PromptBuilder, HintsFormAThirdParagraphJoinedWithIdeographicCommas) {
    const auto prompt = [](const std::vector<std::string>& hints) {
        return PromptBuilder::buildSystemPrompt(SummaryLevel::verbatim, ProcessingMode::voiceInput,
                                                hints);
    };
    const std::string lead = prompt({}) + "\n\nこれらの語は必ずこの表記を維持してください: ";
    EXPECT_EQ(prompt({"東京", "AI"}), lead + "東京、AI");
    EXPECT_EQ(prompt({"東京"}), lead + "東京");
    // Duplicates and order are kept; an empty hint still takes its place.
    EXPECT_EQ(prompt({"B", "A", "B", ""}), lead + "B、A、B、");
}

// Two paragraphs, one blank line between them, nothing after the last line: the first is the
// level's (the same for every mode), the second the mode's (the same for every level), and no two
// levels or modes share one.
TEST(PromptBuilder, EveryLevelAndModeCombinationHasItsTwoParagraphs) {
    std::map<SummaryLevel, std::string> levelParagraphs;
    std::map<ProcessingMode, std::string> modeParagraphs;
    std::set<std::string> distinct;
    for (const SummaryLevel level : allCases<SummaryLevel>()) {
        for (const ProcessingMode mode : allCases<ProcessingMode>()) {
            const std::string prompt = PromptBuilder::buildSystemPrompt(level, mode, {});
            const std::size_t split = prompt.find("\n\n");
            ASSERT_NE(split, std::string::npos) << enumName(level) << " / " << enumName(mode);
            EXPECT_EQ(prompt.find("\n\n", split + 2), std::string::npos);
            EXPECT_FALSE(prompt.ends_with("\n"));
            const auto [level_, levelNew] = levelParagraphs.emplace(level, prompt.substr(0, split));
            const auto [mode_, modeNew] = modeParagraphs.emplace(mode, prompt.substr(split + 2));
            EXPECT_EQ(level_->second, prompt.substr(0, split)) << enumName(level);
            EXPECT_EQ(mode_->second, prompt.substr(split + 2)) << enumName(mode);
            distinct.insert({prompt.substr(0, split), prompt.substr(split + 2)});
            for (const char* language : {"英語", "English", "中国語", "韓国語"}) {
                EXPECT_EQ(prompt.find(language), std::string::npos) << language;
            }
        }
    }
    EXPECT_EQ(distinct.size(), 13u);
    EXPECT_EQ(levelParagraphs.at(SummaryLevel::translate),
              "あなたはプロの翻訳者です。\n入力テキストを翻訳してください。");
}

}  // namespace
}  // namespace kelvo
