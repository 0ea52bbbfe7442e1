#include "core/engines/PromptBuilder.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace kelvo {
namespace {

const std::map<SummaryLevel, std::string> kLevelParagraphs{
    {SummaryLevel::verbatim,
     "あなたはテキスト校正アシスタントです。\n"
     "入力テキストをそのまま出力してください。内容を変更したり、要約したりしないでください。\n"
     "誤字脱字の明らかな修正のみ許可します。"},
    {SummaryLevel::cleanup,
     "あなたはテキスト校正アシスタントです。\n"
     "入力テキストを読みやすく整えてください。\n"
     "フィラー語（「えーと」「あの」など）、繰り返し、明らかな誤りを除去し、\n"
     "句読点・段落を整えますが、内容・情報量は変えないでください。"},
    {SummaryLevel::concise,
     "あなたはテキスト要約アシスタントです。\n"
     "入力テキストをより簡潔にまとめてください。\n"
     "重複表現や冗長な部分を削除し、核心的な情報だけを残してください。\n"
     "元の意味・ニュアンスは保持すること。"},
    {SummaryLevel::summarize,
     "あなたはテキスト要約アシスタントです。\n"
     "入力テキストの要点を短くまとめてください。\n"
     "最も重要なポイントを3〜5文以内で簡潔に記述してください。\n"
     "細部の説明より全体の趣旨を優先してください。"},
    {SummaryLevel::bulletsOrTodo,
     "あなたはテキスト構造化アシスタントです。\n"
     "入力テキストの内容を箇条書きまたはTODOリスト形式に変換してください。\n"
     "アクションアイテムがあれば「- [ ] タスク」の形式で、\n"
     "情報の列挙は「- 項目」の形式で記述してください。"},
    {SummaryLevel::trim,
     "あなたはテキスト校正アシスタントです。\n"
     "入力テキストをそのまま出力してください。\n"
     "内容を変更したり、要約したりしないでください。"},
    {SummaryLevel::translate,
     "あなたはプロの翻訳者です。\n"
     "入力テキストを翻訳してください。"},
};

const std::map<ProcessingMode, std::string> kModeParagraphs{
    {ProcessingMode::voiceInput,
     "このテキストは音声入力から得られたものです。\n"
     "話し言葉特有の表現を書き言葉に適切に変換してください。\n"
     "文脈から明らかな誤認識は修正してください。"},
    {ProcessingMode::cleanup,
     "このテキストは清書が必要な下書きです。\n"
     "文体を統一し、読みやすい文章に整えてください。\n"
     "ただし、元の表現・語調をできるだけ維持してください。"},
    {ProcessingMode::summarize,
     "このテキストの要約を作成することが目的です。\n"
     "読者が元テキストを読まなくても内容を把握できるようにしてください。\n"
     "客観的かつ中立的なトーンで記述してください。"},
    {ProcessingMode::todo,
     "このテキストからタスクやアクションアイテムを抽出することが目的です。\n"
     "具体的な行動、期限、担当者（明記されている場合）を優先して抽出してください。\n"
     "TODOリスト形式で出力してください。"},
    {ProcessingMode::markdown,
     "このテキストをMarkdown形式に変換することが目的です。\n"
     "見出し（#, ##）、箇条書き（-）、強調（**）などのMarkdown記法を適切に使用してください。\n"
     "構造が明確で読みやすいドキュメントになるよう整形してください。"},
    {ProcessingMode::translate,
     "このテキストを翻訳することが目的です。\n"
     "言語を自動判別し、日本語なら指定の翻訳先言語に、それ以外なら日本語に翻訳してください。\n"
     "訳文のみを出力してください。"},
};

TEST(PromptBuilder, HintsFormAThirdParagraphJoinedWithIdeographicCommas) {
    const std::string base = kLevelParagraphs.at(SummaryLevel::verbatim) + "\n\n" +
                             kModeParagraphs.at(ProcessingMode::voiceInput);
    EXPECT_EQ(PromptBuilder::buildSystemPrompt(SummaryLevel::verbatim, ProcessingMode::voiceInput,
                                               {"東京", "AI"}),
              base + "\n\nこれらの語は必ずこの表記を維持してください: 東京、AI");
    EXPECT_EQ(PromptBuilder::buildSystemPrompt(SummaryLevel::verbatim, ProcessingMode::voiceInput,
                                               {"東京"}),
              base + "\n\nこれらの語は必ずこの表記を維持してください: 東京");
    // Duplicates and order are kept; an empty hint still takes its place.
    EXPECT_EQ(PromptBuilder::buildSystemPrompt(SummaryLevel::verbatim, ProcessingMode::voiceInput,
                                               {"B", "A", "B", ""}),
              base + "\n\nこれらの語は必ずこの表記を維持してください: B、A、B、");
}

// Two paragraphs, one blank line between them, nothing after the last line.
TEST(PromptBuilder, EveryLevelAndModeCombinationHasItsTwoParagraphs) {
    for (const auto& [level, levelParagraph] : kLevelParagraphs) {
        for (const auto& [mode, modeParagraph] : kModeParagraphs) {
            const std::string prompt = PromptBuilder::buildSystemPrompt(level, mode, {});
            EXPECT_EQ(prompt, levelParagraph + "\n\n" + modeParagraph)
                << enumName(level) << " / " << enumName(mode);
            for (const char* language : {"英語", "English", "中国語", "韓国語"}) {
                EXPECT_EQ(prompt.find(language), std::string::npos) << language;
            }
        }
    }
    EXPECT_EQ(kLevelParagraphs.size() * kModeParagraphs.size(), 42u);
}

TEST(PromptBuilder, BracketsAreFullWidthAndDigitsAscii) {
    const std::string summarize =
        PromptBuilder::buildSystemPrompt(SummaryLevel::summarize, ProcessingMode::todo, {});
    EXPECT_NE(summarize.find("3\u301C5"), std::string::npos);  // wave dash U+301C
    EXPECT_NE(summarize.find("\uFF08明記されている場合\uFF09"), std::string::npos);
    const std::string bullets =
        PromptBuilder::buildSystemPrompt(SummaryLevel::bulletsOrTodo, ProcessingMode::markdown, {});
    EXPECT_NE(bullets.find("\u300C- [ ] タスク\u300D"), std::string::npos);
}

}  // namespace
}  // namespace kelvo
