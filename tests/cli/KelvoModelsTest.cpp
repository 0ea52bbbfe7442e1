// `kelvo models`: the built binary, run as a child process, installing from a loopback file server
// named by a catalogue file (KELVO_MODEL_CATALOG), listing and removing. How a download is resumed
// or refused is the installer's own (ModelInstallationTest); here only its wiring and output.

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "core/models/Json.h"
#include "tests/core/ModelFileServer.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/KelvoProcess.h"

namespace kelvo {
namespace {

using test::KelvoProcess;
using testing::ModelFileServer;

class KelvoModelsTest : public ::testing::Test {
  protected:
    KelvoModelsTest() {
        Json catalog = Json::array();
        catalog.push_back({{"name", "tiny"},
                           {"url", server_.baseURL() + "ggml-tiny.bin"},
                           {"sizeBytes", file_.size()},
                           {"sizeIsExact", true},
                           {"sha256", testing::hexDigest(file_, EVP_sha256())},
                           {"description", "for \\x1B tests\x1b[2J"}});
        catalog_ = folder_.write("catalog.json", catalog.dump());
    }

    KelvoProcess::Outcome kelvo(std::vector<std::string> arguments) {
        return KelvoProcess(
                   KELVO_BINARY, arguments,
                   std::vector<std::string>{"HOME=" + folder_.path().string(),
                                            "XDG_DATA_HOME=" + (folder_.path() / "data").string(),
                                            "KELVO_MODEL_CATALOG=" + catalog_.string()})
            .finish();
    }

    std::string statusOfTiny() {
        const auto outcome = kelvo({"models", "list", "--json"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        return Json::parse(outcome.output).at(0).at("status").get<std::string>();
    }

    std::filesystem::path modelFile() const {
        return folder_.path() / "data" / "KelvoVoiceMac" / "models" / "ggml-tiny.bin";
    }

    std::string file_ = std::string(2'000'000, 'm') + "end";
    testing::TemporaryFolder folder_;
    ModelFileServer server_{file_};
    std::filesystem::path catalog_;
};

TEST_F(KelvoModelsTest, InstallsListsAndRemoves) {
    EXPECT_EQ(statusOfTiny(), "supported");

    auto outcome = kelvo({"models", "install", "tiny"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output,
              "Installed tiny in " + modelFile().string() + " (checksum verified)\n");
    EXPECT_EQ(testing::contentsOf(modelFile()), file_);
    EXPECT_EQ(statusOfTiny(), "installed");
    const auto list = kelvo({"models", "list"});
    // What a catalogue holds is shown escaped, a backslash too, so the two are told apart.
    EXPECT_NE(list.output.find("installed (checksum verified) — for \\\\x1B tests\\x1B[2J\n"),
              std::string::npos)
        << list.output;
    EXPECT_NE(list.output.find("Dictation (ja-JP) uses: tiny"), std::string::npos);

    outcome = kelvo({"models", "remove", "tiny"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "Removed tiny\n");
    EXPECT_FALSE(std::filesystem::exists(modelFile()));
    EXPECT_EQ(statusOfTiny(), "supported");

    // The only model of this catalogue is the suggestion on any machine; the reason names the CPU.
    outcome = kelvo({"models", "install", "--recommended"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors.rfind("Recommended for this computer: tiny (2.0 MB) — ", 0), 0u);
    EXPECT_EQ(outcome.output.rfind("Installed tiny in ", 0), 0u) << outcome.output;
}

}  // namespace
}  // namespace kelvo
