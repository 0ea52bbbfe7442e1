// `kelvo dictate --file` as a child process on flite-spoken English: the recognised text (word
// error rate printed, a loose bound asserted), the events on standard error, a dictionary entry
// applied, a model in the user's model folder, and the failures that exit 1 with one line.

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "core/models/Json.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/e2e/SpokenEnglish.h"
#include "tests/support/KelvoProcess.h"

namespace kelvo {
namespace {

using test::KelvoProcess;

const std::vector<std::string> kSentences = {
    "the weather is nice today so we will walk to the park",
    "please send the report to my office before noon",
    "i would like a glass of water",
    "turn off the lights in the kitchen",
};

std::vector<std::string> environmentWith(const std::filesystem::path& dataHome) {
    std::vector<std::string> environment;
    for (const char* name : {"PATH", "HOME", "LANG", "LC_ALL", "TMPDIR"}) {
        if (const char* value = std::getenv(name)) {
            environment.push_back(std::string(name) + "=" + value);
        }
    }
    environment.push_back("XDG_DATA_HOME=" + dataHome.string());
    return environment;
}

class KelvoDictate : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        folder_ = new testing::TemporaryFolder;
        said_ = testing::speak(kSentences, folder_->path() / "sentences.wav");
    }
    static void TearDownTestSuite() {
        delete folder_;
        folder_ = nullptr;
    }

    // With its own data folder ($XDG_DATA_HOME) under the suite's folder, "data" unless named.
    KelvoProcess::Outcome dictate(const std::vector<std::string>& arguments,
                                  const std::string& dataHome = "data") {
        std::vector<std::string> all = {"dictate"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        KelvoProcess kelvo(KELVO_BINARY, all, environmentWith(folder_->path() / dataHome));
        return kelvo.finish();
    }

    static testing::TemporaryFolder* folder_;
    static std::string said_;
};

testing::TemporaryFolder* KelvoDictate::folder_ = nullptr;
std::string KelvoDictate::said_;

TEST_F(KelvoDictate, RecognisesEnglishAndReportsEveryResultAsJson) {
    const auto outcome = dictate(
        {"--locale", "en-US", "--file", (folder_->path() / "sentences.wav").string(), "--events"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    ASSERT_FALSE(outcome.output.empty());
    EXPECT_EQ(outcome.output.find('\n'), outcome.output.size() - 1) << "one line";
    const std::string text = outcome.output.substr(0, outcome.output.size() - 1);

    const double wer = testing::wordErrorRate(said_, text);
    std::cout << "word error rate " << wer * 100 << " % on " << kSentences.size()
              << " flite kal16 sentences\n  said: " << said_ << "\n  text: " << text << "\n";
    RecordProperty("word_error_rate_percent", std::to_string(wer * 100));
    EXPECT_LT(wer, 0.25);

    // Every line on standard error is one event; the finals, joined, are the text.
    std::istringstream lines(outcome.errors);
    std::string finals;
    int partials = 0;
    for (std::string line; std::getline(lines, line);) {
        const Json event = Json::parse(line);
        if (event.at("type") == "final") {
            finals += event.at("text").get<std::string>();
        } else {
            EXPECT_EQ(event.at("type"), "partial") << line;
            ++partials;
        }
    }
    EXPECT_GT(partials, 0);
    EXPECT_EQ(finals.substr(0, finals.find_last_not_of(' ') + 1), text);
}

TEST_F(KelvoDictate, AppliesTheDictionaryToAnyFileFormatAndFindsUserModels) {
    // The same speech as 44.1 kHz stereo FLAC: decoded and converted like microphone audio.
    const auto flac = folder_->path() / "office.flac";
    testing::speak({kSentences[1]}, flac, 44100, 2);
    const auto dictionary = folder_->path() / "dictionary.json";
    {
        KelvoProcess add(KELVO_BINARY,
                         {"dictionary", "add", "--dictionary", dictionary.string(), "--canonical",
                          "Office365", "--misrecognition", "my office"});
        ASSERT_EQ(add.finish().status, 0);
    }
    // A model of the documented layout in the user's folder, under a locale of its own.
    const auto model =
        folder_->path() / "data-with-model" / "KelvoVoiceMac" / "models" / "pocketsphinx" / "en-GB";
    std::filesystem::create_directories(model);
    const std::filesystem::path debian = "/usr/share/pocketsphinx/model/en-us";
    std::filesystem::create_directory_symlink(debian / "en-us", model / "acoustic");
    std::filesystem::create_symlink(debian / "cmudict-en-us.dict", model / "words.dict");
    std::filesystem::create_symlink(debian / "en-us.lm.bin", model / "english.lm.bin");

    for (const char* locale : {"en-US", "en-GB"}) {
        SCOPED_TRACE(locale);
        const auto outcome = dictate(
            {"--locale", locale, "--file", flac.string(), "--dictionary", dictionary.string()},
            "data-with-model");
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_NE(outcome.output.find("Office365"), std::string::npos) << outcome.output;
        EXPECT_EQ(outcome.output.find("my office"), std::string::npos) << outcome.output;
        EXPECT_EQ(outcome.errors, "");
    }
}

TEST_F(KelvoDictate, FailuresExitOneWithOneLineAndNoOutput) {
    const auto text = folder_->write("notes.txt", "not audio at all\n");
    const auto empty = folder_->path() / "empty.wav";
    testing::runShell("sox -n -r 16000 -c 1 -b 16 " + testing::quoted(empty) + " trim 0 0");
    const auto speech = (folder_->path() / "sentences.wav").string();
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } cases[] = {
        {{"--locale", "en-US", "--file", (folder_->path() / "missing.wav").string()},
         "kelvo: cannot read audio file '" + (folder_->path() / "missing.wav").string() +
             "': No such file or directory\n"},
        {{"--locale", "en-US", "--file", text.string()},
         "kelvo: cannot read audio file '" + text.string() +
             "': Invalid data found when processing input\n"},
        {{"--locale", "en-US", "--file", empty.string()},
         "kelvo: audio file '" + empty.string() + "' contains no audio\n"},
        // The application's own locale has no model on Debian: say which exist and where to
        // put one.
        {{"--file", speech},
         "kelvo: no speech recognition model for ja-JP (installed: en-US); put a PocketSphinx "
         "model for it in " +
             (folder_->path() / "data/KelvoVoiceMac/models/pocketsphinx/ja-JP").string() +
             "/ (an acoustic model folder, a .dict and a .lm.bin file)\n"},
    };
    for (const auto& failure : cases) {
        SCOPED_TRACE(failure.arguments.back());
        const auto outcome = dictate(failure.arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors, failure.error);
    }
}

}  // namespace
}  // namespace kelvo
