// The model inventory and its installer against a loopback file server: fresh, resumed,
// interrupted, corrupted and wrong-size downloads, server errors, a full disk, cancellation and
// two installations of one model at once. Every test checks the rule that matters most: nothing
// that failed ever looks installed.

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <future>

#include "FileSizeLimit.h"
#include "ModelFileServer.h"
#include "TemporaryFolder.h"
#include "core/services/ModelCatalog.h"
#include "core/services/ModelInstallation.h"
#include "core/services/ModelInstallationError.h"
#include "core/services/ModelInventory.h"
#include "core/support/Error.h"
#include "tests/support/Thrown.h"
#include "tests/support/WaitUntil.h"

namespace kelvo {
namespace {

using testing::ModelFileServer;
using Kind = ModelInstallationError::Kind;

// Noise behind the header of whisper.cpp's tiny model (magic, then its eleven hyper-parameters).
std::string generatedModel(std::size_t size) {
    std::string data(size, '\0');
    std::uint32_t state = 12345;
    for (char& c : data) {
        state = state * 1664525u + 1013904223u;
        c = static_cast<char>(state >> 24);
    }
    const std::int32_t header[] = {0x67676d6c, 51865, 1500, 384, 6, 4, 448, 384, 6, 4, 80, 1};
    std::memcpy(data.data(), header, sizeof header);
    return data;
}

class ModelInstallationTest : public ::testing::Test {
  protected:
    ModelInstallationTest() : file_(generatedModel(3 * 1024 * 1024 + 17)), server_(file_) {}

    ModelCatalogEntry entry(const std::string& name = "tiny") const {
        ModelCatalogEntry e;
        e.name = name;
        e.fileName = "ggml-" + name + ".bin";
        e.url = server_.baseURL() + e.fileName;
        e.sizeBytes = file_.size();
        e.sizeIsExact = true;
        e.sha256 = testing::hexDigest(file_, EVP_sha256());
        e.sha1 = testing::sha1Of(file_);
        e.rank = 10;
        return e;
    }

    ModelInventory inventory(std::vector<ModelCatalogEntry> entries) const {
        return ModelInventory(ModelCatalog(std::move(entries)), folder_.path() / "models");
    }

    // Runs an installation and returns the error kind it threw, if any.
    static std::optional<Kind> install(const ModelInventory& models, const ModelCatalogEntry& e,
                                       std::string* message = nullptr) {
        const auto error =
            test::thrown<ModelInstallationError>([&] { ModelInstallation(models, e).run(); });
        if (error && message) {
            *message = error->what();
        }
        return error ? std::optional(error->kind()) : std::nullopt;
    }

    void expectNothingInstalled(const ModelInventory& models, const ModelCatalogEntry& e) const {
        EXPECT_FALSE(models.isInstalled(e));
        EXPECT_FALSE(std::filesystem::exists(models.modelFile(e)));
        EXPECT_TRUE(models.installedModels().empty());
    }

    std::string file_;
    testing::TemporaryFolder folder_;
    ModelFileServer server_;
    // The model most tests install, from an inventory of it alone.
    const ModelInventory models_ = inventory({entry()});
    const ModelCatalogEntry& tiny_ = models_.catalog().entries().front();
};

// The file, its status before and after and its removal as `kelvo models` shows them:
// KelvoBinary.ModelsAreInstalledListedAndRemoved.
TEST_F(ModelInstallationTest, InstallsVerifiedFileAtomicallyAndOnlyOnce) {
    ModelInstallation installation(models_, tiny_);
    EXPECT_EQ(installation.fractionCompleted(), 0.0);
    installation.run();

    EXPECT_EQ(installation.fractionCompleted(), 1.0);
    EXPECT_FALSE(std::filesystem::exists(models_.partialFile(tiny_)));
    EXPECT_EQ(server_.ranges(), std::vector<std::string>{""});

    // Installed already: nothing is fetched again.
    ModelInstallation(models_, tiny_).run();
    EXPECT_EQ(server_.ranges().size(), 1u);

    // A file of the right name but without its record (copied by hand, or the record lost) is
    // not trusted; neither is one whose size no longer matches its record.
    std::filesystem::remove(models_.recordFile(tiny_));
    EXPECT_EQ(models_.status(tiny_), ModelAssetStatus::supported);
    ModelInstallation(models_, tiny_).run();
    EXPECT_TRUE(models_.isInstalled(tiny_));
    std::filesystem::resize_file(models_.modelFile(tiny_), 100);
    EXPECT_FALSE(models_.isInstalled(tiny_));

    models_.remove(tiny_);
    expectNothingInstalled(models_, tiny_);
    EXPECT_FALSE(std::filesystem::exists(models_.recordFile(tiny_)));

    // Without a published checksum, only the size (the publisher's rounded figure) and the header.
    ModelCatalogEntry unpublished = entry();
    unpublished.sha1.clear();
    unpublished.sha256.clear();
    unpublished.sizeIsExact = false;
    unpublished.sizeBytes = 3 * 1024 * 1024;
    const ModelInventory sizeOnly = inventory({unpublished});
    ModelInstallation(sizeOnly, unpublished).run();
    EXPECT_EQ(sizeOnly.verificationText(unpublished),
              "size and model header verified; no published checksum");
}

TEST_F(ModelInstallationTest, ADownloadTooSlowGivesUp) {
    // A server that drips bytes falls below the minimum rate and the download gives up.
    server_.behave(ModelFileServer::Mode::drip, 1000);
    ModelInstallation::Options options;
    options.minimumBytesPerSecond = 1'000'000;
    options.slowStartAllowance = std::chrono::milliseconds(100);
    ModelInstallation dripping(models_, tiny_, options);
    auto running = std::async(std::launch::async, [&] {
        return test::whatOf<ModelInstallationError>([&] { dripping.run(); });
    });
    const bool ended = running.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    dripping.cancel();
    const std::string message = running.get();
    ASSERT_TRUE(ended) << "a dripping server kept the download alive";
    EXPECT_NE(message.find("Download of model tiny was too slow ("), std::string::npos) << message;
    EXPECT_GE(models_.partialSizeBytes(entry()), 1000u);
}

TEST_F(ModelInstallationTest, InterruptedDownloadLeavesPartialFileThatResumes) {
    server_.behave(ModelFileServer::Mode::dropAfter, 1'000'000);
    std::string message;
    EXPECT_EQ(install(models_, tiny_, &message), Kind::interrupted);
    EXPECT_NE(message.find("Download of model tiny was interrupted ("), std::string::npos);
    EXPECT_NE(message.find("); install it again to resume"), std::string::npos);
    expectNothingInstalled(models_, tiny_);
    EXPECT_EQ(models_.partialSizeBytes(tiny_), 1'000'000u);
    EXPECT_EQ(models_.status(tiny_), ModelAssetStatus::downloading);
    EXPECT_FALSE(models_.isInstallationRunning(tiny_));

    // The next installation asks for the rest. A server that ignores that sends the whole file
    // again, which replaces the partial one. (One that honours it: ModelSettingsSectionTest and
    // the application's end-to-end test, which resume a stalled download.)
    server_.behave(ModelFileServer::Mode::ignoreRange);
    ModelInstallation(models_, tiny_).run();
    EXPECT_EQ(server_.ranges().back(), "bytes=1000000-");
    EXPECT_EQ(testing::contentsOf(models_.modelFile(tiny_)), file_);

    // A partial file that is already whole only needs checking.
    models_.remove(tiny_);
    ModelCatalogEntry roughSize = entry();
    roughSize.sizeIsExact = false;
    const ModelInventory rough = inventory({roughSize});
    std::filesystem::create_directories(rough.modelsFolder());
    std::ofstream(rough.partialFile(roughSize), std::ios::binary) << file_;
    server_.behave(ModelFileServer::Mode::normal);
    const std::size_t requests = server_.ranges().size();
    ModelInstallation(rough, roughSize).run();
    EXPECT_TRUE(rough.isInstalled(roughSize));
    EXPECT_EQ(server_.ranges().size(), requests + 1);
    EXPECT_EQ(server_.ranges().back(), "bytes=" + std::to_string(file_.size()) + "-");
}

// A download that fails its checks, or a server that fails, leaves nothing behind, not even a
// partial file to resume from. Past the catalogue's size (exact, or rounded plus its margin) a
// transfer stops, whether or not the server announced that length; without a checksum a size
// proves nothing: a captive portal's page announces its size too, and a download without an
// announced size has none at all.
TEST_F(ModelInstallationTest, FailedDownloadsAreDeletedAndNothingIsInstalled) {
    using Mode = ModelFileServer::Mode;
    const ModelFileServer portal("<html><body>Sign in to the hotel network</body></html>");
    ModelCatalogEntry unpublished = entry();
    unpublished.sha1.clear();
    unpublished.sha256.clear();
    unpublished.sizeIsExact = false;
    ModelCatalogEntry page = unpublished;
    page.url = portal.baseURL() + page.fileName;
    ModelCatalogEntry sha256Only = entry();
    sha256Only.sha1.clear();
    ModelCatalogEntry wrongSize = entry("small");
    wrongSize.sizeBytes += 1;
    ModelCatalogEntry smaller = entry();
    smaller.sizeBytes = 1024 * 1024;
    ModelCatalogEntry roughlySmaller = smaller;
    roughlySmaller.sizeIsExact = false;
    ModelCatalogEntry unreachable = entry();
    unreachable.url = "http://127.0.0.1:1/ggml-tiny.bin";
    const std::string deleted = "; the download was deleted";
    const std::string larger = "Download of model tiny is larger than its 1048576 bytes";
    const struct {
        ModelCatalogEntry entry;
        Mode mode;
        int status;  // answered instead of the file when not 0
        Kind kind;
        std::string message;
    } cases[] = {
        {entry(), Mode::corrupt, 0, Kind::corrupt,
         "Downloaded model tiny does not match its published SHA-1 checksum" + deleted},
        {sha256Only, Mode::corrupt, 0, Kind::corrupt,
         "Downloaded model tiny does not match its published SHA-256 checksum" + deleted},
        {wrongSize, Mode::normal, 0, Kind::corrupt,
         "Downloaded model small has the wrong size (" + std::to_string(file_.size()) +
             " bytes, expected " + std::to_string(file_.size() + 1) + ")" + deleted},
        {smaller, Mode::normal, 0, Kind::corrupt, larger},
        {roughlySmaller, Mode::noLength, 0, Kind::corrupt, larger},
        {page, Mode::normal, 0, Kind::corrupt, "is not a whisper model"},
        {unpublished, Mode::noLength, 0, Kind::corrupt,
         "cannot be verified (no size was announced"},
        {entry(), Mode::normal, 404, Kind::server,
         "Download of model tiny failed: the server answered HTTP 404 for " + entry().url},
        {unreachable, Mode::normal, 0, Kind::interrupted,
         "Download of model tiny was interrupted ("},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        server_.behave(c.mode);
        if (c.status != 0) {
            server_.answer(c.status, "<html>error</html>");
        }
        const ModelInventory models = inventory({c.entry});
        std::string message;
        EXPECT_EQ(install(models, c.entry, &message), c.kind);
        EXPECT_NE(message.find(c.message), std::string::npos) << message;
        expectNothingInstalled(models, c.entry);
        EXPECT_FALSE(std::filesystem::exists(models.partialFile(c.entry)));
        EXPECT_EQ(models.status(c.entry), ModelAssetStatus::supported);
    }
}

TEST_F(ModelInstallationTest, FullDiskFailsCleanly) {
    std::optional<Kind> outcome;
    std::string message;
    {
        const testing::FileSizeLimit limit(512 * 1024);
        outcome = install(models_, tiny_, &message);
    }
    EXPECT_EQ(outcome, Kind::noSpace);
    EXPECT_NE(
        message.find("Not enough disk space for model tiny in " + models_.modelsFolder().string()),
        std::string::npos)
        << message;
    expectNothingInstalled(models_, tiny_);

    // What was written is kept for the next installation to resume from.
    EXPECT_EQ(models_.partialSizeBytes(tiny_), 512u * 1024);
}

TEST_F(ModelInstallationTest, CancelAndConcurrentInstallationsKeepThePartialFile) {
    server_.behave(ModelFileServer::Mode::stallAfter, 200'000);

    ModelInstallation first(models_, tiny_);
    auto running = std::async(std::launch::async, [&] {
        const auto error = test::thrown<ModelInstallationError>([&] { first.run(); });
        return error ? std::optional(error->kind()) : std::nullopt;
    });
    // Not ASSERT: the stalled download must still be cancelled below.
    EXPECT_TRUE(test::waitUntil([&] { return first.bytesOnDisk() == 200'000; }));
    EXPECT_EQ(first.totalBytes(), file_.size());
    EXPECT_GT(first.fractionCompleted(), 0.0);
    EXPECT_LT(first.fractionCompleted(), 1.0);
    EXPECT_TRUE(models_.isInstallationRunning(tiny_));
    EXPECT_EQ(models_.status(tiny_), ModelAssetStatus::downloading);

    std::string message;
    EXPECT_EQ(install(models_, tiny_, &message), Kind::alreadyRunning);
    EXPECT_EQ(message, "Model tiny is already being installed");
    EXPECT_THROW(models_.remove(tiny_), FileError);

    first.cancel();
    EXPECT_EQ(running.get(), Kind::cancelled);
    EXPECT_FALSE(models_.isInstallationRunning(tiny_));
    EXPECT_EQ(models_.partialSizeBytes(tiny_), 200'000u);
    expectNothingInstalled(models_, tiny_);
}

TEST(ModelInventoryTest, ChoosesTheModelThatServesALocale) {
    testing::TemporaryFolder folder;
    ModelCatalog catalog = ModelCatalog::builtIn();
    ModelInventory models(catalog, folder.path());
    const auto installFake = [&](const std::string& name) {
        const ModelCatalogEntry& e = *models.catalog().find(name);
        folder.write(e.fileName, "model");
        folder.write(e.fileName + ".verified", "{\"sizeBytes\": 5, \"sha1\": \"" + e.sha1 +
                                                   "\", \"verifiedBy\": \"checksum\"}");
    };

    // Nothing installed: the best model there is, not installed.
    EXPECT_EQ(models.modelForLocale("ja-JP")->name, "kotoba-whisper-v2.0");
    EXPECT_EQ(models.statusForLocale("ja-JP"), ModelAssetStatus::supported);
    EXPECT_EQ(models.modelForLocale("en-US")->name, "large-v3");
    EXPECT_EQ(models.statusForLocale("tlh-001"), ModelAssetStatus::unsupported);
    EXPECT_EQ(models.modelForLocale("tlh"), nullptr);
    EXPECT_TRUE(models.installedLanguages().empty());

    // The best installed one, then the user's choice when it knows the language.
    installFake("small");
    installFake("base");
    EXPECT_EQ(models.modelForLocale("ja_JP")->name, "small");
    EXPECT_EQ(models.statusForLocale("ja-JP"), ModelAssetStatus::installed);
    EXPECT_EQ(models.installedLanguages().size(), ModelCatalog::whisperLanguages().size());
    models.setSettings({"base", ""});
    EXPECT_EQ(models.modelForLocale("ja-JP")->name, "base");
    models.setSettings({"kotoba-whisper-v2.0", ""});
    EXPECT_EQ(models.modelForLocale("ja-JP")->name, "kotoba-whisper-v2.0");
    EXPECT_EQ(models.statusForLocale("ja-JP"), ModelAssetStatus::supported);
    EXPECT_EQ(models.modelForLocale("en-US")->name, "small");  // kotoba knows Japanese only
    models.setSettings({"no-such-model", ""});
    EXPECT_EQ(models.modelForLocale("ja-JP")->name, "small");
    // (A mirror's address is checked where the settings set it, and by every download here.)
}

// A record is ours, but lives in the user's folder: whatever it holds, the inventory answers.
TEST(ModelInventoryTest, ARecordOfTheWrongShapeIsNoInstallation) {
    testing::TemporaryFolder folder;
    const ModelInventory models(ModelCatalog::builtIn(), folder.path());
    const ModelCatalogEntry& tiny = *models.catalog().find("kotoba-whisper-v1.0");
    folder.write(tiny.fileName, "model");
    for (const std::string record :
         {R"({"sizeBytes": 1e30})", R"({"sizeBytes": -5})", R"({"sizeBytes": "5"})", R"([5])"}) {
        folder.write(tiny.fileName + ".verified", record);
        EXPECT_FALSE(models.isInstalled(tiny)) << record;
        EXPECT_EQ(models.verificationText(tiny), std::nullopt) << record;
    }
    folder.write(tiny.fileName + ".verified", R"({"sizeBytes": 5, "verifiedBy": 5})");
    EXPECT_EQ(models.verificationText(tiny), "size verified; no published checksum");
}

TEST(ModelCatalogTest, CatalogueFilesAreCheckedEntryByEntry) {
    EXPECT_EQ(ModelCatalog::languageOfLocale("JA-jp"), "ja");

    testing::TemporaryFolder folder;
    const auto file = folder.write("catalog.json", R"([
        {"name": "mine", "url": "http://h/x/ggml-mine.bin", "sizeBytes": 10, "sizeIsExact": true,
         "sha256": "AB)" + std::string(62, 'c') + R"(", "languages": ["ja"], "rank": 3}
    ])");
    const ModelCatalog mine = ModelCatalog::fromJsonFile(file);
    ASSERT_EQ(mine.entries().size(), 1u);
    EXPECT_EQ(mine.entries()[0].fileName, "ggml-mine.bin");
    EXPECT_EQ(mine.entries()[0].sha256, "ab" + std::string(62, 'c'));
    EXPECT_EQ(mine.modelsForLanguage("en").size(), 0u);

    for (const std::string bad :
         {R"({"name": "x"})", R"([{"name": "x", "sizeBytes": 1}])",
          R"([{"name": "x", "url": "http://h/../", "sizeBytes": 1, "fileName": "../evil"}])",
          R"([{"name": "x", "url": "http://h/a.bin", "sizeBytes": 1, "sha1": "zz"}])",
          R"([{"name": "x", "url": "http://h/a.bin", "sizeBytes": 1, "fileName": "a\u0000"}])",
          R"([{"name": "x", "url": "http://h/a.bin", "sizeBytes": -1}])",
          R"([{"name": "x", "url": "http://h/a.bin", "sizeBytes": 1e30}])",
          R"([{"name": "x", "url": "http://h/a.bin", "sizeBytes": 1, "rank": 1e300}])"}) {
        EXPECT_THROW(ModelCatalog::fromJsonFile(folder.write("bad.json", bad)), DecodingError)
            << bad;
    }
}

}  // namespace
}  // namespace kelvo
