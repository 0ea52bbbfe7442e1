#include "platform/linux/XTestKeySynthesizer.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include "platform/linux/X11Connection.h"
#include "platform/linux/X11FrontmostWindow.h"
#include "platform/linux/X11Keymap.h"

namespace kelvo::platform {
namespace {

bool equalsIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

bool isKeyDown(const char (&keys)[32], KeyCode keycode) {
    return (keys[keycode / 8] >> (keycode % 8)) & 1;
}

// Releases, through XTest, every key bound to a modifier that the server reports as down.
void releaseHeldModifiers(Display* display) {
    char keys[32] = {};
    XQueryKeymap(display, keys);
    XModifierKeymap* modifiers = XGetModifierMapping(display);
    if (!modifiers) {
        return;
    }
    for (int i = 0; i < 8 * modifiers->max_keypermod; ++i) {
        KeyCode keycode = modifiers->modifiermap[i];
        if (keycode != 0 && isKeyDown(keys, keycode)) {
            // The release goes to the core keyboard, whose state the target's modifiers come
            // from (as xdotool's --clearmodifiers relies on). Proven with keys held through
            // XTest; a key held on a physical keyboard could not be tried on a headless server.
            XTestFakeKeyEvent(display, keycode, False, CurrentTime);
        }
    }
    XFreeModifiermap(modifiers);
}

// A keycode temporarily mapped to one symbol, as xdotool does for symbols the layout lacks. The
// target reads the key events before the MappingNotify of the restore (events arrive in order),
// so undoing the mapping right after the chord is safe.
class TemporaryKeyMapping {
  public:
    TemporaryKeyMapping(Display* display, KeyCode keycode, KeySym keysym)
        : display_(display), keycode_(keycode) {
        int perKeycode = 0;
        KeySym* original = XGetKeyboardMapping(display_, keycode_, 1, &perKeycode);
        if (original) {
            original_.assign(original, original + perKeycode);
            XFree(original);
        }
        KeySym symbols[2] = {keysym, keysym};
        XChangeKeyboardMapping(display_, keycode_, 2, symbols, 1);
        XSync(display_, False);
    }
    ~TemporaryKeyMapping() {
        if (original_.empty()) {
            original_.push_back(NoSymbol);
        }
        XChangeKeyboardMapping(display_, keycode_, static_cast<int>(original_.size()),
                               original_.data(), 1);
        XSync(display_, False);
    }
    TemporaryKeyMapping(const TemporaryKeyMapping&) = delete;
    TemporaryKeyMapping& operator=(const TemporaryKeyMapping&) = delete;

  private:
    Display* display_;
    KeyCode keycode_;
    std::vector<KeySym> original_;
};

void tapChord(Display* display, const std::vector<KeyCode>& modifiers, KeyCode key) {
    for (KeyCode modifier : modifiers) {
        XTestFakeKeyEvent(display, modifier, True, CurrentTime);
    }
    XTestFakeKeyEvent(display, key, True, CurrentTime);
    XTestFakeKeyEvent(display, key, False, CurrentTime);
    for (auto it = modifiers.rbegin(); it != modifiers.rend(); ++it) {
        XTestFakeKeyEvent(display, *it, False, CurrentTime);
    }
    XSync(display, False);
}

std::optional<KeyCode> keycodeFor(const X11Keymap& keymap, KeySym primary, KeySym secondary) {
    auto codes = keymap.keycodesWithBaseSymbol(primary);
    if (codes.empty()) {
        codes = keymap.keycodesWithBaseSymbol(secondary);
    }
    if (codes.empty()) {
        return std::nullopt;
    }
    return codes.front();
}

}  // namespace

XTestKeySynthesizer::XTestKeySynthesizer(WindowClassList extraTerminalClasses,
                                         const std::string& displayName)
    : connection_(std::make_unique<X11Connection>(displayName)),
      extraTerminalClasses_(std::move(extraTerminalClasses)) {}

XTestKeySynthesizer::~XTestKeySynthesizer() = default;

const std::vector<std::string>& XTestKeySynthesizer::builtInTerminalClasses() {
    // Instance or class names as the emulators set them; matched case-insensitively.
    static const std::vector<std::string> classes = {
        "xterm",
        "uxterm",
        "URxvt",
        "rxvt",
        "gnome-terminal",
        "gnome-terminal-server",
        "konsole",
        "yakuake",
        "xfce4-terminal",
        "Alacritty",
        "kitty",
        "tilix",
        "terminator",
        "st-256color",
        "st",
        "foot",
        "footclient",
        "wezterm",
        "org.wezfurlong.wezterm",
        "mate-terminal",
        "lxterminal",
        "qterminal",
        "terminology",
        "sakura",
        "guake",
        "tilda",
        "cool-retro-term",
        "kgx",
        "org.gnome.Console",
        "Eterm",
        "aterm",
        "ptyxis",
        "org.gnome.Ptyxis",
        "deepin-terminal",
        "contour",
        "roxterm",
        "termite",
        "blackbox",
        "com.raggesilver.BlackBox",
    };
    return classes;
}

bool XTestKeySynthesizer::isTerminalWindowClass(const std::string& instanceName,
                                                const std::string& className,
                                                const std::vector<std::string>& extraClasses) {
    auto matches = [&](const std::string& name) {
        return !name.empty() &&
               (equalsIgnoringCase(name, instanceName) || equalsIgnoringCase(name, className));
    };
    return std::any_of(builtInTerminalClasses().begin(), builtInTerminalClasses().end(), matches) ||
           std::any_of(extraClasses.begin(), extraClasses.end(), matches);
}

bool XTestKeySynthesizer::hasXTest() const {
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    return XTestQueryExtension(connection_->display(), &eventBase, &errorBase, &major, &minor);
}

bool XTestKeySynthesizer::sendPaste() {
    Display* display = connection_->display();
    if (!display || !hasXTest()) {
        return false;
    }
    X11Keymap keymap(display);
    auto control = keycodeFor(keymap, XK_Control_L, XK_Control_R);
    if (!control) {
        return false;
    }
    std::vector<KeyCode> modifiers = {*control};
    if (auto front = X11FrontmostWindow::read(display)) {
        auto extra = extraTerminalClasses_ ? extraTerminalClasses_() : std::vector<std::string>{};
        if (isTerminalWindowClass(front->instanceName, front->className, extra)) {
            auto shift = keycodeFor(keymap, XK_Shift_L, XK_Shift_R);
            if (!shift) {
                return false;
            }
            modifiers.push_back(*shift);
        }
    }

    // Decide everything before the first event, so a failure posts nothing.
    KeyCode key = 0;
    bool remap = false;
    if (auto v = keymap.keycodeTyping(XK_v, X11Keymap::activeGroup(display))) {
        key = *v;
    } else if (auto spare = keymap.unmappedKeycode()) {
        key = *spare;
        remap = true;
    } else {
        return false;
    }
    releaseHeldModifiers(display);
    if (!remap) {
        tapChord(display, modifiers, key);
        return true;
    }
    TemporaryKeyMapping mapping(display, key, XK_v);
    tapChord(display, modifiers, key);
    return true;
}

}  // namespace kelvo::platform
