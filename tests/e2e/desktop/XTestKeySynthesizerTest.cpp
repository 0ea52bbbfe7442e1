// The paste chord as the focused window receives it from the session's real X server.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "X11TestWindow.h"
#include "platform/linux/XTestKeySynthesizer.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

namespace kelvo::platform {
namespace {

using test::runProgram;
using test::waitUntil;
using test::X11TestWindow;

constexpr unsigned int kChordModifiers = ControlMask | ShiftMask;

// Sends the chord to window (focused, and published as the active window) and returns the
// modifiers that came with its first non-modifier key press (V, or the stand-in keycode).
std::optional<X11TestWindow::Key> pasteInto(XTestKeySynthesizer& synthesizer,
                                            X11TestWindow& window) {
    window.focus();
    window.publishAsActive();
    window.clearKeys();
    if (!synthesizer.sendPaste()) {
        return std::nullopt;
    }
    std::optional<X11TestWindow::Key> chord;
    waitUntil([&] {
        for (const auto& key : window.keys()) {
            if (key.isPress && key.state & ControlMask && !IsModifierKey(key.keysym)) {
                chord = key;
                return true;
            }
        }
        return false;
    });
    return chord;
}

bool isDown(Display* display, KeySym keysym) {
    char keys[32] = {};
    XQueryKeymap(display, keys);
    KeyCode keycode = XKeysymToKeycode(display, keysym);
    return (keys[keycode / 8] >> (keycode % 8)) & 1;
}

TEST(XTestKeySynthesizerTest, ChoosesTheChordByTheFrontWindowClassAndReleasesHeldModifiers) {
    std::vector<std::string> userClasses;
    XTestKeySynthesizer synthesizer([&] { return userClasses; });
    // Terminals take Ctrl+Shift+V; so do the classes of the user's own list, read at each paste,
    // case-insensitively.
    const struct {
        const char* instance;
        const char* className;
        std::vector<std::string> userClasses;
        unsigned int modifiers;
    } cases[] = {{"gedit", "Gedit", {}, ControlMask},
                 {"xterm", "XTerm", {}, kChordModifiers},
                 {"mytool", "MyTool", {}, ControlMask},
                 {"mytool", "MyTool", {"MYTOOL"}, kChordModifiers}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.className);
        userClasses = c.userClasses;
        X11TestWindow window(c.instance, c.className);
        const auto chord = pasteInto(synthesizer, window);
        ASSERT_TRUE(chord);
        EXPECT_EQ(chord->keysym, XK_v);
        EXPECT_EQ(chord->state & kChordModifiers, c.modifiers);
    }

    // The trigger key and a Shift still held: released before the chord, so the editor gets
    // Ctrl+V rather than Ctrl+Shift+V.
    X11TestWindow editor("gedit", "Gedit");
    editor.focus();
    int status = 0;
    runProgram({"xdotool", "keydown", "Shift_L", "keydown", "Control_R"}, &status);
    ASSERT_EQ(status, 0);
    ASSERT_TRUE(waitUntil([&] { return editor.pressOf(XK_Control_R).has_value(); }));
    const auto chord = pasteInto(synthesizer, editor);
    ASSERT_TRUE(chord);
    EXPECT_EQ(chord->state & kChordModifiers, unsigned(ControlMask));
    EXPECT_FALSE(isDown(editor.display(), XK_Shift_L));
    EXPECT_FALSE(isDown(editor.display(), XK_Control_R));
}

TEST(XTestKeySynthesizerTest, MapsASpareKeycodeForTheChordWhenTheLayoutHasNoV) {
    X11TestWindow editor("gedit", "Gedit");
    Display* display = editor.display();
    KeyCode v = XKeysymToKeycode(display, XK_v);
    ASSERT_NE(v, 0);
    int perKeycode = 0;
    KeySym* saved = XGetKeyboardMapping(display, v, 1, &perKeycode);
    std::vector<KeySym> original(saved, saved + perKeycode);
    XFree(saved);
    KeySym none = NoSymbol;
    XChangeKeyboardMapping(display, v, 1, &none, 1);
    XSync(display, False);

    XTestKeySynthesizer synthesizer;
    auto chord = pasteInto(synthesizer, editor);
    XChangeKeyboardMapping(display, v, perKeycode, original.data(), 1);
    XSync(display, False);

    ASSERT_TRUE(chord);
    EXPECT_NE(chord->keycode, v);
    // The stand-in keycode is free again afterwards.
    KeySym* after =
        XGetKeyboardMapping(display, static_cast<KeyCode>(chord->keycode), 1, &perKeycode);
    EXPECT_EQ(after[0], static_cast<KeySym>(NoSymbol));
    XFree(after);
}

TEST(XTestKeySynthesizerTest, PostsNothingWithoutADisplay) {
    XTestKeySynthesizer synthesizer({}, ":4242");
    EXPECT_FALSE(synthesizer.sendPaste());
}

}  // namespace
}  // namespace kelvo::platform
