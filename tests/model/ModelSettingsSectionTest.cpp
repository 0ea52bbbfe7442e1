// The settings window's model panel on the offscreen platform, against a loopback model server:
// the recommendation preselected with its reason, install with progress (through the shared
// installation service), cancel (the partial download stays, shown as resumable), resume,
// choose the model for dictation, remove it (the choice falls back to the best installed one).

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>

#include "KelvoVoiceMac/ui/ModelSettingsSection.h"
#include "ModelFileServer.h"
#include "TemporaryFolder.h"
#include "fakes/RecordingLog.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

TEST(ModelSettingsSectionTest, InstallCancelResumeChooseAndRemove) {
    // Never destroyed: lives as long as the program, as widgets expect.
    static int argc = 1;
    static char name[] = "model_settings_tests";
    static char* argv[] = {name, nullptr};
    [[maybe_unused]] static QApplication* application = new QApplication(argc, argv);
    const std::string file(1'500'000, 'q');
    testing::TemporaryFolder folder;
    testing::ModelFileServer server(file);
    ModelCatalogEntry tiny;
    tiny.name = "tiny";
    tiny.fileName = "ggml-tiny.bin";
    tiny.url = "https://models.invalid/ggml-tiny.bin";  // only the mirror set below gets it
    tiny.sizeBytes = file.size();
    tiny.sha1 = testing::sha1Of(file);
    ModelCatalogEntry other = tiny;
    other.name = "other";
    other.fileName = "ggml-other.bin";
    other.sha1.clear();
    ModelInventory inventory(ModelCatalog({tiny, other}), folder.path() / "models");
    std::vector<std::string> choices;
    std::string mirror = "http://stale.invalid/";
    int idleMinutes = 25;
    RecordingLog log;
    app::ModelInstallationService installer(inventory, log);
    app::ModelSettingsSection section(
        installer,
        {[] { return std::string(); },
         [&choices](const std::string& name) { choices.push_back(name); }, [&] { return mirror; },
         [&](const std::string& address) { mirror = address; }, [&] { return idleMinutes; },
         [&](int minutes) { idleMinutes = minutes; },
         ModelRecommender::Recommendation{inventory.catalog().find("other"), "the reason"}});
    EXPECT_EQ(section.recommendationLabel()->text(),
              "No installed model recognises Japanese yet, so dictation uses the fallback "
              "recogniser, which does not understand Japanese. Recommended for this computer: "
              "other (1.5 MB) — the reason.");
    // The stored mirror applies to downloads at once; here the field then replaces it.
    EXPECT_EQ(inventory.downloadURL(tiny), "http://stale.invalid/ggml-tiny.bin");
    EXPECT_EQ(section.idleMinutes()->value(), 25);
    section.downloadAddress()->setText(QString::fromStdString(server.baseURL()));
    Q_EMIT section.downloadAddress()->editingFinished();
    EXPECT_EQ(mirror, server.baseURL());
    section.idleMinutes()->setValue(3);
    EXPECT_EQ(idleMinutes, 3);

    QTableWidget& table = *section.table();
    ASSERT_EQ(table.rowCount(), 2);
    EXPECT_EQ(table.item(0, 2)->text(), "Not installed");
    EXPECT_EQ(table.item(1, 2)->text(), "Not installed (no published checksum)");
    EXPECT_EQ(table.selectedRanges().value(0).topRow(), 1);
    table.selectRow(0);
    EXPECT_FALSE(section.removeButton()->isEnabled());

    server.behave(testing::ModelFileServer::Mode::stallAfter, 300'000);
    section.installButton()->click();
    EXPECT_FALSE(section.installButton()->isEnabled()) << "one installation at a time";
    ASSERT_TRUE(waitUntil([&] { return section.progressBar()->value() == 200; }));
    section.cancelButton()->click();
    ASSERT_TRUE(waitUntil([&] { return !section.isInstalling(); }));
    EXPECT_EQ(section.messageLabel()->text(), "Installation of model tiny was cancelled");
    EXPECT_EQ(table.item(0, 2)->text(), "Partly downloaded (0.3 MB); install to resume");

    server.behave(testing::ModelFileServer::Mode::normal);
    section.installButton()->click();
    ASSERT_TRUE(waitUntil([&] { return !section.isInstalling(); }));
    EXPECT_EQ(section.messageLabel()->text(), "Installed tiny.");
    EXPECT_EQ(table.item(0, 2)->text(), "Installed (checksum verified)");
    EXPECT_EQ(section.recommendationLabel()->text(),
              "Recommended for this computer: other (1.5 MB) — the reason.");

    QComboBox& choice = *section.choice();
    ASSERT_EQ(choice.count(), 2);
    EXPECT_EQ(choice.itemText(0), "Best installed model");
    choice.setCurrentIndex(1);
    EXPECT_EQ(choices, std::vector<std::string>{"tiny"});
    EXPECT_EQ(inventory.settings().chosenModel, "tiny");

    section.removeButton()->click();
    EXPECT_EQ(table.item(0, 2)->text(), "Not installed");
    EXPECT_EQ(choices, (std::vector<std::string>{"tiny", ""}));
    EXPECT_EQ(choice.count(), 1);
}

}  // namespace
}  // namespace kelvo::test
