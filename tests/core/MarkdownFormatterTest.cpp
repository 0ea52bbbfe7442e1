#include "core/engines/MarkdownFormatter.h"

#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <string>
#include <vector>

namespace kelvo {
namespace {

// 2025-03-04T05:06:07Z
const Date kNow = Date::fromUnixSeconds(1741064767);

VoiceInputResult result(std::string finalText, SummaryLevel level = SummaryLevel::cleanup,
                        ProcessingMode mode = ProcessingMode::cleanup,
                        std::vector<std::string> used = {}) {
    VoiceInputResult value;
    value.finalText = std::move(finalText);
    value.summaryLevel = level;
    value.processingMode = mode;
    value.usedDictionaryEntryIDs = std::move(used);
    return value;
}

TEST(MarkdownFormatter, TitleIsTheFirstSentenceOrLineUpToFortyCharacters) {
    EXPECT_EQ(MarkdownFormatter::title("今日は晴れ。明日は雨。"), "今日は晴れ");
    EXPECT_EQ(MarkdownFormatter::title("  Hello. World"), "Hello");
    EXPECT_EQ(MarkdownFormatter::title("一行目\n二行目"), "一行目");
    // "。" comes first even when "." appears earlier in the text.
    EXPECT_EQ(MarkdownFormatter::title("v1.2 の話。続き"), "v1.2 の話");
    // An empty part before a separator falls through to the next separator, then to the whole.
    EXPECT_EQ(MarkdownFormatter::title("。 本文.残り"), "。 本文");
    EXPECT_EQ(MarkdownFormatter::title("。本文"), "。本文");
    EXPECT_EQ(MarkdownFormatter::title(" \t"), "");
    EXPECT_EQ(MarkdownFormatter::title(""), "");

    const auto repeated = [](const std::string& text, std::size_t count) {
        const std::vector<std::string> copies(count, text);
        return std::accumulate(copies.begin(), copies.end(), std::string());
    };
    EXPECT_EQ(MarkdownFormatter::title(repeated("あ", 40) + repeated("い", 10)),
              repeated("あ", 40));
    // Characters are user-perceived: a decomposed "が" counts once, and is not split.
    EXPECT_EQ(MarkdownFormatter::title(repeated("か\u3099", 41)), repeated("か\u3099", 40));
    // Cut first, trimmed after: a space at position 40 does not survive.
    EXPECT_EQ(MarkdownFormatter::title(repeated("あ", 39) + " 後ろ"), repeated("あ", 39));
}

// What makeDocument fills in, and values of every other kind, rendered as they are: only a line
// break, which would break the note, is escaped.
TEST(MarkdownFormatter, MakeDocumentFillsTheFrontMatterAndRenderWritesItUnescaped) {
    const MarkdownFormatter formatter([] { return kNow; });
    auto document = formatter.makeDocument(
        result("議事録。本文", SummaryLevel::cleanup, ProcessingMode::cleanup, {"A"}), {});
    EXPECT_EQ(document.title, "議事録");
    EXPECT_EQ(document.body, "議事録。本文");
    EXPECT_EQ(document.createdAt, kNow);
    EXPECT_EQ(document.tags, std::vector<std::string>{"kelvo-voice"});
    document.title = "He said \"hi\"";
    document.frontmatter["quoted"] = FrontmatterValue::string("He said \"hi\" \\ ok");
    document.frontmatter["draft"] = FrontmatterValue::boolean(false);
    document.frontmatter["aliases"] = FrontmatterValue::array({"a b", "c\n---"});
    document.frontmatter["count"] = FrontmatterValue::integer(-7);
    document.frontmatter["Zeta"] = FrontmatterValue::array({});
    document.tags.push_back("y z");
    EXPECT_EQ(MarkdownFormatter::render(document),
              "---\n"
              "Zeta: []\n"
              "aliases: [a b, \"c\\n---\"]\n"
              "count: -7\n"
              "created: \"2025-03-04T05:06:07Z\"\n"
              "dictionary_corrections: 1\n"
              "draft: false\n"
              "processing_mode: \"cleanup\"\n"
              "quoted: \"He said \"hi\" \\ ok\"\n"
              "source: \"KelvoVoice\"\n"
              "summary_level: \"cleanup\"\n"
              "title: \"議事録\"\n"
              "tags: [kelvo-voice, y z]\n"
              "---\n"
              "\n"
              "# He said \"hi\"\n"
              "\n"
              "議事録。本文");
}

TEST(MarkdownFormatter, FrontMatterValuesFollowLevelAndUsage) {
    const MarkdownFormatter formatter([] { return kNow; });
    const auto unused = formatter.makeDocument(result("x"), {"a", "b"});
    EXPECT_EQ(unused.frontmatter.count("dictionary_corrections"), 0u);
    EXPECT_EQ(unused.tags, (std::vector<std::string>{"a", "b"}));

    const auto twice = formatter.makeDocument(
        result("x", SummaryLevel::verbatim, ProcessingMode::voiceInput, {"A", "A"}), {});
    EXPECT_EQ(twice.frontmatter.at("dictionary_corrections"), FrontmatterValue::integer(2));

    // Levels by the worker's words (the service tests pin them all).
    const auto bullets = formatter.makeDocument(
        result("x", SummaryLevel::bulletsOrTodo, ProcessingMode::translate), {});
    EXPECT_EQ(bullets.frontmatter.at("summary_level"), FrontmatterValue::string("bullets"));
    EXPECT_EQ(bullets.frontmatter.at("processing_mode"), FrontmatterValue::string("translate"));

    // Todo mode converts the body; the title comes from the unconverted text.
    const auto todo = formatter.makeDocument(
        result("牛乳を買う\nパンを買う", SummaryLevel::bulletsOrTodo, ProcessingMode::todo), {});
    EXPECT_EQ(todo.title, "牛乳を買う");
    EXPECT_EQ(todo.body, "- [ ] 牛乳を買う\n- [ ] パンを買う");

    // The simple document has title and date only, and no todo boxes.
    const auto document = formatter.makeSimpleDocument(
        result("買う\n売る", SummaryLevel::cleanup, ProcessingMode::todo, {"A"}), {});
    EXPECT_EQ(document.body, "買う\n売る");
    EXPECT_TRUE(document.tags.empty());
    EXPECT_EQ(document.frontmatter,
              (std::map<std::string, FrontmatterValue>{
                  {"created", FrontmatterValue::string("2025-03-04T05:06:07Z")},
                  {"title", FrontmatterValue::string("買う")}}));
}

TEST(MarkdownFormatter, TodoListBoxesEveryNonEmptyLine) {
    EXPECT_EQ(MarkdownFormatter::todoList("買い物\n- 牛乳\n* パン\n- [x] 済み"),
              "- [ ] 買い物\n- [ ] 牛乳\n- [ ] パン\n- [x] 済み");
    EXPECT_EQ(MarkdownFormatter::todoList("  - [ ] そのまま  \r\n\r\n\t\n- [X] 大文字"),
              "- [ ] そのまま\n- [ ] [X] 大文字");
    EXPECT_EQ(MarkdownFormatter::todoList("a\u2028b\u0085c\rd"),
              "- [ ] a\n- [ ] b\n- [ ] c\n- [ ] d");
    EXPECT_EQ(MarkdownFormatter::todoList("-no space\n*強調*"), "- [ ] -no space\n- [ ] *強調*");
    EXPECT_EQ(MarkdownFormatter::todoList("\n \n"), "");
    EXPECT_EQ(MarkdownFormatter::body("a\nb", ProcessingMode::markdown), "a\nb");
    EXPECT_EQ(MarkdownFormatter::body("a\nb", ProcessingMode::todo), "- [ ] a\n- [ ] b");
}

}  // namespace
}  // namespace kelvo
