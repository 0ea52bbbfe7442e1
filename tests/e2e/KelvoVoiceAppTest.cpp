// The kelvovoice application end to end, in a headless session: the real binary with its Linux
// backends, a StatusNotifierItem host, insertion targets, the trigger key from xdotool and a flite
// sentence played into the virtual microphone. English is recognised (LANG=en_US.UTF-8), so the
// dictionary maps English words: "report" becomes "レポート" and "please" becomes the filler
// "えーと、", which filler removal then takes out again when the setting is on, so both steps of
// the finished-text rule and their order are in play.
#include <atspi/atspi.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <regex>
#include <string>

#include "InsertionTarget.h"
#include "KelvoVoiceApp.h"
#include "ModelFileServer.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/e2e/SpokenEnglish.h"
#include "tests/support/KelvoProcess.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kDictionary = R"([
  {"id": "0B6A3C52-6C1E-4F0B-9B2D-3A5E2F1C7D10", "canonicalText": "レポート", "readings": [],
   "commonMisrecognitions": ["report"], "replacementText": "", "priority": 50, "enabled": true},
  {"id": "7E2D9A14-58C3-4B6F-8A0E-1C9B3D5F2E47", "canonicalText": "えーと、", "readings": [],
   "commonMisrecognitions": ["please "], "replacementText": "", "priority": 40, "enabled": true}
])";

class KelvoVoiceAppTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { KelvoVoiceApp::startStatusNotifierHost(); }

    void SetUp() override {
        home_ = std::filesystem::temp_directory_path() /
                ("kelvovoice-e2e-" + std::to_string(getpid()) + "-" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(home_);
        writeDictionary(kDictionary);
    }

    void TearDown() override {
        if (HasFailure() && app_) {
            std::cerr << "--- kelvovoice log ---\n" << app_->log() << "---\n";
        }
        app_.reset();
        std::filesystem::remove_all(home_);
        unsetenv("KELVO_MODEL_CATALOG");
    }

    void writeDictionary(const std::string& text) {
        auto file = home_ / "data" / "KelvoVoiceMac" / "dictionary.json";
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }

    // Starts the application and waits until its status item is up and the key is watched.
    // A first, silent hold then makes the recogniser load its model: on a loaded machine the
    // first dictation of a process can otherwise lose the words spoken while the model loads,
    // which is the recogniser's business and not what these tests look at (warmUp false skips it).
    KelvoVoiceApp& startApp(bool warmUp = true) {
        app_ = std::make_unique<KelvoVoiceApp>(home_);
        EXPECT_TRUE(app_->waitForLog("[KelvoVoice] GlobalHotkeyService started"));
        EXPECT_TRUE(app_->waitForLog("[KelvoVoice] statusItem next-runloop"));
        if (warmUp) {
            EXPECT_TRUE(app_->dictate({}));
        }
        return *app_;
    }

    // Dictates the bundled sentence into the focused target and returns what landed there.
    std::string dictateInto(const InsertionTarget& target) {
        EXPECT_TRUE(app_->dictate());
        return target.waitForText([](const std::string& text) { return !text.empty(); });
    }

    std::filesystem::path home_;
    std::unique_ptr<KelvoVoiceApp> app_;
};

// Polls the slow things (a process run) every 100 ms, for a minute.
template <typename Condition>
bool eventually(Condition condition) {
    return waitUntil(condition, 60s, 100ms);
}

// Hold-to-talk into GTK and Qt fields through AT-SPI; the dictionary applies, and the filler
// setting of the menu decides whether the filler the dictionary produced is removed.
// The first dictation's text is also what `kelvo dictate --file` makes of the same file over the
// same data folder. The recogniser hears the live microphone a little differently each time (where
// its frames fall, what it adapted to before), so the two are compared word by word with room for
// one recognition difference: one word of the sentence's six or seven; two would be at least 2/7.
TEST_F(KelvoVoiceAppTest, HoldToTalkInsertsCorrectedTextIntoGtkAndQtFieldsAsKelvoDictateDoes) {
    KelvoVoiceApp& app = startApp();
    auto menu = KelvoVoiceApp::menuEntries();
    ASSERT_GE(menu.size(), 12u);
    EXPECT_EQ(menu[1], "フィラーカット\t1\ton");

    {
        InsertionTarget gtk("gtk-entry");
        std::string text = dictateInto(gtk);
        KelvoProcess kelvo(
            KELVO_BINARY,
            {"dictate", "--locale", "en-US", "--file", KelvoVoiceApp::englishSample().string()},
            std::vector<std::string>{"XDG_DATA_HOME=" + (home_ / "data").string(),
                                     "HOME=" + home_.string(), "LANG=en_US.UTF-8",
                                     "PATH=/usr/bin:/bin"});
        const KelvoProcess::Outcome outcome = kelvo.finish();
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        const std::string toolText =
            outcome.output.substr(0, outcome.output.find_last_not_of(" \n") + 1);
        // The recogniser hears "the" or "a" before "report" depending on where in a frame the
        // capture began; what is asserted is what the application adds to its words.
        EXPECT_TRUE(contains(text, "send")) << text;
        for (const std::string& finished : {text, toolText}) {
            EXPECT_TRUE(contains(finished, "レポート") && !contains(finished, "please") &&
                        !contains(finished, "えーと"))
                << finished;
        }
        EXPECT_LE(testing::wordErrorRate(toolText, text), 0.2) << text << "\n" << toolText;
        EXPECT_TRUE(contains(app.log(), "[KelvoVoice] Dictionary corrections applied count=2"));
        EXPECT_TRUE(contains(app.log(), "[KelvoVoice] Filler removal applied"));
        // Through AT-SPI as a rule; a GTK entry that reports no caret yet gets it by paste.
        EXPECT_TRUE(contains(app.log(), "[TextInsertion] AX direct insertion succeeded") ||
                    contains(app.log(), "[TextInsertion] Pasteboard fallback completed"));
    }

    KelvoVoiceApp::clickMenu("フィラーカット");
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] Filler removal enabled=false"));
    EXPECT_EQ(KelvoVoiceApp::menuEntries()[1], "フィラーカット\t1\toff");

    {
        InsertionTarget qt("qt-lineedit");
        std::string text = dictateInto(qt);
        EXPECT_TRUE(contains(text, "えーと、") && contains(text, "レポート")) << text;
        EXPECT_GE(app.countInLog("[TextInsertion] AX direct insertion succeeded"), 1u);
    }
    // The kept text can be pasted again from the menu.
    EXPECT_TRUE(eventually(
        [] { return KelvoVoiceApp::menuEntries().at(2) == "Paste Last Dictation\t1\t-"; }));
}

// A window that exposes nothing to AT-SPI still gets the text, by paste, and the clipboard holds
// the user's own text again afterwards.
TEST_F(KelvoVoiceAppTest, TargetWithoutAccessibilityGetsTextByPasteAndClipboardIsRestored) {
    KelvoVoiceApp& app = startApp();
    // Qt decides at its start whether to expose itself; with the bus switched off for that moment
    // the target stays invisible to AT-SPI for good.
    auto setAccessibility = [](bool on) {
        testing::runShell(
            std::string("dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus "
                        "org.freedesktop.DBus.Properties.Set string:org.a11y.Status "
                        "string:IsEnabled variant:boolean:") +
            (on ? "true" : "false") + " >/dev/null");
    };
    setAccessibility(false);
    InsertionTarget hidden("qt-lineedit");
    setAccessibility(true);

    KelvoVoiceApp::setClipboardText("前のクリップボード");
    std::string text = dictateInto(hidden);
    EXPECT_TRUE(contains(text, "レポート")) << text;
    EXPECT_TRUE(contains(app.log(), "[TextInsertion] Sent Cmd+V"));
    EXPECT_TRUE(contains(app.log(), "[TextInsertion] Restored previous pasteboard string"));
    EXPECT_EQ(KelvoVoiceApp::clipboardText().value_or(""), "前のクリップボード");
}

// The gestures on the real key monitor and timers: a single short tap discards, a double tap
// records hands-free until the next tap stops (not discards) it. What a stop inserts is the
// business of the other tests.
TEST_F(KelvoVoiceAppTest, DoubleTapRecordsHandsFreeAndSingleTapInsertsNothing) {
    KelvoVoiceApp& app = startApp();
    InsertionTarget gtk("gtk-entry");

    std::size_t idle = app.countInLog("[KelvoVoice] statusItem idle");
    KelvoVoiceApp::tapTrigger();
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] Fn single tap → discarded"));
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem idle", idle + 1));
    EXPECT_EQ(gtk.text(), "");

    std::size_t finished = app.countInLog("[KelvoVoice] statusItem idle");
    KelvoVoiceApp::tapTrigger();
    KelvoVoiceApp::tapTrigger();
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] Fn double-tap → toggle ON active=true"));
    KelvoVoiceApp::tapTrigger();
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] Fn toggle OFF"));
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem idle", finished + 1));
    EXPECT_TRUE(contains(app.log(), "Stopping dictation trigger=fn-toggle-off"));
}

using Accessible = std::unique_ptr<AtspiAccessible, decltype(&g_object_unref)>;

// The first accessible of the session's desktop (depth first) of `role` in `state`, and named
// `name` when one is given, once there is one: as a screen reader finds it over AT-SPI, read
// afresh each time (no event loop here keeps libatspi's cache current). Null if none comes.
Accessible findAccessible(AtspiRole role, AtspiStateType state, const char* name = nullptr) {
    std::function<AtspiAccessible*(AtspiAccessible*)> find = [&](AtspiAccessible* node) {
        g_autofree gchar* own = atspi_accessible_get_name(node, nullptr);
        AtspiStateSet* states = atspi_accessible_get_state_set(node);
        const bool match = atspi_accessible_get_role(node, nullptr) == role &&
                           atspi_state_set_contains(states, state) &&
                           (name == nullptr || g_strcmp0(own, name) == 0);
        g_object_unref(states);
        auto* found = match ? static_cast<AtspiAccessible*>(g_object_ref(node)) : nullptr;
        for (int i = 0; !found && i < atspi_accessible_get_child_count(node, nullptr); ++i) {
            Accessible child(atspi_accessible_get_child_at_index(node, i, nullptr), g_object_unref);
            found = child ? find(child.get()) : nullptr;
        }
        return found;
    };
    atspi_init();
    Accessible found(nullptr, g_object_unref);
    eventually([&] {
        Accessible desktop(atspi_get_desktop(0), g_object_unref);
        atspi_accessible_clear_cache(desktop.get());
        found.reset(find(desktop.get()));
        return found != nullptr;
    });
    return found;
}

// Replaces the first `word` in the focused text field with `replacement` through AT-SPI's
// EditableText, as an assistive tool would; GTK counts the inserted length in bytes.
void replaceInFocusedField(const std::string& word, const std::string& replacement) {
    Accessible field = findAccessible(ATSPI_ROLE_TEXT, ATSPI_STATE_FOCUSED);
    ASSERT_TRUE(field);
    g_autofree gchar* text = atspi_text_get_text(ATSPI_TEXT(field.get()), 0, -1, nullptr);
    const char* at = std::strstr(text, word.c_str());
    ASSERT_NE(at, nullptr) << word;
    const glong start = g_utf8_pointer_to_offset(text, at);
    auto* editable = ATSPI_EDITABLE_TEXT(field.get());
    atspi_editable_text_delete_text(editable, start, start + g_utf8_strlen(word.c_str(), -1),
                                    nullptr);
    atspi_editable_text_insert_text(editable, start, replacement.c_str(),
                                    static_cast<gint>(replacement.size()), nullptr);
}

// Right after a dictation, replacing one of its words in the field proposes a dictionary entry;
// accepted with kelvo, the next dictation arrives corrected. Edits of the user's own text beside
// the dictation propose nothing, and a password field is never watched.
TEST_F(KelvoVoiceAppTest, ACorrectionRightAfterADictationIsLearnt) {
    KelvoVoiceApp& app = startApp();
    auto kelvo = [this](const std::string& arguments) {
        return testing::runShell("XDG_DATA_HOME='" + (home_ / "data").string() + "' " +
                                 KELVO_BINARY + " " + arguments);
    };
    {
        InsertionTarget gtk("gtk-entry", {"--text", "Dear Bob, "});
        std::string text = dictateInto(gtk);
        ASSERT_TRUE(contains(text, "send ")) << text;
        ASSERT_TRUE(app.waitForLog("[Learning] Watching the field for corrections", 1, 10s));
        replaceInFocusedField("Bob", "Rob");
        ASSERT_TRUE(app.waitForLog("[Learning] Edits settled, no correction", 1, 10s));
        EXPECT_EQ(kelvo("dictionary suggestions --json"), "[]\n");
        replaceInFocusedField("send", "mail");
        ASSERT_TRUE(app.waitForLog("[KelvoVoice] Correction suggestion recorded count=1", 1, 10s));
    }
    std::string suggestions = kelvo("dictionary suggestions --json");
    EXPECT_TRUE(contains(suggestions, "\"misrecognition\": \"send\"")) << suggestions;
    EXPECT_TRUE(contains(suggestions, "\"canonical\": \"mail\"")) << suggestions;
    std::smatch id;
    ASSERT_TRUE(std::regex_search(suggestions, id, std::regex("\"id\": \"([0-9A-F-]{36})\"")));
    kelvo("dictionary accept " + id[1].str());
    EXPECT_EQ(kelvo("dictionary suggestions --json"), "[]\n");

    std::size_t watches = app.countInLog("[Learning] Watching");
    {
        InsertionTarget password("gtk-password");
        ASSERT_TRUE(app.dictate());
    }
    InsertionTarget gtk("gtk-entry");
    std::string text = dictateInto(gtk);
    EXPECT_TRUE(contains(text, "mail ") && !contains(text, "send")) << text;
    // The password field was not watched; the last field is, once the insertion is done (the
    // watch begins after the session is idle again).
    EXPECT_TRUE(app.waitForLog("[Learning] Watching", watches + 1, 10s));
    EXPECT_EQ(app.countInLog("[Learning] Watching"), watches + 1);
}

// The menu's items over the StatusNotifierItem's D-Bus menu open their windows as AT-SPI shows
// them, and the dictionary window works as a screen reader user works it: an entry typed into its
// fields and saved is in the dictionary file and corrects the next dictation.
// (The dictation item, which turns into "Stop Dictation" while it records, carries both of
// WaylandAppTest's menu dictations: the same menu over the same bus.)
TEST_F(KelvoVoiceAppTest, MenuOpensWindowsAndAnEntrySavedInTheDictionaryCorrectsDictation) {
    KelvoVoiceApp& app = startApp();
    EXPECT_EQ(KelvoVoiceApp::menuEntries().at(0), "Start Dictation\t1\t-");
    KelvoVoiceApp::clickMenu("Dictionary...");
    auto press = [](const char* button) {
        Accessible widget = findAccessible(ATSPI_ROLE_PUSH_BUTTON, ATSPI_STATE_ENABLED, button);
        return widget && atspi_action_do_action(ATSPI_ACTION(widget.get()), 0, nullptr);
    };
    ASSERT_TRUE(press("用語を追加"));
    for (auto [field, text] :
         {std::pair{"変換したい単語", "送信"}, {"誤変換されやすい単語", "send"}}) {
        Accessible widget = findAccessible(ATSPI_ROLE_TEXT, ATSPI_STATE_ENABLED, field);
        ASSERT_TRUE(widget && atspi_editable_text_set_text_contents(
                                  ATSPI_EDITABLE_TEXT(widget.get()), text, nullptr))
            << field;
    }
    ASSERT_TRUE(press("保存"));
    const std::regex entry(R"("canonicalText": "送信",[^}]*Misrecognitions": \[\s*"send"\s*\])");
    const auto file = home_ / "data/KelvoVoiceMac/dictionary.json";
    EXPECT_TRUE(eventually([&] { return std::regex_search(testing::contentsOf(file), entry); }));
    // Saving is over (and the engine reloaded) once the button is enabled again.
    ASSERT_TRUE(findAccessible(ATSPI_ROLE_PUSH_BUTTON, ATSPI_STATE_ENABLED, "保存"));

    InsertionTarget gtk("gtk-entry");
    std::string text = dictateInto(gtk);
    EXPECT_TRUE(contains(text, "送信") && !contains(text, "send")) << text;

    KelvoVoiceApp::clickMenu("Settings...");
    EXPECT_TRUE(findAccessible(ATSPI_ROLE_FILLER, ATSPI_STATE_SHOWING, "Settings"));
    KelvoVoiceApp::clickMenu("Show Test Window");
    EXPECT_TRUE(findAccessible(ATSPI_ROLE_FILLER, ATSPI_STATE_SHOWING, "KelvoVoice"));
    KelvoVoiceApp::clickMenu("Quit");
    EXPECT_TRUE(eventually([&] { return !app.isRunning(); }));
}

// A dictionary that cannot be read leaves the application running without corrections; a second
// launch hands over to the first and exits.
TEST_F(KelvoVoiceAppTest, CorruptDictionaryRunsWithoutCorrectionsAndSecondLaunchExits) {
    writeDictionary("[ this is not json");
    KelvoVoiceApp& app = startApp();
    EXPECT_TRUE(contains(app.log(), "[KelvoVoice] Failed to initialize dictionary engine: "));

    InsertionTarget gtk("gtk-entry");
    std::string text = dictateInto(gtk);
    EXPECT_TRUE(contains(text, "send") && contains(text, " report")) << text;

    KelvoVoiceApp second(home_ / "second");
    EXPECT_TRUE(eventually([&] { return !second.isRunning(); }));
    EXPECT_TRUE(contains(second.log(), "already running"));
    EXPECT_TRUE(app.isRunning());
}

// tests/e2e/notification-server on the session bus, answering every notification as `answer`
// says; it records each one as a "NOTIFY\t" line of its log.
class NotificationServer : public LoggedProcess {
  public:
    NotificationServer(const std::filesystem::path& log, const std::string& answer)
        : LoggedProcess(
              {(KelvoVoiceApp::sourceDirectory() / "tests/e2e/notification-server").string(),
               log.string(), answer},
              log) {
        EXPECT_TRUE(waitForLog("READY\n", 1, 20s));
    }
    std::size_t notices() const { return countInLog("NOTIFY\t"); }
};

// With no speech model installed, dictation runs on the fallback and the application says so
// once with a desktop notice: dismissed, it does not come back at the next start; its install
// button (the recommended model, from a loopback catalogue) installs the model in the background.
TEST_F(KelvoVoiceAppTest, MissingModelIsNoticedOnceAndInstalledFromTheNotice) {
    // A file that passes the installer's model-header check and that the engine, where this build
    // has one, can load: whisper.cpp's weightless test model; else the header alone.
    std::string model;
    if (std::ifstream weightless{KELVO_WHISPER_TEST_MODEL_FILE}) {
        model.assign(std::istreambuf_iterator<char>(weightless), {});
    } else {
        const std::int32_t header[] = {0x67676d6c, 51865, 1500, 384, 6, 4, 448, 384, 6, 4, 80, 1};
        model.assign(reinterpret_cast<const char*>(header), sizeof header);
        model.resize(1'000'000);
    }
    ASSERT_GT(model.size(), 100'000u);
    char sizeText[32];
    std::snprintf(sizeText, sizeof sizeText, "%.1f MB", static_cast<double>(model.size()) / 1e6);
    // Just past 30 %, whichever way the progress is rounded.
    const std::size_t stallAt = model.size() * 3 / 10 + 1;
    testing::ModelFileServer files(model);
    std::filesystem::create_directories(home_);
    std::ofstream(home_ / "catalog.json")
        << R"([{"name": "tiny", "sizeIsExact": true, "sizeBytes": )" << model.size()
        << R"(, "url": ")" << files.baseURL() << R"(ggml-tiny.bin"}])";
    setenv("KELVO_MODEL_CATALOG", (home_ / "catalog.json").c_str(), 1);
    {
        NotificationServer server(home_ / "notices.log", "close:2");
        startApp();
        ASSERT_TRUE(app_->waitForLog("[KelvoVoice] Model notice dismissed"));
        EXPECT_TRUE(contains(app_->log(), ". Falling back to SFSpeechRecognizer"));
        EXPECT_TRUE(contains(server.log(), "\tJapanese dictation needs a speech model\t"));
        EXPECT_TRUE(contains(server.log(), std::string("install=Install tiny (") + sizeText +
                                               ")|settings=Open Settings"));
        app_.reset();
        startApp(false);
        EXPECT_TRUE(app_->waitForLog("[KelvoVoice] Model notice answered before"));
        EXPECT_EQ(server.notices(), 1u) << server.log();
        app_.reset();
    }
    // Forget the answer (the settings file), then press Install: the tooltip shows the progress
    // of a download that stalls; the application quits; pressed again, Install resumes it. No
    // dictation here: the model engine would resume the partial download itself.
    NotificationServer server(home_ / "notices-install.log", "invoke:install");
    std::filesystem::remove_all(home_ / "config");
    files.behave(testing::ModelFileServer::Mode::stallAfter, stallAt);
    startApp(false);
    // The item may not be registered yet: sni-menu then fails, and the wait goes on.
    EXPECT_TRUE(eventually([&] {
        return contains(KelvoVoiceApp::sniMenu("item 2>/dev/null || true"),
                        "\nInstalling speech model tiny: 30 %\n");
    }));
    app_.reset();
    std::filesystem::remove_all(home_ / "config");
    files.behave(testing::ModelFileServer::Mode::normal);
    startApp(false);
    EXPECT_TRUE(app_->waitForLog("[KelvoVoice] Model installation finished name=tiny"));
    EXPECT_TRUE(std::filesystem::exists(home_ / "data/KelvoVoiceMac/models/ggml-tiny.bin"));
    EXPECT_EQ(files.ranges().back(), "bytes=" + std::to_string(stallAt) + "-");
    EXPECT_TRUE(server.waitForLog("\tSpeech model installed\t"));
    EXPECT_EQ(server.notices(), 3u);  // one notice a run, and the news of the installation
}

}  // namespace
}  // namespace kelvo::test
