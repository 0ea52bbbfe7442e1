// `kelvo dictate --file` as a child process on flite-spoken English: the recognised text (word
// error rate printed, a loose bound asserted), the events on standard error, a dictionary entry
// applied, a model in the user's model folder, the fallback recogniser with the application's log
// lines, and the failures that exit 1 with one line. With whisper.cpp built in and a model file
// named by KELVO_TEST_WHISPER_MODEL (whisper.cpp's for-tests models decode without producing
// text), also the model engine's path from `kelvo models install` to the end of the dictation.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "core/models/Json.h"
#include "tests/core/ModelFileServer.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/e2e/SpokenEnglish.h"
#include "tests/support/KelvoProcess.h"

#ifndef KELVO_HAS_WHISPER
#define KELVO_HAS_WHISPER 0
#endif

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
    for (const char* name : {"PATH", "HOME", "LANG", "LC_ALL", "TMPDIR", "LD_LIBRARY_PATH"}) {
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
    KelvoProcess::Outcome kelvo(const std::vector<std::string>& arguments,
                                const std::string& dataHome = "data",
                                const std::vector<std::string>& variables = {}) {
        std::vector<std::string> environment = environmentWith(folder_->path() / dataHome);
        environment.insert(environment.end(), variables.begin(), variables.end());
        return KelvoProcess(KELVO_BINARY, arguments, environment).finish();
    }

    static testing::TemporaryFolder* folder_;
    static std::string said_;
};

testing::TemporaryFolder* KelvoDictate::folder_ = nullptr;
std::string KelvoDictate::said_;

TEST_F(KelvoDictate, RecognisesEnglishAndReportsEveryResultAsJson) {
    const auto outcome = kelvo({"dictate", "--locale", "en-US", "--file",
                                (folder_->path() / "sentences.wav").string(), "--events"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    ASSERT_FALSE(outcome.output.empty());
    EXPECT_EQ(outcome.output.find('\n'), outcome.output.size() - 1) << "one line";
    const std::string text = outcome.output.substr(0, outcome.output.size() - 1);

    const double wer = testing::wordErrorRate(said_, text);
    std::cout << "word error rate " << wer * 100 << " % on " << kSentences.size()
              << " flite kal16 sentences\n  said: " << said_ << "\n  text: " << text << "\n";
    RecordProperty("word_error_rate_percent", std::to_string(wer * 100));
    EXPECT_LT(wer, 0.25);

    // Every line on standard error is one event (how they compose the text is
    // DictationTranscriptTest's).
    std::istringstream lines(outcome.errors);
    int partials = 0;
    int finals = 0;
    for (std::string line; std::getline(lines, line);) {
        const Json event = Json::parse(line);
        partials += event.at("type") == "partial";
        finals += event.at("type") == "final";
    }
    EXPECT_GT(partials, 0);
    EXPECT_GT(finals, 0);
    EXPECT_EQ(partials + finals, std::count(outcome.errors.begin(), outcome.errors.end(), '\n'));
}

TEST_F(KelvoDictate, AppliesTheDictionaryToAnyFileFormatAndFindsUserModelsOrFallsBack) {
    // The same speech as 44.1 kHz stereo FLAC: decoded and converted like microphone audio.
    const auto flac = folder_->path() / "office.flac";
    testing::speak({kSentences[1]}, flac, 44100, 2);
    const auto dictionary = folder_->path() / "dictionary.json";
    ASSERT_EQ(kelvo({"dictionary", "add", "--dictionary", dictionary.string(), "--canonical",
                     "Office365", "--misrecognition", "my office"})
                  .status,
              0);
    // A model of the documented layout in the user's folder, under a locale of its own.
    const auto model =
        folder_->path() / "data-with-model" / "KelvoVoiceMac" / "models" / "pocketsphinx" / "en-GB";
    std::filesystem::create_directories(model);
    const std::filesystem::path debian = "/usr/share/pocketsphinx/model/en-us";
    std::filesystem::create_directory_symlink(debian / "en-us", model / "acoustic");
    std::filesystem::create_symlink(debian / "cmudict-en-us.dict", model / "words.dict");
    std::filesystem::create_symlink(debian / "en-us.lm.bin", model / "english.lm.bin");

    // No speech model installed (or none built in) for "automatic"; never a model for "fallback":
    // either way the fallback recogniser, saying why with the application's log line.
    const std::string automatic =
        KELVO_HAS_WHISPER
            ? "SpeechTranscriber assets are not installed after request (status=supported)"
            : "SpeechTranscriber is not available on this device";
    const struct {
        std::vector<std::string> arguments;
        std::string reason;  // on standard error with --trace; nothing there without
    } runs[] = {
        {{"--locale", "en-GB"}, ""},
        {{"--locale", "en-US", "--trace"}, automatic},
        {{"--locale", "en-GB", "--trace", "--engine", "fallback"},
         "SpeechTranscriber is not available on this device"},
    };
    for (const auto& run : runs) {
        SCOPED_TRACE(::testing::PrintToString(run.arguments));
        std::vector<std::string> arguments = {"dictate", "--file", flac.string(), "--dictionary",
                                              dictionary.string()};
        arguments.insert(arguments.end(), run.arguments.begin(), run.arguments.end());
        const auto outcome = kelvo(arguments, "data-with-model");
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_NE(outcome.output.find("Office365"), std::string::npos) << outcome.output;
        EXPECT_EQ(outcome.output.find("my office"), std::string::npos) << outcome.output;
        if (run.reason.empty()) {
            EXPECT_EQ(outcome.errors, "");
        } else {
            EXPECT_NE(outcome.errors.find("[SpeechService] SpeechAnalyzer unavailable: " +
                                          run.reason + ". Falling back to SFSpeechRecognizer\n"),
                      std::string::npos)
                << outcome.errors;
        }
    }
}

TEST_F(KelvoDictate, FailuresExitOneWithOneLineAndNoOutput) {
    const auto text = folder_->write("notes.txt", "not audio at all\n");
    const auto empty = folder_->path() / "empty.wav";
    testing::runShell("sox -n -r 16000 -c 1 -b 16 " + testing::quoted(empty) + " trim 0 0");
    const auto speech = (folder_->path() / "sentences.wav").string();
    const auto fifo = (folder_->path() / "stream.wav").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
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
        // Not a file: refused at once, neither waited on nor fetched.
        {{"--locale", "en-US", "--file", fifo},
         "kelvo: cannot read audio file '" + fifo +
             "': it is not a regular file (a FIFO, a device or a socket)\n"},
        {{"--locale", "en-US", "--file", "http://127.0.0.1:9/speech.wav"},
         "kelvo: cannot read audio file 'http://127.0.0.1:9/speech.wav': only local files are "
         "read, not URLs\n"},
        // The application's own locale has no model on Debian: say which exist and where to
        // put one, before the file is even opened.
        {{"--file", fifo},
         "kelvo: no speech recognition model for ja-JP (installed: en-US); " +
             std::string(KELVO_HAS_WHISPER ? "install a speech model with kelvo models install "
                                             "--recommended (or NAME, see kelvo models list) or "
                                           : "") +
             "put a PocketSphinx model for it in " +
             (folder_->path() / "data/KelvoVoiceMac/models/pocketsphinx/ja-JP").string() +
             "/ (an acoustic model folder, a .dict and a .lm.bin file)\n"},
        {{"--file", speech, "--model", "tiny"},
         "kelvo: model 'tiny' is not installed (install it with kelvo models install tiny)\n"},
        {{"--file", speech, "--model", "large-v9"},
         "kelvo: unknown model 'large-v9' (see kelvo models list)\n"},
    };
    for (const auto& failure : cases) {
        SCOPED_TRACE(failure.arguments.back());
        std::vector<std::string> arguments = failure.arguments;
        arguments.insert(arguments.begin(), "dictate");
        const auto outcome = kelvo(arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors, failure.error);
    }
}

TEST_F(KelvoDictate, RunsAnInstalledModelOnTheApplicationsAnalyserPath) {
    const char* model = std::getenv("KELVO_TEST_WHISPER_MODEL");
    if (!KELVO_HAS_WHISPER || !model || !*model) {
        GTEST_SKIP() << "needs whisper.cpp built in and KELVO_TEST_WHISPER_MODEL";
    }
    // Installed as a user would, from a loopback mirror listed in a catalogue of its own.
    const std::string bytes = testing::contentsOf(model);
    testing::ModelFileServer server(bytes);
    const Json entry = {{"name", "test"},
                        {"url", server.baseURL() + "ggml-test.bin"},
                        {"sizeIsExact", true},
                        {"sizeBytes", bytes.size()},
                        {"languages", {"ja"}}};
    const auto catalog = folder_->write("catalog.json", Json::array({entry}).dump());
    const std::vector<std::string> variables = {"KELVO_MODEL_CATALOG=" + catalog.string()};
    const auto installed = kelvo({"models", "install", "test"}, "data-whisper", variables);
    ASSERT_EQ(installed.status, 0) << installed.errors;

    const auto speech = (folder_->path() / "sentences.wav").string();
    for (const std::vector<std::string>& choice :
         {std::vector<std::string>{}, std::vector<std::string>{"--model", "test"}}) {
        std::vector<std::string> arguments = {"dictate", "--file", speech, "--events", "--trace"};
        arguments.insert(arguments.end(), choice.begin(), choice.end());
        const auto outcome = kelvo(arguments, "data-whisper", variables);
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        for (const char* line : {
                 "[KelvoVoice] Model ggml-test.bin loaded and warmed up in ",
                 "[SpeechService] SpeechTranscriber check locale=ja-JP resolved=ja "
                 "supportedCount=1 installedCount=1 assetStatus=installed\n",
                 "[SpeechService] Using SpeechAnalyzer/SpeechTranscriber\n",
                 "[SpeechService] SpeechAnalyzer finalized through end of input\n",
             }) {
            EXPECT_NE(outcome.errors.find(line), std::string::npos) << line << outcome.errors;
        }
        EXPECT_EQ(outcome.errors.find("Falling back"), std::string::npos) << outcome.errors;
        // Whatever the weightless model made of it came as events.
        std::istringstream lines(outcome.errors);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("{")) {
                const Json event = Json::parse(line);
                EXPECT_TRUE(event.at("type") == "final" || event.at("type") == "partial") << line;
            }
        }
    }
}

}  // namespace
}  // namespace kelvo
