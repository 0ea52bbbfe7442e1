// `kelvo process --worker`: the built binary, run as a child process, against a loopback worker.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "core/models/Json.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/KelvoProcess.h"
#include "tests/support/LoopbackHttpServer.h"

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using test::KelvoProcess;
using test::LoopbackHttpServer;
using testing::contentsOf;

class KelvoWorkerTest : public ::testing::Test {
  protected:
    /// Runs kelvo with `arguments` after "process", its own dictionary and history in the test
    /// folder, and an environment holding only HOME, XDG_DATA_HOME and `variables` ("NAME=value").
    KelvoProcess::Outcome process(std::vector<std::string> arguments,
                                  std::vector<std::string> variables = {}) {
        arguments.insert(arguments.begin(),
                         {"process", "--dictionary", (folder_.path() / "dictionary.json").string(),
                          "--history", history().string()});
        variables.push_back("HOME=" + folder_.path().string());
        variables.push_back("XDG_DATA_HOME=" + (folder_.path() / "data").string());
        return KelvoProcess(KELVO_BINARY, arguments, variables).finish();
    }

    fs::path history() const { return folder_.path() / "history.json"; }

    std::size_t historyItemCount() const {
        if (!fs::exists(history())) {
            return 0;
        }
        return Json::parse(contentsOf(history())).size();
    }

    testing::TemporaryFolder folder_;
    fs::path audio_ = folder_.write("memo.m4a", "recorded audio");
};

TEST_F(KelvoWorkerTest, TranscribesAndProcessesThroughTheWorkerWithTheDefaults) {
    LoopbackHttpServer server;
    server.answer(200, R"({"text":"ワーカーの文"})");
    const auto outcome = process({"--audio", audio_.string(), "--level", "bulletsOrTodo",
                                  "--worker", server.url("/v1"), "--token", "secret-token"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    const Json result = Json::parse(outcome.output);
    EXPECT_EQ(result["rawTranscript"], "ワーカーの文");
    EXPECT_EQ(result["processedText"], "ワーカーの文");
    EXPECT_EQ(historyItemCount(), 1u);
    EXPECT_EQ(outcome.output.find("secret-token"), std::string::npos);
    EXPECT_EQ(contentsOf(history()).find("secret-token"), std::string::npos);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].path, "/v1/transcribe");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer secret-token");
    EXPECT_EQ(requests[0].field("model"), "whisper-1");
    // The words sent for level and language are OpenAI*ServiceTest's.
    EXPECT_EQ(requests[1].path, "/v1/process");
}

TEST_F(KelvoWorkerTest, TokensComeFromTheEnvironmentUnlessGivenOnTheCommandLine) {
    LoopbackHttpServer server;
    const std::vector<std::string> envToken = {"KELVO_WORKER_TOKEN=env-token"};
    const std::vector<std::string> text = {"--text", "a", "--level", "cleanup"};
    const std::pair<std::vector<std::string>, std::vector<std::string>> runs[] = {
        {text, envToken},
        {{"--text", "a", "--level", "cleanup", "--token", "line-token"}, envToken},
        {text, {"KELVO_WORKER_TOKEN=env-token", "KELVO_DEVICE_TOKEN=device"}},
        {{"--audio", audio_.string(), "--model", "m-2"}, {}},
    };
    for (auto [arguments, environment] : runs) {
        arguments.insert(arguments.end(), {"--worker", server.url()});
        ASSERT_EQ(process(arguments, environment).status, 0);
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

TEST_F(KelvoWorkerTest, WorkerFailureExitsWithItsDescriptionAndRecordsNothing) {
    LoopbackHttpServer server;
    server.answer(500, "boom");
    const auto failed = process(
        {"--text", "a", "--level", "cleanup", "--worker", server.url(), "--token", "secret-token"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.output, "");
    EXPECT_EQ(failed.errors, "kelvo: API error (500): boom\n");
    EXPECT_EQ(historyItemCount(), 0u);

    server.answer(200, R"({"text":"late"})");
    server.holdAnswers();
    const auto timedOut = process({"--audio", audio_.string(), "--worker", server.url(),
                                   "--transcribe-timeout", "0.2", "--token", "secret-token"});
    server.releaseAnswers();
    EXPECT_EQ(timedOut.status, 1);
    EXPECT_EQ(timedOut.errors.rfind("kelvo: ", 0), 0u) << timedOut.errors;
    EXPECT_EQ(timedOut.errors.find("secret-token"), std::string::npos);
    EXPECT_EQ(historyItemCount(), 0u);
}

}  // namespace
}  // namespace kelvo
