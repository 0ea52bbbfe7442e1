// The kelvovoice application end to end in a Wayland session: headless Sway as the compositor,
// the status item on the session's StatusNotifierWatcher, GTK entries running natively on Wayland
// and hidden from the accessibility bus (so only the input method or the paste can reach them),
// and a session without /dev/input, so the trigger key comes from a stand-in for the desktop's
// global-shortcuts portal (tests/e2e/shortcuts-portal). The first dictation, started and stopped
// from the menu over D-Bus, goes in through Fcitx5's Wayland input method with our addon. The
// second, held on the portal's trigger, goes to an entry without an input method (GTK's simple
// input context), so it takes the paste fallback (data-control clipboard, virtual-keyboard
// Ctrl+V), and the user's clipboard text is back afterwards. Fcitx5 stays up throughout: its
// virtual keyboard is the seat's keyboard, without which a headless Sway focuses no keyboard
// client. Sway refuses root: CTest runs this through scripts/as-test-user.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "KelvoVoiceApp.h"
#include "platform/linux/Fcitx5AddonInstaller.h"
#include "platform/linux/WaylandDataControlPasteboard.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;

std::string sessionTool() {
    return (KelvoVoiceApp::sourceDirectory() / "scripts" / "headless-session").string();
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

// A program of the session run as a child of the test, its output in log, ended (TERM) when
// destroyed.
class Child {
  public:
    Child(std::vector<std::string> arguments, const std::filesystem::path& log,
          const std::vector<std::pair<std::string, std::string>>& environment = {}) {
        pid_ = fork();
        if (pid_ == 0) {
            freopen(log.c_str(), "w", stdout);
            dup2(STDOUT_FILENO, STDERR_FILENO);
            for (const auto& [name, value] : environment) {
                setenv(name.c_str(), value.c_str(), 1);
            }
            std::vector<char*> argv;
            for (std::string& argument : arguments) {
                argv.push_back(argument.data());
            }
            argv.push_back(nullptr);
            execvp(argv[0], argv.data());
            _exit(127);
        }
    }
    ~Child() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }

  private:
    pid_t pid_ = -1;
};

// fcitx5 with our addon installed for the user in home, keyboard layout only, on the compositor.
std::unique_ptr<Child> startFcitx5(const std::filesystem::path& home) {
    std::filesystem::create_directories(home);
    setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);
    platform::Fcitx5AddonInstaller installer({KELVO_FCITX5_ADDON_LIBRARY});
    bool installed = installer.installForUser().empty();
    unsetenv("XDG_DATA_HOME");
    if (!installed) {
        return nullptr;
    }
    return std::make_unique<Child>(
        std::vector<std::string>{"fcitx5", "--disable=notificationitem,kimpanel,classicui"},
        home / "fcitx5.log",
        std::vector<std::pair<std::string, std::string>>{
            {"HOME", home.string()},
            {"XDG_CONFIG_HOME", (home / ".config").string()},
            {"XDG_DATA_HOME", (home / ".local/share").string()},
            {"GSETTINGS_BACKEND", "memory"}});
}

std::string fileText(const std::filesystem::path& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Presses or releases the trigger as the desktop's shortcuts portal reports it.
void pressPortalShortcut(bool down) {
    KelvoVoiceApp::run(std::string("dbus-send --session --print-reply "
                                   "--dest=org.freedesktop.portal.Desktop "
                                   "/org/freedesktop/portal/desktop "
                                   "org.kelvovoice.ShortcutsPortalTest.Press boolean:") +
                       (down ? "true" : "false") + " >/dev/null");
}

std::string entryText(const std::string& stateFile) {
    QFile file(QString::fromStdString(stateFile));
    file.open(QIODevice::ReadOnly);
    return QJsonDocument::fromJson(file.readAll()).object().value("text").toString().toStdString();
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Starts a dictation from the menu, plays the bundled sentence, stops it from the menu and waits
// until the session is idle again (insertion, and a paste's clipboard restore, done).
// With start and stop either the menu's items or the portal's press and release; without a
// sound, a silent recording of a second and a half.
void dictate(KelvoVoiceApp& app, const std::function<void(bool)>& startOrStop,
             const std::filesystem::path& sound = KelvoVoiceApp::englishSample()) {
    std::size_t idle = app.countInLog("[KelvoVoice] statusItem idle");
    std::size_t recording = app.countInLog("[KelvoVoice] statusItem recording");
    startOrStop(true);
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem recording", recording + 1));
    std::this_thread::sleep_for(300ms);
    if (sound.empty()) {
        std::this_thread::sleep_for(1200ms);
    } else {
        KelvoVoiceApp::play(sound);
        // A person lets go a moment after the last word, which the loaded recogniser needs.
        std::this_thread::sleep_for(700ms);
    }
    startOrStop(false);
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem idle", idle + 1));
}

void clickDictationMenuItem(bool start) {
    KelvoVoiceApp::clickMenu(start ? "Start Dictation" : "Stop Dictation");
}

TEST(WaylandAppTest, MenuDictationReachesANativeWaylandFieldThroughInputMethodThenPaste) {
    ASSERT_NE(geteuid(), 0u) << "sway refuses root: run through scripts/as-test-user";
    std::filesystem::path home =
        std::filesystem::temp_directory_path() / ("kelvovoice-wayland-" + std::to_string(getpid()));
    std::filesystem::remove_all(home);
    std::string socket = firstLine(KelvoVoiceApp::run("'" + sessionTool() + "' compositor"));
    ASSERT_FALSE(socket.empty());
    setenv("WAYLAND_DISPLAY", socket.c_str(), 1);
    KelvoVoiceApp::startStatusNotifierHost();
    auto fcitx5 = startFcitx5(home / "fcitx5");
    ASSERT_TRUE(fcitx5);
    // No /dev/input here: the trigger key comes through the desktop's shortcuts portal.
    Child portal({(KelvoVoiceApp::sourceDirectory() / "tests/e2e/shortcuts-portal").string()},
                 home / "portal.log");
    ASSERT_TRUE(waitUntil([&] { return contains(fileText(home / "portal.log"), "READY"); }));

    // The application believes what the session tells it; DISPLAY stays, as XWayland's would.
    setenv("XDG_SESSION_TYPE", "wayland", 1);
    KelvoVoiceApp app(home);
    unsetenv("XDG_SESSION_TYPE");
    std::shared_ptr<void> showLogOnFailure(nullptr, [&](void*) {
        if (testing::Test::HasFailure()) {
            std::cerr << "--- kelvovoice log ---\n" << app.log() << "---\n";
        }
        app.terminate();
        std::filesystem::remove_all(home);
    });
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem next-runloop")) << app.log();
    EXPECT_TRUE(contains(app.log(), "[KelvoVoice] Session type=wayland"));
    EXPECT_TRUE(
        contains(app.log(), "[KelvoVoice] Backend pasteboard=WaylandDataControlPasteboard"));
    EXPECT_TRUE(contains(app.log(),
                         "[KelvoVoice] Backend keySynthesizer=WaylandVirtualKeyboardSynthesizer"));
    EXPECT_TRUE(
        contains(app.log(), "[KelvoVoice] Backend keyMonitor=PortalGlobalShortcutsKeyMonitor"));

    auto startEntry = [](const std::string& options) {
        return firstLine(KelvoVoiceApp::run(
            "'" + sessionTool() + "' target wayland-gtk-entry --no-accessibility " + options));
    };
    // A first, silent recording loads the recogniser's model: on a loaded machine the first
    // dictation of a process can otherwise lose the words spoken while it loads.
    dictate(app, clickDictationMenuItem, {});
    std::string entry = startEntry("");
    ASSERT_FALSE(entry.empty());
    dictate(app, clickDictationMenuItem);
    EXPECT_TRUE(waitUntil([&] { return contains(entryText(entry), "please send"); }, 20s))
        << entryText(entry);
    EXPECT_TRUE(contains(app.log(), "[TextInsertion] Input method insertion succeeded: fcitx5"));

    // No input method in the field: the paste, and the user's clipboard text survives it. This
    // time the trigger key is held, as the portal reports it.
    std::string plainEntry = startEntry("--no-input-method");
    ASSERT_FALSE(plainEntry.empty());
    platform::WaylandDataControlPasteboard userClipboard;
    ASSERT_TRUE(userClipboard.writeString("前のクリップボード"));
    ASSERT_TRUE(
        waitUntil([&] { return contains(fileText(home / "portal.log"), "BindShortcuts"); }));
    dictate(app, pressPortalShortcut);
    EXPECT_TRUE(waitUntil([&] { return contains(entryText(plainEntry), "please send"); }, 20s))
        << entryText(plainEntry);
    EXPECT_TRUE(
        contains(app.log(), "[TextInsertion] Input method fcitx5: no focused input context"));
    EXPECT_TRUE(contains(app.log(), "[TextInsertion] Sent Cmd+V"));
    EXPECT_TRUE(contains(app.log(), "[TextInsertion] Restored previous pasteboard string"));
    EXPECT_EQ(KelvoVoiceApp::run("wl-paste --no-newline"), "前のクリップボード");
}

}  // namespace
}  // namespace kelvo::test
