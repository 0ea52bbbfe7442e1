#pragma once

// X11Keymap is a snapshot of the server's keyboard mapping (XKB), taken at construction, with the
// lookups the backends need: which keycodes are a given key whatever the layout (the trigger key),
// which keycode types a symbol without modifiers in the active group (V for the paste chord), and
// which keycode is free to be mapped for a moment. Cheap enough to build per use (one round trip),
// which keeps it right after layout switches. Used on the thread that owns the connection.

#include <optional>
#include <vector>

struct _XDisplay;
struct _XkbDesc;

namespace kelvo::platform {

class X11Keymap {
  public:
    using Keycode = unsigned char;
    using Keysym = unsigned long;

    explicit X11Keymap(_XDisplay* display);
    ~X11Keymap();

    X11Keymap(const X11Keymap&) = delete;
    X11Keymap& operator=(const X11Keymap&) = delete;

    // False when the server sent no mapping; every lookup then finds nothing.
    bool isValid() const noexcept { return description_ != nullptr; }

    // Keycodes whose unmodified symbol is keysym in at least one group.
    std::vector<Keycode> keycodesWithBaseSymbol(Keysym keysym) const;

    // The keycode whose unmodified symbol in group is keysym.
    std::optional<Keycode> keycodeTyping(Keysym keysym, int group) const;

    // A keycode the server knows but that carries no symbol at all.
    std::optional<Keycode> unmappedKeycode() const;

    // The keyboard's active group (layout) now.
    static int activeGroup(_XDisplay* display);

  private:
    Keysym baseSymbol(Keycode keycode, int group) const;

    _XkbDesc* description_ = nullptr;
};

}  // namespace kelvo::platform
