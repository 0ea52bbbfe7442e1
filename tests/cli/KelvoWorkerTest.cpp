// `kelvo process --worker`: the built binary, run as a child process, against a loopback worker.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "core/models/Json.h"
#include "core/support/Uuid.h"
#include "tests/support/LoopbackHttpServer.h"

extern char** environ;

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using test::LoopbackHttpServer;

struct Outcome {
    int exitCode = -1;
    std::string output;
    std::string errors;
};

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class KelvoWorkerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        folder_ = fs::temp_directory_path() / ("kelvo-cli-worker-" + makeUuid());
        fs::create_directories(folder_);
        audio_ = folder_ / "memo.m4a";
        std::ofstream(audio_) << "recorded audio";
    }
    void TearDown() override { fs::remove_all(folder_); }

    /// Runs kelvo with `arguments` after "process", its own dictionary and history in the test
    /// folder, and an environment holding only HOME, XDG_DATA_HOME and `environment`.
    Outcome process(std::vector<std::string> arguments,
                    const std::map<std::string, std::string>& environment = {}) {
        std::vector<std::string> argumentTexts = {
            KELVO_BINARY, "process",         "--dictionary", (folder_ / "dictionary.json").string(),
            "--history",  history().string()};
        argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());
        std::vector<std::string> environmentTexts = {
            "HOME=" + folder_.string(), "XDG_DATA_HOME=" + (folder_ / "data").string()};
        for (const auto& [name, value] : environment) {
            environmentTexts.push_back(name + "=" + value);
        }
        std::vector<char*> argv;
        for (auto& text : argumentTexts) {
            argv.push_back(text.data());
        }
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (auto& text : environmentTexts) {
            envp.push_back(text.data());
        }
        envp.push_back(nullptr);

        const fs::path out = folder_ / "stdout";
        const fs::path err = folder_ / "stderr";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        pid_t child = 0;
        Outcome outcome;
        if (posix_spawn(&child, KELVO_BINARY, &actions, nullptr, argv.data(), envp.data()) == 0) {
            int status = 0;
            waitpid(child, &status, 0);
            outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        outcome.output = readFile(out);
        outcome.errors = readFile(err);
        return outcome;
    }

    fs::path history() const { return folder_ / "history.json"; }

    std::size_t historyItemCount() const {
        if (!fs::exists(history())) {
            return 0;
        }
        return Json::parse(readFile(history())).size();
    }

    fs::path folder_;
    fs::path audio_;
};

TEST_F(KelvoWorkerTest, TranscribesAndProcessesThroughTheWorkerWithTheDefaults) {
    LoopbackHttpServer server;
    server.answer(200, R"({"text":"ワーカーの文"})");
    const Outcome outcome = process({"--audio", audio_.string(), "--level", "bulletsOrTodo",
                                     "--worker", server.url("/v1"), "--token", "secret-token"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    const Json result = Json::parse(outcome.output);
    EXPECT_EQ(result["rawTranscript"], "ワーカーの文");
    EXPECT_EQ(result["processedText"], "ワーカーの文");
    EXPECT_EQ(historyItemCount(), 1u);
    EXPECT_EQ(outcome.output.find("secret-token"), std::string::npos);
    EXPECT_EQ(readFile(history()).find("secret-token"), std::string::npos);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].path, "/v1/transcribe");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer secret-token");
    EXPECT_EQ(requests[0].files.find("model")->second.content, "whisper-1");
    EXPECT_EQ(requests[0].files.find("language")->second.content, "ja");
    EXPECT_EQ(requests[1].path, "/v1/process");
    EXPECT_EQ(Json::parse(requests[1].body)["summaryLevel"], "bullets");
}

TEST_F(KelvoWorkerTest, TokensComeFromTheEnvironmentUnlessGivenOnTheCommandLine) {
    LoopbackHttpServer server;
    const std::map<std::string, std::string> environment = {{"KELVO_WORKER_TOKEN", "env-token"}};
    ASSERT_EQ(process({"--text", "a", "--level", "cleanup", "--worker", server.url()}, environment)
                  .exitCode,
              0);
    ASSERT_EQ(process({"--text", "a", "--level", "cleanup", "--worker", server.url(), "--token",
                       "line-token"},
                      environment)
                  .exitCode,
              0);
    ASSERT_EQ(process({"--text", "a", "--level", "cleanup", "--worker", server.url()},
                      {{"KELVO_WORKER_TOKEN", "env-token"}, {"KELVO_DEVICE_TOKEN", "device"}})
                  .exitCode,
              0);
    ASSERT_EQ(
        process({"--audio", audio_.string(), "--worker", server.url(), "--model", "m-2"}).exitCode,
        0);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer env-token");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer line-token");
    EXPECT_EQ(requests[2].header("X-Device-Token"), "device");
    EXPECT_FALSE(requests[2].hasHeader("Authorization"));
    EXPECT_FALSE(requests[3].hasHeader("Authorization"));
    EXPECT_EQ(requests[3].files.find("model")->second.content, "m-2");
}

TEST_F(KelvoWorkerTest, WorkerFailureExitsWithItsDescriptionAndRecordsNothing) {
    LoopbackHttpServer server;
    server.answer(500, "boom");
    const Outcome failed = process(
        {"--text", "a", "--level", "cleanup", "--worker", server.url(), "--token", "secret-token"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.output, "");
    EXPECT_EQ(failed.errors, "kelvo: API error (500): boom\n");
    EXPECT_EQ(historyItemCount(), 0u);

    server.answer(200, R"({"text":"late"})");
    server.holdAnswers();
    const Outcome timedOut = process({"--audio", audio_.string(), "--worker", server.url(),
                                      "--transcribe-timeout", "0.2", "--token", "secret-token"});
    server.releaseAnswers();
    EXPECT_EQ(timedOut.exitCode, 1);
    EXPECT_EQ(timedOut.errors.rfind("kelvo: ", 0), 0u) << timedOut.errors;
    EXPECT_EQ(timedOut.errors.find("secret-token"), std::string::npos);
    EXPECT_EQ(historyItemCount(), 0u);
}

TEST_F(KelvoWorkerTest, WorkerOptionsAreCheckedBeforeAnythingRuns) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--text", "a", "--token", "t"}, "kelvo: --token needs --worker\n"},
        {{"--text", "a", "--worker", ""}, "kelvo: --worker needs a URL\n"},
        {{"--text", "a", "--worker", "http://127.0.0.1:9", "--process-timeout", "0"},
         "kelvo: invalid value '0' for --process-timeout (expected a number of seconds above "
         "zero)\n"},
        {{"--text", "a", "--worker", "http://127.0.0.1:9", "--transcribe-timeout", "soon"},
         "kelvo: invalid value 'soon' for --transcribe-timeout (expected a number of seconds "
         "above zero)\n"},
    };
    for (const auto& [arguments, firstLine] : cases) {
        const Outcome outcome = process(arguments);
        EXPECT_EQ(outcome.exitCode, 2);
        EXPECT_EQ(outcome.errors.substr(0, firstLine.size()), firstLine);
    }
    EXPECT_EQ(historyItemCount(), 0u);
}

}  // namespace
}  // namespace kelvo
