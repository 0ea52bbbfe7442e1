#include "core/engines/PromptBuilder.h"

#include <string_view>

namespace kelvo {

namespace {

constexpr std::string_view kHintsHeader = "これらの語は必ずこの表記を維持してください: ";
constexpr std::string_view kHintSeparator = "、";
constexpr std::string_view kParagraphSeparator = "\n\n";

std::string_view levelParagraph(SummaryLevel level) {
    switch (level) {
        case SummaryLevel::verbatim:
            return "あなたはテキスト校正アシスタントです。\n"
                   "入力テキストをそのまま出力してください。内容を変更したり、要約したりしないでく"
                   "ださい。\n"
                   "誤字脱字の明らかな修正のみ許可します。";
        case SummaryLevel::cleanup:
            return "あなたはテキスト校正アシスタントです。\n"
                   "入力テキストを読みやすく整えてください。\n"
                   "フィラー語（「えーと」「あの」など）、繰り返し、明らかな誤りを除去し、\n"
                   "句読点・段落を整えますが、内容・情報量は変えないでください。";
        case SummaryLevel::concise:
            return "あなたはテキスト要約アシスタントです。\n"
                   "入力テキストをより簡潔にまとめてください。\n"
                   "重複表現や冗長な部分を削除し、核心的な情報だけを残してください。\n"
                   "元の意味・ニュアンスは保持すること。";
        case SummaryLevel::summarize:
            return "あなたはテキスト要約アシスタントです。\n"
                   "入力テキストの要点を短くまとめてください。\n"
                   "最も重要なポイントを3〜5文以内で簡潔に記述してください。\n"
                   "細部の説明より全体の趣旨を優先してください。";
        case SummaryLevel::bulletsOrTodo:
            return "あなたはテキスト構造化アシスタントです。\n"
                   "入力テキストの内容を箇条書きまたはTODOリスト形式に変換してください。\n"
                   "アクションアイテムがあれば「- [ ] タスク」の形式で、\n"
                   "情報の列挙は「- 項目」の形式で記述してください。";
        case SummaryLevel::trim:
            return "あなたはテキスト校正アシスタントです。\n"
                   "入力テキストをそのまま出力してください。\n"
                   "内容を変更したり、要約したりしないでください。";
        case SummaryLevel::translate:
            return "あなたはプロの翻訳者です。\n"
                   "入力テキストを翻訳してください。";
    }
    return {};
}

std::string_view modeParagraph(ProcessingMode mode) {
    switch (mode) {
        case ProcessingMode::voiceInput:
            return "このテキストは音声入力から得られたものです。\n"
                   "話し言葉特有の表現を書き言葉に適切に変換してください。\n"
                   "文脈から明らかな誤認識は修正してください。";
        case ProcessingMode::cleanup:
            return "このテキストは清書が必要な下書きです。\n"
                   "文体を統一し、読みやすい文章に整えてください。\n"
                   "ただし、元の表現・語調をできるだけ維持してください。";
        case ProcessingMode::summarize:
            return "このテキストの要約を作成することが目的です。\n"
                   "読者が元テキストを読まなくても内容を把握できるようにしてください。\n"
                   "客観的かつ中立的なトーンで記述してください。";
        case ProcessingMode::todo:
            return "このテキストからタスクやアクションアイテムを抽出することが目的です。\n"
                   "具体的な行動、期限、担当者（明記されている場合）を優先して抽出してください。\n"
                   "TODOリスト形式で出力してください。";
        case ProcessingMode::markdown:
            return "このテキストをMarkdown形式に変換することが目的です。\n"
                   "見出し（#, "
                   "##）、箇条書き（-）、強調（**）などのMarkdown記法を適切に使用してください。\n"
                   "構造が明確で読みやすいドキュメントになるよう整形してください。";
        case ProcessingMode::translate:
            return "このテキストを翻訳することが目的です。\n"
                   "言語を自動判別し、日本語なら指定の翻訳先言語に、それ以外なら日本語に翻訳してく"
                   "ださい。\n"
                   "訳文のみを出力してください。";
    }
    return {};
}

}  // namespace

std::string PromptBuilder::buildSystemPrompt(SummaryLevel summaryLevel,
                                             ProcessingMode processingMode,
                                             const std::vector<std::string>& dictionaryHints) {
    std::string prompt(levelParagraph(summaryLevel));
    prompt += kParagraphSeparator;
    prompt += modeParagraph(processingMode);
    if (!dictionaryHints.empty()) {
        prompt += kParagraphSeparator;
        prompt += kHintsHeader;
        for (std::size_t i = 0; i < dictionaryHints.size(); ++i) {
            if (i > 0) {
                prompt += kHintSeparator;
            }
            prompt += dictionaryHints[i];
        }
    }
    return prompt;
}

}  // namespace kelvo
