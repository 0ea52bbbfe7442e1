#pragma once

// XTestKeySynthesizer is the X11 KeySynthesizer: it sends the paste chord to the focused window
// through the XTest extension. Terminal emulators paste on Ctrl+Shift+V (their Ctrl+V is a control
// character), so the chord depends on the WM_CLASS of the window in front: Ctrl+Shift+V when its
// instance or class name, compared case-insensitively, is one of the built-in terminal classes or
// of the user's own list, else Ctrl+V. Modifiers still held (the trigger key, a Shift) are released
// first, so the target does not see another chord; V is sent as the keycode that types "v" in the
// active layout, and when the layout has none a free keycode is mapped to it for the chord and
// unmapped again.
//
// Owns its own X connection; main thread only. The user's list is read through the given function
// at every paste, so a change applies from the next dictation.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/KeySynthesizer.h"

namespace kelvo::platform {

class X11Connection;

class XTestKeySynthesizer final : public KeySynthesizer {
  public:
    using WindowClassList = std::function<std::vector<std::string>()>;

    // extraTerminalClasses may be empty (built-in list only). Connects to displayName, or $DISPLAY
    // when it is empty; without a display every paste fails.
    explicit XTestKeySynthesizer(WindowClassList extraTerminalClasses = {},
                                 const std::string& displayName = {});
    ~XTestKeySynthesizer() override;

    XTestKeySynthesizer(const XTestKeySynthesizer&) = delete;
    XTestKeySynthesizer& operator=(const XTestKeySynthesizer&) = delete;

    // Returns false, posting nothing, without a display, without XTest, or without a Control key.
    bool sendPaste() override;

    // The WM_CLASS names known to be terminal emulators.
    static const std::vector<std::string>& builtInTerminalClasses();

    // Whether a window of this WM_CLASS pastes with Ctrl+Shift+V.
    static bool isTerminalWindowClass(const std::string& instanceName, const std::string& className,
                                      const std::vector<std::string>& extraClasses);

  private:
    bool hasXTest() const;

    std::unique_ptr<X11Connection> connection_;
    WindowClassList extraTerminalClasses_;
};

}  // namespace kelvo::platform
