// Runs the built `kelvo` binary as a child process, with its standard streams captured and an
// environment of the test's own (a temporary HOME and XDG_DATA_HOME), and checks the tool's
// contract from the outside: exit status, exact standard output and error, and the files left;
// with a loopback worker and a loopback model server where a command talks to one.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/models/DictionaryEntry.h"
#include "core/models/HistoryItem.h"
#include "core/models/Json.h"
#include "core/support/Uuid.h"
#include "tests/core/ModelFileServer.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/KelvoProcess.h"
#include "tests/support/LoopbackHttpServer.h"

namespace kelvo {
namespace {

namespace fs = std::filesystem;

using Outcome = test::KelvoProcess::Outcome;

using testing::contentsOf;

/// A pipeline result as `kelvo process` prints it.
const char* const kSavedResult = R"({
  "rawTranscript": "ぎじろく。来週までに資料",
  "correctedText": "議事録。来週までに資料",
  "processedText": "議事録。来週までに資料",
  "finalText": "議事録 2/3。来週までに資料",
  "summaryLevel": 1,
  "processingMode": "cleanup",
  "usedDictionaryEntryIDs": []
})";

class KelvoBinary : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(root / "home");
        fs::create_directories(root / "work");
    }

    /// Runs `kelvo` in the work folder with only `environment` and `variables` ("NAME=value"),
    /// feeding `input`.
    Outcome kelvo(const std::vector<std::string>& arguments, const std::string& input = "",
                  const std::vector<std::string>& variables = {}) {
        std::vector<std::string> all = environment;
        all.insert(all.end(), variables.begin(), variables.end());
        return test::KelvoProcess(KELVO_BINARY, arguments, all, input, root / "work").finish();
    }

    fs::path defaultDictionary() const { return root / "data/KelvoVoiceMac/dictionary.json"; }
    fs::path defaultHistory() const { return root / "data/KelvoVoiceMac/history.json"; }
    std::size_t historyItemCount() const {
        return fs::exists(defaultHistory()) ? Json::parse(contentsOf(defaultHistory())).size() : 0;
    }

    /// Adds an entry through the tool and returns its identifier.
    std::string addEntry(const std::vector<std::string>& options) {
        std::vector<std::string> arguments{"dictionary", "add"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome run = kelvo(arguments);
        EXPECT_EQ(run.status, 0) << run.errors;
        return Json::parse(run.output).at("id").get<std::string>();
    }

    testing::TemporaryFolder folder;
    const fs::path root = folder.path();
    const std::vector<std::string> environment{"HOME=" + (root / "home").string(),
                                               "XDG_DATA_HOME=" + (root / "data").string(),
                                               "PATH=/usr/bin:/bin"};
};

// The command line from the outside, as data: argv (and standard input) → exit status, a part of
// standard output and the start of standard error (empty: nothing at all). The parser's and the
// dispatcher's rules are proved here through real commands; none of these writes a file.
TEST_F(KelvoBinary, CommandLinesGiveTheirExitStatusOutputAndErrors) {
    struct Row {
        std::vector<std::string> arguments;
        int status;
        std::string output;
        std::string errors;
        std::string input = {};
    };
    const std::string commandUsage = "usage: kelvo <command> [options] (see 'kelvo help')\n";
    const std::string correctUsage =
        "\nusage: kelvo correct [--dictionary PATH] [--scope S] [--json] [TEXT]\n";
    const std::string groupUsage =
        "usage: kelvo dictionary list [--dictionary PATH]\n"
        "usage: kelvo dictionary add --canonical T ";
    const std::string unknownID = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";
    std::vector<Row> rows{
        {{"dictionary", "remove", unknownID},
         1,
         "",
         "kelvo: no dictionary entry with ID " + unknownID + "\n"},
        // Dispatch: commands, groups and help.
        {{}, 2, "", "kelvo: missing command\n" + commandUsage},
        {{"nonsense"}, 2, "", "kelvo: unknown command 'nonsense'\n" + commandUsage},
        {{"dictionary"}, 2, "", "kelvo: missing dictionary command\n" + groupUsage},
        {{"dictionary", "third"},
         2,
         "",
         "kelvo: unknown dictionary command 'third'\n" + groupUsage},
        {{"--help"}, 0, "usage: kelvo <command> [options]\n\nCommands:\n", ""},
        {{"help"}, 0, "usage: kelvo <command> [options]\n\nCommands:\n", ""},
        {{"help", "dictionary"}, 0, groupUsage, ""},
        {{"help", "nonsense"}, 2, "", "kelvo: unknown command 'nonsense'\n" + commandUsage},
        {{"todo", "--help"}, 0, "usage: kelvo todo [TEXT]\n  Turn the lines of TEXT into", ""},
        {{"help", "todo"}, 0, "usage: kelvo todo [TEXT]\n  Turn the lines of TEXT into", ""},
        // Help wins over a missing required option.
        {{"prompt", "--help"}, 0, "usage: kelvo prompt --level L --mode M [--hint H]...\n", ""},
        // Options: anywhere, their value either way and taken as it is; only "--" starts one, and
        // "--" alone ends them.
        {{"prompt", "--hint", "東京", "--level=trim", "--mode", "cleanup", "--hint=AI"},
         0,
         "この表記を維持してください: 東京、AI\n",
         ""},
        {{"normalize", "-x"}, 0, "-x\n", ""},
        {{"normalize", "-"}, 0, "-\n", ""},
        {{"normalize", "--", "--help"}, 0, "--help\n", ""},
        {{"correct", "--json", "--", "--scope"}, 0, "{\n  \"text\": \"--scope\",", ""},
        {{"correct", "--scope", "--json", "x"},
         2,
         "",
         "kelvo: invalid value '--json' for --scope (expected all|userOnly|disabled)" +
             correctUsage},
        {{"correct", "--scope=", "x"}, 2, "", "kelvo: invalid value '' for --scope"},
        {{"correct", "--scope", "All", "x"}, 2, "", "kelvo: invalid value 'All' for --scope"},
        {{"todo", "--verbose", "x"},
         2,
         "",
         "kelvo: unknown option '--verbose'\nusage: kelvo todo [TEXT]\n"},
        {{"todo", "--verbose=1"}, 2, "", "kelvo: unknown option '--verbose'\n"},
        {{"correct", "--scope"}, 2, "", "kelvo: option '--scope' needs a value" + correctUsage},
        {{"correct", "--scope", "all", "--scope=all", "x"},
         2,
         "",
         "kelvo: option '--scope' given more than once\n"},
        {{"correct", "--json=yes"}, 2, "", "kelvo: option '--json' takes no value\n"},
        {{"todo", "a", "b"}, 2, "", "kelvo: unexpected argument 'b'\n"},
        {{"prompt", "--level", "trim"}, 2, "", "kelvo: missing option '--mode'\n"},
        // Levels are stored as integers, but the command line takes names only.
        {{"prompt", "--level", "5", "--mode", "cleanup"},
         2,
         "",
         "kelvo: invalid value '5' for --level"},
        {{"history", "--limit", "0"}, 0, "[]\n", ""},
        {{"dictionary", "add", "--canonical", "x", "--priority", "9223372036854775807",
          "--dictionary", "d.json"},
         0,
         "{\n  \"id\": \"",
         ""},
        // Rules of the commands themselves.
        {{"process", "--text", "x", "--audio", "a.m4a"}, 2, "", "kelvo: --audio and --text cannot"},
        {{"dictionary", "add", "--reading", "とうきょう"},
         2,
         "",
         "kelvo: missing option '--canonical'"},
        {{"dictionary", "remove"}, 2, "", "kelvo: missing entry ID\n"},
        {{"dictionary", "accept"}, 2, "", "kelvo: missing suggestion ID\n"},
        {{"save", "--folder", "vault", "--policy", "replace"},
         2,
         "",
         "kelvo: invalid value 'replace'"},
        // The worker's options are checked before anything runs.
        {{"process", "--text", "a", "--token", "t"}, 2, "", "kelvo: --token needs --worker\n"},
        {{"process", "--text", "a", "--worker", ""}, 2, "", "kelvo: --worker needs a URL\n"},
        {{"process", "--text", "a", "--worker", "http://127.0.0.1:9", "--process-timeout", "0"},
         2,
         "",
         "kelvo: invalid value '0' for --process-timeout (expected a number of seconds above "
         "zero)\n"},
        // The usage line grows with the options other services add; its start is fixed.
        {{"process", "--text", "x", "--level", "trims"},
         2,
         "",
         "kelvo: invalid value 'trims' for --level (expected "
         "verbatim|cleanup|concise|summarize|bulletsOrTodo|trim|translate)\n"
         "usage: kelvo process [--audio FILE | --text TEXT] [--level L] [--mode M] [--format F] "
         "[--scope S] [--target-language X] [--dictionary PATH] [--history PATH]"},
        {{"models", "install", "huge"},
         1,
         "",
         "kelvo: unknown model 'huge' (see kelvo models list)\n"},
        // Reads: nothing there is no error, and creates nothing.
        {{"correct", "とうきょう"}, 0, "とうきょう\n", ""},
        {{"dictionary", "list"}, 0, "[]\n", ""},
        {{"history"}, 0, "[]\n", ""},
        {{"hints"}, 0, "", ""},
        // A pipeline result on standard input, and what is not one.
        {{"render", "--tag", "会議", "--tag", "memo"},
         0,
         "tags: [会議, memo]\n---\n\n# 議事録 2/3\n\n議事録 2/3。来週までに資料\n",
         "",
         kSavedResult},
        {{"render"}, 1, "", "kelvo: standard input: invalid JSON: ", "{\"rawTranscript\": "},
        {{"render"},
         1,
         "",
         "kelvo: standard input is not a VoiceInputResult: missing required member "
         "\"rawTranscript\"\n",
         "{\"finalText\": \"x\"}"},
        {{"save", "--folder", "vault", "--subpath", "a\nb"},
         2,
         "",
         "kelvo: --subpath must not contain control characters: a\\nb\n"},
        // Text: a positional TEXT wins over standard input, which is otherwise read whole.
        {{"normalize", "ＡＢＣ１２３　ｘ"}, 0, "ABC123 x\n", "", "ignored"},
        {{"todo"}, 0, "- [ ] 買い物\n- [ ] 牛乳\n", "", "買い物\n- 牛乳\n"},
    };
    for (const char* bad : {"-1", "+3", "1.5", "abc", "", " 3", "3 ", "99999999999999999999"}) {
        rows.push_back({{"history", "--limit", bad},
                        2,
                        "",
                        std::string("kelvo: invalid value '") + bad +
                            "' for --limit (expected a non-negative integer)\n"});
    }
    for (const char* bad : {"0", "-1", "abc", "1s", ""}) {
        rows.push_back({{"record", "--seconds", bad},
                        2,
                        "",
                        std::string("kelvo: invalid value '") + bad +
                            "' for --seconds (expected a positive number of seconds)\n"
                            "usage: kelvo record [--seconds N]\n"});
    }
    for (const char* bad : {"9223372036854775808", "ten", "5x", ""}) {
        rows.push_back({{"dictionary", "add", "--canonical", "x", "--priority", bad},
                        2,
                        "",
                        std::string("kelvo: invalid value '") + bad +
                            "' for --priority (expected an integer)\n"});
    }
    // Text that is not UTF-8 is refused, as the JSON commands refuse it, never passed through.
    for (const char* command : {"fillers", "normalize", "todo", "correct"}) {
        rows.push_back(
            {{command}, 1, "", "kelvo: standard input is not valid UTF-8", "えーと\xff\xfe"});
    }
    for (const Row& row : rows) {
        std::string line;
        for (const std::string& argument : row.arguments) {
            line += argument + " ";
        }
        SCOPED_TRACE(line);
        const Outcome run = kelvo(row.arguments, row.input);
        EXPECT_EQ(run.status, row.status);
        EXPECT_TRUE(row.output.empty() ? run.output.empty()
                                       : run.output.find(row.output) != std::string::npos)
            << run.output;
        EXPECT_TRUE(row.errors.empty() ? run.errors.empty() : run.errors.starts_with(row.errors))
            << run.errors;
        if (row.status == 2) {
            EXPECT_NE(run.errors.find("\nusage: kelvo "), std::string::npos) << run.errors;
        }
    }
    EXPECT_FALSE(fs::exists(root / "data")) << "a command line created the data folder";
    EXPECT_FALSE(fs::exists(root / "work" / "vault"));
}

TEST_F(KelvoBinary, TextComesWholeFromStandardInputAndLeavesWithOneLineFeed) {
    // No dictionary file: correction returns its input, so the text passes through unchanged.
    const std::string input = "一行目\r\n  二行目\t\n\n";
    EXPECT_EQ(kelvo({"correct"}, input).output, input + "\n");
    EXPECT_EQ(kelvo({"correct"}).output, "\n");
    // Large input arrives whole.
    std::string large;
    std::string expected;
    for (int i = 0; i < 20000; ++i) {
        large += "えーと東京の会議。\n";
        expected += "東京の会議。\n";
    }
    const Outcome fillers = kelvo({"fillers"}, large);
    EXPECT_EQ(fillers.status, 0);
    EXPECT_TRUE(fillers.output == expected + "\n") << fillers.output.size() << " bytes";
}

// Where the data folder is when XDG_DATA_HOME is unset or relative is DataLocations' business.
TEST_F(KelvoBinary, DefaultFilesLiveInTheXdgDataHomeWhichIsCreatedOnlyOnWrite) {
    addEntry({"--canonical", "東京", "--reading", "とうきょう"});
    EXPECT_TRUE(fs::exists(defaultDictionary()));
    EXPECT_EQ(kelvo({"correct", "とうきょうへ"}).output, "東京へ\n");

    // Explicit paths are used as given, relative to the working folder.
    const Outcome explicitAdd =
        kelvo({"dictionary", "add", "--canonical", "京都", "--dictionary", "sub/dir/d.json"});
    EXPECT_EQ(explicitAdd.status, 0) << explicitAdd.errors;
    EXPECT_TRUE(fs::exists(root / "work" / "sub" / "dir" / "d.json"));

    // The default history stays in the data folder even beside another dictionary, so that
    // `kelvo history` (which has no --dictionary) lists what process recorded.
    EXPECT_EQ(kelvo({"process", "--text", "x", "--dictionary", "sub/dir/d.json"}).status, 0);
    EXPECT_FALSE(fs::exists(root / "work" / "sub" / "dir" / "history.json"));
    EXPECT_TRUE(fs::exists(defaultHistory()));
    EXPECT_EQ(Json::parse(kelvo({"history"}).output).size(), 1u);
}

TEST_F(KelvoBinary, ADamagedDictionaryIsReportedAndNeverOverwritten) {
    const std::string damaged = "[{\"id\": \"3F2504E0-4F89-11D3-9A0C-0305E82C3301\",";
    folder.write(defaultDictionary(), damaged);
    const std::vector<std::vector<std::string>> commandLines{
        {"correct", "とうきょう"},
        {"hints"},
        {"dictionary", "list"},
        {"dictionary", "add", "--canonical", "東京"},
        {"dictionary", "remove", "3F2504E0-4F89-11D3-9A0C-0305E82C3301"},
        {"process", "--text", "とうきょう"},
    };
    for (const auto& arguments : commandLines) {
        const Outcome run = kelvo(arguments);
        EXPECT_EQ(run.status, 1) << arguments[0];
        EXPECT_EQ(run.output, "");
        EXPECT_TRUE(run.errors.starts_with("kelvo: " + defaultDictionary().string() + ": "))
            << run.errors;
        EXPECT_EQ(run.errors.find('\n'), run.errors.size() - 1) << "not one line: " << run.errors;
        EXPECT_EQ(contentsOf(defaultDictionary()), damaged);
    }
    EXPECT_FALSE(fs::exists(defaultHistory())) << "process wrote history despite the failure";
}

TEST_F(KelvoBinary, CorrectAndHintsFollowTheScopeAndPrintJsonWithRecordKeys) {
    const std::string id = addEntry({"--canonical", "東京", "--reading", "とうきょう"});
    addEntry({"--canonical", "Kubernetes", "--priority", "90"});
    const Outcome corrected = kelvo({"correct", "--json", "とうきょうと東京"});
    EXPECT_EQ(corrected.status, 0);
    EXPECT_EQ(corrected.output, "{\n  \"text\": \"東京と東京\",\n  \"usedEntryIDs\": [\n    \"" +
                                    id + "\"\n  ]\n}\n");
    EXPECT_EQ(kelvo({"correct", "--json", "--scope", "disabled", "とうきょう"}).output,
              "{\n  \"text\": \"とうきょう\",\n  \"usedEntryIDs\": []\n}\n");

    // One per line, in application order.
    EXPECT_EQ(kelvo({"hints"}).output, "Kubernetes\n東京\n");
    EXPECT_EQ(kelvo({"hints", "--scope", "disabled"}).output, "");
}

TEST_F(KelvoBinary, ProcessPrintsTheResultAndAppendsItToTheHistory) {
    addEntry({"--canonical", "東京", "--reading", "とうきょう"});
    const std::string history = (root / "h" / "history.json").string();

    const Outcome first = kelvo(
        {"process", "--text", "えーと、とうきょうに行く", "--level", "trim", "--history", history});
    ASSERT_EQ(first.status, 0) << first.errors;
    const auto result = Json::parse(first.output).get<VoiceInputResult>();
    EXPECT_EQ(result.finalText, "東京に行く");

    const Outcome second =
        kelvo({"process", "--audio", "missing.m4a", "--mode", "todo", "--format", "todoList",
               "--scope", "disabled", "--target-language", "en", "--history", history});
    ASSERT_EQ(second.status, 0) << second.errors;
    EXPECT_EQ(Json::parse(second.output).at("rawTranscript"),
              "これはテスト用の音声テキストです。KelvoVoiceの音声認識モックです。");

    const Outcome listed = kelvo({"history", "--history", history});
    ASSERT_EQ(listed.status, 0) << listed.errors;
    const auto items = Json::parse(listed.output).get<std::vector<HistoryItem>>();
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].request.audioFileURL, root / "work" / "missing.m4a");
    EXPECT_EQ(items[0].request.processingMode, ProcessingMode::todo);
    EXPECT_EQ(items[0].request.targetLanguage, "en");
    EXPECT_EQ(items[1].request.rawText, "えーと、とうきょうに行く");
    EXPECT_EQ(items[1].result, result);
    EXPECT_EQ(Json::parse(kelvo({"history", "--history", history, "--limit", "1"}).output).size(),
              1u);

    // When the history cannot be written, the computed result is not printed either.
    const fs::path folderInTheWay = root / "work" / "taken.json";
    fs::create_directories(folderInTheWay);
    const Outcome unwritable =
        kelvo({"process", "--text", "とうきょう", "--history", folderInTheWay.string()});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_EQ(unwritable.output, "");

    // A damaged history cannot be listed; the failure names the file.
    folder.write(history, "not json");
    const Outcome damaged = kelvo({"history", "--history", history});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_TRUE(damaged.errors.starts_with("kelvo: " + history + ": ")) << damaged.errors;

    // Recording into it moves it aside, says so once, and starts a fresh history.
    const Outcome recorded = kelvo({"process", "--text", "x", "--history", history});
    EXPECT_EQ(recorded.status, 0) << recorded.errors;
    EXPECT_NE(recorded.errors.find("moved to " + history + ".damaged-"), std::string::npos)
        << recorded.errors;
    EXPECT_EQ(std::count(recorded.errors.begin(), recorded.errors.end(), '\n'), 1);
    EXPECT_EQ(Json::parse(kelvo({"history", "--history", history}).output).size(), 1u);
}

TEST_F(KelvoBinary, DictionaryEntriesAreAddedAndRemovedByID) {
    const Outcome added =
        kelvo({"dictionary", "add", "--canonical", "Kubernetes", "--reading", "クバネティス",
               "--reading", "くばねてぃす", "--misrecognition", "食う場ネティス", "--replacement",
               "K8s", "--priority", "-3", "--disabled", "--note", "コンテナ基盤"});
    ASSERT_EQ(added.status, 0) << added.errors;
    const auto entry = Json::parse(added.output).get<DictionaryEntry>();
    EXPECT_EQ(entry, (DictionaryEntry{canonicalUuid(entry.id),
                                      "Kubernetes",
                                      {"クバネティス", "くばねてぃす"},
                                      {"食う場ネティス"},
                                      "K8s",
                                      -3,
                                      false,
                                      "コンテナ基盤"}));
    const std::string second = addEntry({"--canonical", "東京"});
    std::string lowerCase = entry.id;
    std::transform(lowerCase.begin(), lowerCase.end(), lowerCase.begin(), ::tolower);
    const Outcome removed = kelvo({"dictionary", "remove", lowerCase});
    EXPECT_EQ(removed.status, 0) << removed.errors;
    EXPECT_EQ(removed.output, "");
    EXPECT_EQ(Json::parse(kelvo({"dictionary", "list"}).output).get<std::vector<DictionaryEntry>>(),
              (std::vector<DictionaryEntry>{{second, "東京", {}, {}, "", 50, true, std::nullopt}}));
}

TEST_F(KelvoBinary, SaveWritesTheNoteAndAClashExitsOneWithTheFailedResult) {
    const fs::path vault = root / "vault";
    const Outcome saved = kelvo({"save", "--folder", vault.string(), "--subpath", "会議/3月",
                                 "--tag", "会議", "--tag", "memo"},
                                kSavedResult);
    ASSERT_EQ(saved.status, 0) << saved.errors;
    const Json result = Json::parse(saved.output);
    EXPECT_EQ(result.at("success"), true);
    // The note's name and front matter are LocalFolderSaveAdapter's and MarkdownFormatter's.
    const fs::path file = pathFromFileUrl(result.at("savedURL").get<std::string>());
    EXPECT_EQ(file.parent_path(), vault / "会議" / "3月");
    const std::string text = contentsOf(file);
    EXPECT_TRUE(
        text.ends_with("title: \"議事録 2/3\"\ntags:\n  - 会議\n  - memo\n---\n\n"
                       "議事録 2/3。来週までに資料"))
        << text;

    // Saving twice within one minute clashes on the name; should the minute turn between the two
    // runs, the pair is repeated once.
    Outcome second;
    fs::path first;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const Outcome saved = kelvo({"save", "--folder", vault.string()}, kSavedResult);
        ASSERT_EQ(saved.status, 0) << saved.errors;
        first = pathFromFileUrl(Json::parse(saved.output).at("savedURL").get<std::string>());
        second = kelvo({"save", "--folder", vault.string(), "--policy", "createNew"}, kSavedResult);
        if (second.status != 0) {
            break;
        }
    }
    EXPECT_EQ(second.status, 1);
    const Json failed = Json::parse(second.output);
    EXPECT_EQ(failed.at("success"), false);
    EXPECT_EQ(second.errors, "kelvo: File already exists at " + first.string() + "\n");
}

TEST_F(KelvoBinary, VaultListsReadsAndSearchesNotes) {
    const fs::path vault = root / "vault";
    folder.write(vault / "note.md", "---\ntitle: \"二\"\n---\nSee [[Plan|plan]]");
    folder.write(vault / "projects" / "plan.markdown", "plan");
    // A name chosen to drive the terminal is shown with its control characters escaped.
    folder.write(vault / "bell\x07\x1b[2J.md", "x");
    // One date for all, so that names decide the order.
    for (const fs::path& item :
         {vault / "projects", vault / "projects" / "plan.markdown", vault / "bell\x07\x1b[2J.md"}) {
        fs::last_write_time(item, fs::last_write_time(vault / "note.md"));
    }

    const Outcome listed = kelvo({"vault", "list", "--folder", vault.string()});
    ASSERT_EQ(listed.status, 0) << listed.errors;
    EXPECT_EQ(listed.output, "bell\\x07\\x1B[2J.md\nnote.md\nprojects/plan.markdown\nprojects\n");
    EXPECT_EQ(kelvo({"vault", "search", "PLAN", "--folder", vault.string()}).output,
              "projects/plan.markdown\n");

    const Outcome read = kelvo({"vault", "read", "note.md", "--folder", vault.string()});
    ASSERT_EQ(read.status, 0) << read.errors;
    EXPECT_EQ(Json::parse(read.output), Json::parse(R"({"frontmatter": [["title", "\"二\""]],
                              "body": "See [[Plan|plan]]", "wikiLinks": ["Plan"]})"));
}

// A folder remembered once serves save and vault without --folder; one that has gone since is
// reported, never recreated where the user no longer looks.
TEST_F(KelvoBinary, RememberedFolderServesSaveAndVaultUntilItIsGone) {
    const std::string unset = "kelvo: 保存先フォルダが未設定です\n";
    for (const auto& arguments : {std::vector<std::string>{"folder", "show"}, {"vault", "list"}}) {
        const Outcome run = kelvo(arguments);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.errors, unset);
    }
    fs::create_directories(root / "work" / "notes");
    folder.write(root / "home/.config/KelvoVoiceMac/kelvo.json", "{ damaged");
    const Outcome set = kelvo({"folder", "set", "notes"});
    ASSERT_EQ(set.status, 0) << set.errors;
    EXPECT_TRUE(set.errors.starts_with("kelvo: the remembered folder's file ")) << set.errors;
    EXPECT_EQ(set.output, fs::canonical(root / "work" / "notes").string() + "\n");

    const Outcome saved = kelvo({"save"}, kSavedResult);
    ASSERT_EQ(saved.status, 0) << saved.errors;
    const fs::path file =
        pathFromFileUrl(Json::parse(saved.output).at("savedURL").get<std::string>());
    EXPECT_EQ(file.parent_path(), fs::canonical(root / "work" / "notes"));
    EXPECT_EQ(kelvo({"vault", "list"}).output, file.filename().string() + "\n");

    fs::rename(root / "work" / "notes", root / "moved");
    const Outcome lost = kelvo({"save"}, kSavedResult);
    EXPECT_EQ(lost.status, 1);
    EXPECT_EQ(lost.errors, unset);
    EXPECT_FALSE(fs::exists(root / "work" / "notes"));
    fs::rename(root / "moved", root / "work" / "notes");
    EXPECT_EQ(kelvo({"folder", "show"}).status, 0);
    EXPECT_EQ(kelvo({"folder", "forget"}).status, 0);
    EXPECT_EQ(kelvo({"folder", "show"}).errors, unset);
}

TEST_F(KelvoBinary, BundledSampleDictionaryCorrectsTheBundledTranscript) {
    const fs::path samples = KELVO_SAMPLES_DIR;
    const Outcome corrected =
        kelvo({"correct", "--dictionary", (samples / "dictionary.json").string()},
              contentsOf(samples / "transcript.txt"));
    ASSERT_EQ(corrected.status, 0) << corrected.errors;
    const Outcome cleaned = kelvo({"fillers"}, corrected.output);
    ASSERT_EQ(cleaned.status, 0) << cleaned.errors;
    EXPECT_EQ(cleaned.output,
              "今日の打ち合わせの議事録です。来週東京都の会場で、Kubernetesの勉強会があります。\n"
              "それで、KelvoVoiceの新しいバージョンも、そこで紹介する予定です。"
              "デモはVS Codeから動かします。\n"
              "それから、GitHubのリポジトリは、AIの検証用に分けておいてください。"
              "スラックへの連絡は、東京のチームにお願いします。\n\n\n");
}

// `kelvo process --worker` against a loopback worker.
TEST_F(KelvoBinary, ProcessTranscribesAndProcessesThroughTheWorkerWithTheDefaults) {
    const fs::path audio = folder.write(root / "memo.m4a", "recorded audio");
    test::LoopbackHttpServer server;
    server.answer(200, R"({"text":"ワーカーの文"})");
    const Outcome outcome = kelvo({"process", "--audio", audio.string(), "--level", "bulletsOrTodo",
                                   "--worker", server.url("/v1"), "--token", "secret-token"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    const Json result = Json::parse(outcome.output);
    EXPECT_EQ(result["rawTranscript"], "ワーカーの文");
    EXPECT_EQ(result["processedText"], "ワーカーの文");
    EXPECT_EQ(historyItemCount(), 1u);
    EXPECT_EQ(outcome.output.find("secret-token"), std::string::npos);
    EXPECT_EQ(contentsOf(defaultHistory()).find("secret-token"), std::string::npos);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].path, "/v1/transcribe");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer secret-token");
    EXPECT_EQ(requests[0].field("model"), "whisper-1");
    // The words sent for level and language are OpenAI*ServiceTest's.
    EXPECT_EQ(requests[1].path, "/v1/process");
}

TEST_F(KelvoBinary, WorkerTokensComeFromTheEnvironmentUnlessGivenOnTheCommandLine) {
    const fs::path audio = folder.write(root / "memo.m4a", "recorded audio");
    test::LoopbackHttpServer server;
    const std::vector<std::string> envToken = {"KELVO_WORKER_TOKEN=env-token"};
    const std::vector<std::string> text = {"process", "--text", "a", "--level", "cleanup"};
    const std::pair<std::vector<std::string>, std::vector<std::string>> runs[] = {
        {text, envToken},
        {{"process", "--text", "a", "--level", "cleanup", "--token", "line-token"}, envToken},
        {text, {"KELVO_WORKER_TOKEN=env-token", "KELVO_DEVICE_TOKEN=device"}},
        {{"process", "--audio", audio.string(), "--model", "m-2"}, {}},
    };
    for (auto [arguments, variables] : runs) {
        arguments.insert(arguments.end(), {"--worker", server.url()});
        ASSERT_EQ(kelvo(arguments, "", variables).status, 0);
    }
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer env-token");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer line-token");
    EXPECT_EQ(requests[2].header("X-Device-Token"), "device");
    EXPECT_FALSE(requests[2].hasHeader("Authorization"));
    EXPECT_FALSE(requests[3].hasHeader("Authorization"));
    EXPECT_EQ(requests[3].field("model"), "m-2");
}

TEST_F(KelvoBinary, WorkerFailureExitsWithItsDescriptionAndRecordsNothing) {
    test::LoopbackHttpServer server;
    server.answer(500, "boom");
    const Outcome failed = kelvo({"process", "--text", "a", "--level", "cleanup", "--worker",
                                  server.url(), "--token", "secret-token"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.output, "");
    EXPECT_EQ(failed.errors, "kelvo: API error (500): boom\n");
    EXPECT_EQ(historyItemCount(), 0u);

    server.answer(200, R"({"text":"late"})");
    server.holdAnswers();
    const Outcome timedOut =
        kelvo({"process", "--audio", folder.write(root / "memo.m4a", "recorded audio").string(),
               "--worker", server.url(), "--transcribe-timeout", "0.2", "--token", "secret-token"});
    server.releaseAnswers();
    EXPECT_EQ(timedOut.status, 1);
    EXPECT_EQ(timedOut.errors.rfind("kelvo: ", 0), 0u) << timedOut.errors;
    EXPECT_EQ(timedOut.errors.find("secret-token"), std::string::npos);
    EXPECT_EQ(historyItemCount(), 0u);
}

// `kelvo models` installing from a loopback file server named by a catalogue file
// (KELVO_MODEL_CATALOG), listing and removing. How a download is resumed or refused is the
// installer's own (ModelInstallationTest); here only its wiring and output.
TEST_F(KelvoBinary, ModelsAreInstalledListedAndRemoved) {
    const std::string model = std::string(2'000'000, 'm') + "end";
    testing::ModelFileServer server(model);
    const Json catalog = Json::array({Json{{"name", "tiny"},
                                           {"url", server.baseURL() + "ggml-tiny.bin"},
                                           {"sizeBytes", model.size()},
                                           {"sizeIsExact", true},
                                           {"sha256", testing::hexDigest(model, EVP_sha256())},
                                           {"description", "for \\x1B tests\x1b[2J"}}});
    const std::vector<std::string> variables = {
        "KELVO_MODEL_CATALOG=" + folder.write(root / "catalog.json", catalog.dump()).string()};
    const fs::path modelFile = root / "data/KelvoVoiceMac/models/ggml-tiny.bin";
    const auto statusOfTiny = [&] {
        const Outcome listed = kelvo({"models", "list", "--json"}, "", variables);
        EXPECT_EQ(listed.status, 0) << listed.errors;
        return Json::parse(listed.output).at(0).at("status").get<std::string>();
    };
    EXPECT_EQ(statusOfTiny(), "supported");

    Outcome outcome = kelvo({"models", "install", "tiny"}, "", variables);
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "Installed tiny in " + modelFile.string() + " (checksum verified)\n");
    EXPECT_EQ(contentsOf(modelFile), model);
    EXPECT_EQ(statusOfTiny(), "installed");
    const Outcome list = kelvo({"models", "list"}, "", variables);
    // What a catalogue holds is shown escaped, a backslash too, so the two are told apart.
    EXPECT_NE(list.output.find("installed (checksum verified) — for \\\\x1B tests\\x1B[2J\n"),
              std::string::npos)
        << list.output;
    EXPECT_NE(list.output.find("Dictation (ja-JP) uses: tiny"), std::string::npos);

    outcome = kelvo({"models", "remove", "tiny"}, "", variables);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Removed tiny\n");
    EXPECT_FALSE(fs::exists(modelFile));
    EXPECT_EQ(statusOfTiny(), "supported");

    // The only model of this catalogue is the suggestion on any machine; the reason names the CPU.
    outcome = kelvo({"models", "install", "--recommended"}, "", variables);
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors.rfind("Recommended for this computer: tiny (2.0 MB) — ", 0), 0u);
    EXPECT_EQ(outcome.output.rfind("Installed tiny in ", 0), 0u) << outcome.output;
}

}  // namespace
}  // namespace kelvo
