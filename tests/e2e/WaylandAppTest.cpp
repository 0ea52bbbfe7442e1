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

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "InsertionTarget.h"
#include "KelvoVoiceApp.h"
#include "platform/linux/Fcitx5AddonInstaller.h"
#include "platform/linux/WaylandDataControlPasteboard.h"
#include "tests/e2e/SpokenEnglish.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;

// Presses or releases the trigger as the desktop's shortcuts portal reports it.
void pressPortalShortcut(bool down) {
    testing::runShell(std::string("dbus-send --session --print-reply "
                                  "--dest=org.freedesktop.portal.Desktop "
                                  "/org/freedesktop/portal/desktop "
                                  "org.kelvovoice.ShortcutsPortalTest.Press boolean:") +
                      (down ? "true" : "false") + " >/dev/null");
}

bool sent(const std::string& text) {
    return contains(text, "please send");
}

TEST(WaylandAppTest, MenuDictationReachesANativeWaylandFieldThroughInputMethodThenPaste) {
    ASSERT_NE(geteuid(), 0u) << "sway refuses root: run through scripts/as-test-user";
    std::filesystem::path home =
        std::filesystem::temp_directory_path() / ("kelvovoice-wayland-" + std::to_string(getpid()));
    std::filesystem::remove_all(home);
    const std::string sessionTool =
        (KelvoVoiceApp::sourceDirectory() / "scripts" / "headless-session").string();
    std::string socket = testing::runShell("'" + sessionTool + "' compositor");
    socket = socket.substr(0, socket.find('\n'));
    ASSERT_FALSE(socket.empty());
    setenv("WAYLAND_DISPLAY", socket.c_str(), 1);
    KelvoVoiceApp::startStatusNotifierHost();
    // fcitx5 with our addon installed for the user in its home, keyboard layout only.
    const std::filesystem::path fcitx5Home = home / "fcitx5";
    std::filesystem::create_directories(fcitx5Home);
    setenv("XDG_DATA_HOME", (fcitx5Home / ".local/share").c_str(), 1);
    ASSERT_EQ(platform::Fcitx5AddonInstaller({KELVO_FCITX5_ADDON_LIBRARY}).installForUser(), "");
    unsetenv("XDG_DATA_HOME");
    LoggedProcess fcitx5(
        {"fcitx5", "--disable=notificationitem,kimpanel,classicui"}, fcitx5Home / "fcitx5.log",
        {"HOME=" + fcitx5Home.string(), "XDG_CONFIG_HOME=" + (fcitx5Home / ".config").string(),
         "XDG_DATA_HOME=" + (fcitx5Home / ".local/share").string(), "GSETTINGS_BACKEND=memory"});
    // No /dev/input here: the trigger key comes through the desktop's shortcuts portal.
    LoggedProcess portal(
        {(KelvoVoiceApp::sourceDirectory() / "tests/e2e/shortcuts-portal").string()},
        home / "portal.log");
    ASSERT_TRUE(portal.waitForLog("READY"));

    // The application believes what the session tells it; DISPLAY stays, as XWayland's would.
    setenv("XDG_SESSION_TYPE", "wayland", 1);
    KelvoVoiceApp app(home);
    unsetenv("XDG_SESSION_TYPE");
    std::shared_ptr<void> showLogOnFailure(nullptr, [&](void*) {
        if (::testing::Test::HasFailure()) {
            std::cerr << "--- kelvovoice log ---\n" << app.log() << "---\n";
        }
        app.terminate();
        std::filesystem::remove_all(home);
    });
    ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem next-runloop")) << app.log();
    for (const char* line :
         {"[KelvoVoice] Session type=wayland",
          "[KelvoVoice] Backend pasteboard=WaylandDataControlPasteboard",
          "[KelvoVoice] Backend keySynthesizer=WaylandVirtualKeyboardSynthesizer",
          "[KelvoVoice] Backend keyMonitor=PortalGlobalShortcutsKeyMonitor"}) {
        EXPECT_TRUE(contains(app.log(), line)) << line;
    }

    // A first, silent recording loads the recogniser's model: on a loaded machine the first
    // dictation of a process can otherwise lose the words spoken while it loads.
    ASSERT_TRUE(app.dictate({}, KelvoVoiceApp::clickDictationMenuItem));
    {
        InsertionTarget entry("wayland-gtk-entry", {"--no-accessibility"});
        ASSERT_TRUE(
            app.dictate(KelvoVoiceApp::englishSample(), KelvoVoiceApp::clickDictationMenuItem));
        EXPECT_TRUE(sent(entry.waitForText(sent))) << entry.text();
        EXPECT_TRUE(contains(
            app.log(), "[TextInsertion] Input method insertion succeeded: fcitx5 (wayland_v2:"));
    }

    // No input method in the field: the paste, and the user's clipboard text survives it. This
    // time the trigger key is held, as the portal reports it.
    InsertionTarget plainEntry("wayland-gtk-entry", {"--no-accessibility", "--no-input-method"});
    platform::WaylandDataControlPasteboard userClipboard;
    ASSERT_TRUE(userClipboard.writeString("前のクリップボード"));
    ASSERT_TRUE(portal.waitForLog("BindShortcuts"));
    ASSERT_TRUE(app.dictate(KelvoVoiceApp::englishSample(), pressPortalShortcut));
    EXPECT_TRUE(sent(plainEntry.waitForText(sent))) << plainEntry.text();
    EXPECT_TRUE(
        contains(app.log(), "[TextInsertion] Input method fcitx5: no focused input context"));
    EXPECT_TRUE(contains(app.log(), "[TextInsertion] Sent Cmd+V"));
    EXPECT_TRUE(contains(app.log(), "[TextInsertion] Restored previous pasteboard string"));
    EXPECT_EQ(testing::runShell("wl-paste --no-newline"), "前のクリップボード");
}

}  // namespace
}  // namespace kelvo::test
