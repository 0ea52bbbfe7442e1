// The application's windows, driven through their widgets on Qt's offscreen platform (no X
// server; another one when QT_QPA_PLATFORM names it): the dictionary editor against a real JSON
// store and correction engine, the dictation test window against the scripted capture and
// recogniser, and the settings window against fake preferences and a temporary autostart folder.
// Nothing here compares pixels.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>
#include <filesystem>

#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "KelvoVoiceMac/ui/AutostartEntry.h"
#include "KelvoVoiceMac/ui/DictationTestView.h"
#include "KelvoVoiceMac/ui/DictionaryEditViewMac.h"
#include "KelvoVoiceMac/ui/DictionaryWindowController.h"
#include "KelvoVoiceMac/ui/SettingsWindow.h"
#include "KelvoVoiceMac/ui/TriggerKeyField.h"
#include "core/services/JSONDictionaryStore.h"
#include "fakes/FakeAudioSource.h"
#include "fakes/FakeClock.h"
#include "fakes/FakePreferences.h"
#include "fakes/FakeRecognizer.h"
#include "fakes/InMemoryDictionaryStore.h"
#include "fakes/TestEventLoop.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

using ::testing::ElementsAre;

void ensureApplication() {
    if (QCoreApplication::instance() == nullptr) {
        if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
            qputenv("QT_QPA_PLATFORM", "offscreen");
        }
        static int argc = 1;
        static char name[] = "window_tests";
        static char* argv[] = {name, nullptr};
        new QApplication(argc, argv);
    }
}

// Text as an input method commits it: how Japanese reaches a field, one edit.
void typeInto(QLineEdit& field, const QString& text) {
    field.setFocus();
    field.selectAll();
    QInputMethodEvent commit;
    commit.setCommitString(text);
    QCoreApplication::sendEvent(&field, &commit);
}

template <typename T>
T& child(QWidget& parent, const char* name) {
    auto* found = parent.findChild<T*>(QString::fromLatin1(name));
    if (found == nullptr) {
        throw std::runtime_error(std::string("no child ") + name);
    }
    return *found;
}

class DictionaryWindowTest : public ::testing::Test {
  protected:
    void SetUp() override { ensureApplication(); }

    testing::TemporaryFolder folder;
    const std::filesystem::path file = folder.path() / "dictionary.json";
};

// What the fields make of an entry shown and of one typed in, and the engine it is saved for. The
// save reaching the file and the next dictation is worked through the real application
// (KelvoVoiceAppTest).
TEST_F(DictionaryWindowTest, ShownEntryIsLeftAloneAndTypedEntryIsSplitAndReachesTheEngineOnSave) {
    DictionaryEntry stored = dictionaryEntry("音声入力", {"音声乳力 "});
    stored.replacementText = "音声入力。";
    auto store = std::make_shared<JSONDictionaryStore>(file);
    store->saveEntries({stored});
    auto engine = std::make_shared<DictionaryCorrectionEngine>(store);
    app::DictionaryWindowController controller(store, engine);
    auto& view = controller.editView();
    auto& window = controller.window();
    controller.show();
    ASSERT_TRUE(waitUntil([&] { return view.isLoaded(); }));
    EXPECT_EQ(view.entries().front(), stored) << "showing an entry changes nothing in it";
    child<QToolButton>(window, "addButton").click();
    auto& canonical = child<QLineEdit>(window, "canonicalTextField");
    typeInto(canonical, QStringLiteral("　 "));
    EXPECT_FALSE(child<QPushButton>(window, "saveButton").isEnabled())
        << "a blank canonical text, white space too, blocks saving";
    typeInto(canonical, QStringLiteral("人工知能"));
    typeInto(child<QLineEdit>(window, "readingsField"),
             QStringLiteral(" じんこうちのう ,, \tえーあい,じんこうちのう"));
    typeInto(child<QLineEdit>(window, "misrecognitionsField"),
             QStringLiteral("人口知能、人工知脳"));
    EXPECT_EQ(engine->apply("えーあい", DictionaryScope::all).text, "えーあい")
        << "nothing reaches the engine before saving";

    const DictionaryEntry& added = view.entries().back();
    EXPECT_EQ(added.replacementText, "人工知能");
    EXPECT_THAT(added.readings, ElementsAre("じんこうちのう", "えーあい", "じんこうちのう"));
    EXPECT_THAT(added.commonMisrecognitions, ElementsAre("人口知能、人工知脳"))
        << "only the ASCII comma separates";
    // The running application also reloads on the folder's change; this is the window's own.
    child<QPushButton>(window, "saveButton").click();
    EXPECT_TRUE(waitUntil(
        [&] { return engine->apply("えーあい", DictionaryScope::all).text == "人工知能"; }));
}

TEST_F(DictionaryWindowTest, UnreadableDictionaryShowsTheErrorAndIsLeftAlone) {
    const std::string damaged = "[{\"id\": \"not a dictionary\"";
    folder.write("dictionary.json", damaged);
    auto store = std::make_shared<JSONDictionaryStore>(file);
    app::DictionaryWindowController controller(store, nullptr);
    controller.show();
    ASSERT_TRUE(waitUntil([&] { return controller.editView().isLoaded(); }));

    auto& alert = child<QMessageBox>(controller.window(), "dictionaryErrorAlert");
    EXPECT_TRUE(alert.isVisible());
    EXPECT_FALSE(alert.informativeText().isEmpty());
    alert.button(QMessageBox::Ok)->click();

    // The damaged file is left for the user to repair: nothing was written over it.
    EXPECT_EQ(testing::contentsOf(file), damaged);
}

TEST(DictationTestViewTest, ShowsConfirmedAndPartialTextAndKeepsThePartialOnStop) {
    ensureApplication();
    FakeClock clock;
    auto audio = std::make_unique<FakeAudioSource>(clock);
    auto speech = std::make_unique<FakeRecognizer>(clock);
    auto& capture = *audio;
    auto& recognizer = *speech;
    app::DictationTestView view(std::move(audio), std::move(speech));
    view.show();
    auto& button = child<QPushButton>(view, "dictationButton");

    capture.failure = "Microphone permission denied";
    button.click();
    runFor(clock, capture.startDelay);
    EXPECT_FALSE(view.isRecording());
    EXPECT_EQ(view.errorMessage(), "Microphone permission denied");

    capture.failure.reset();
    button.click();
    runFor(clock, capture.startDelay);
    ASSERT_TRUE(view.isRecording());
    recognizer.send(app::TranscriptionEvent::partial("こんにち"));
    recognizer.send(app::TranscriptionEvent::final_("こんにちは。"));
    recognizer.send(app::TranscriptionEvent::final_("音声入力のテストです。"));
    recognizer.send(app::TranscriptionEvent::partial("今日はいい"));
    settle(clock);
    EXPECT_EQ(child<QPlainTextEdit>(view, "transcript").toPlainText(),
              QStringLiteral("こんにちは。\n音声入力のテストです。\n今日はいい"));

    button.click();
    EXPECT_FALSE(view.isRecording());
    EXPECT_EQ(view.confirmedText(), "こんにちは。\n音声入力のテストです。\n今日はいい");
    runFor(clock, recognizer.stopDelay);
    EXPECT_EQ(recognizer.stopCount, 1);

    button.click();
    runFor(clock, capture.startDelay);
    ASSERT_TRUE(view.isRecording());
    view.close();
    EXPECT_FALSE(view.isRecording()) << "closing the window ends the test dictation";
    EXPECT_EQ(capture.stopCount, 2) << "once by the button, once by closing";
    runFor(clock, recognizer.stopDelay);
}

TEST(SettingsWindowTest, ChangesAreStoredAndStartAtLoginIsTheAutostartEntry) {
    ensureApplication();
    testing::TemporaryFolder config;
    const auto entryFile = config.path() / "autostart" / "kelvovoice.desktop";
    FakePreferences preferences;
    preferences.setString(app::PreferenceKeys::microphoneSource, "usb_headset");
    app::SettingsWindow window(
        preferences,
        [] {
            return std::vector<platform::AudioSourceInfo>{{"vmic", "Virtual microphone"}};
        },
        app::AutostartEntry(entryFile, "/opt/Kelvo Voice/kelvovoice"));
    int listings = 0;
    QObject::connect(&window, &app::SettingsWindow::microphonesListed, &window,
                     [&] { ++listings; });
    window.present();
    ASSERT_TRUE(waitUntil([&] { return listings == 1; }));

    EXPECT_EQ(child<QComboBox>(window, "microphoneChoice").currentText(),
              QStringLiteral("usb_headset (not connected)"))
        << "an unplugged choice is kept";

    auto& key = child<app::TriggerKeyField>(window, "triggerKeyField");
    key.click();
    ASSERT_TRUE(key.isCapturing());
    // Right Alt as the X server reports it: the keysym arrives as the native virtual key.
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Alt, Qt::NoModifier, 108, 0xffea, 0);
    QCoreApplication::sendEvent(&key, &press);
    EXPECT_FALSE(key.isCapturing());
    EXPECT_EQ(preferences.stringValue(app::PreferenceKeys::triggerKey, ""), "Alt_R");

    auto& startAtLogin = child<QCheckBox>(window, "startAtLoginToggle");
    startAtLogin.click();
    EXPECT_THAT(testing::contentsOf(entryFile),
                ::testing::HasSubstr("Exec=\"/opt/Kelvo Voice/kelvovoice\"\n"));
    startAtLogin.click();
    EXPECT_FALSE(std::filesystem::exists(entryFile));

    auto& filler = child<QCheckBox>(window, "fillerRemovalToggle");
    filler.click();
    EXPECT_EQ(preferences.values.at("kvmac_fillerRemovalEnabled"), filler.isChecked());
}

}  // namespace
}  // namespace kelvo::test
