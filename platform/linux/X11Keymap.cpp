#include "platform/linux/X11Keymap.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

namespace kelvo::platform {

X11Keymap::X11Keymap(_XDisplay* display)
    : description_(XkbGetMap(display, XkbKeySymsMask | XkbKeyTypesMask, XkbUseCoreKbd)) {}

X11Keymap::~X11Keymap() {
    if (description_) {
        XkbFreeKeyboard(description_, 0, True);
    }
}

X11Keymap::Keysym X11Keymap::baseSymbol(Keycode keycode, int group) const {
    if (keycode < description_->min_key_code || keycode > description_->max_key_code ||
        group >= XkbKeyNumGroups(description_, keycode)) {
        return NoSymbol;
    }
    return XkbKeySymEntry(description_, keycode, 0, group);
}

std::vector<X11Keymap::Keycode> X11Keymap::keycodesWithBaseSymbol(Keysym keysym) const {
    std::vector<Keycode> keycodes;
    if (!description_) {
        return keycodes;
    }
    for (int code = description_->min_key_code; code <= description_->max_key_code; ++code) {
        auto keycode = static_cast<Keycode>(code);
        for (int group = 0; group < XkbKeyNumGroups(description_, keycode); ++group) {
            if (baseSymbol(keycode, group) == keysym) {
                keycodes.push_back(keycode);
                break;
            }
        }
    }
    return keycodes;
}

std::optional<X11Keymap::Keycode> X11Keymap::keycodeTyping(Keysym keysym, int group) const {
    if (!description_) {
        return std::nullopt;
    }
    for (int code = description_->min_key_code; code <= description_->max_key_code; ++code) {
        auto keycode = static_cast<Keycode>(code);
        // A key with fewer groups wraps the active group onto the ones it has (XKB's default
        // group wrapping), so its first group is what it types in any other.
        int groups = XkbKeyNumGroups(description_, keycode);
        if (groups > 0 && baseSymbol(keycode, group < groups ? group : 0) == keysym) {
            return keycode;
        }
    }
    return std::nullopt;
}

std::optional<X11Keymap::Keycode> X11Keymap::unmappedKeycode() const {
    if (!description_) {
        return std::nullopt;
    }
    // From the top: the low keycodes are the real keys of common keyboards.
    for (int code = description_->max_key_code; code >= description_->min_key_code; --code) {
        if (XkbKeyNumSyms(description_, static_cast<Keycode>(code)) == 0) {
            return static_cast<Keycode>(code);
        }
    }
    return std::nullopt;
}

int X11Keymap::activeGroup(_XDisplay* display) {
    XkbStateRec state{};
    if (XkbGetState(display, XkbUseCoreKbd, &state) != Success) {
        return 0;
    }
    return state.group;
}

}  // namespace kelvo::platform
