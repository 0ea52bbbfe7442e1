#pragma once

// InputMethodCommitObject is the D-Bus object our Fcitx5 addon exports on fcitx5's own session-bus
// connection (bus name org.fcitx.Fcitx5), through which KelvoVoice commits dictated text into the
// input context that has the focus, as an input method engine commits converted text. The
// user's engine (keyboard layout, Mozc...) is not switched and its pending composition is kept
// unless the caller asks to drop it: the committed text goes in before the preedit.
//
// Interface org.kelvovoice.InputMethod1 at /org/kelvovoice/InputMethod:
//   CommitText(s text, b resetComposition) -> (b ok, s detail)
//       ok: detail is "FRONTEND:PROGRAM" of the context that took it ("xim:xterm").
//       not ok: detail is "no-focused-input-context", "password-field" (the focused context is
//       a field for secrets: nothing goes there) or "invalid-utf8".
//   FocusInfo() -> (b focused, s frontend, s program, s inputMethod, b hasPreedit,
//                   b passwordField, s contextId)
//       passwordField: the context is one CommitText refuses as "password-field".
//       contextId: the context's UUID in hex, which tells two windows of one program apart.
//
// Owned by the addon instance; every call runs on fcitx5's main loop, so no locking.

#include <fcitx-utils/dbus/objectvtable.h>
#include <fcitx/instance.h>

#include <functional>
#include <string>
#include <tuple>

namespace kelvo::platform::fcitx5 {

inline constexpr char commitObjectPath[] = "/org/kelvovoice/InputMethod";
inline constexpr char commitInterface[] = "org.kelvovoice.InputMethod1";

class InputMethodCommitObject : public fcitx::dbus::ObjectVTable<InputMethodCommitObject> {
  public:
    // committed runs after each commit, with the context that took the text.
    InputMethodCommitObject(fcitx::Instance* instance,
                            std::function<void(fcitx::InputContext&)> committed)
        : instance_(instance), committed_(std::move(committed)) {}

    std::tuple<bool, std::string> commitText(const std::string& text, bool resetComposition);
    std::tuple<bool, std::string, std::string, std::string, bool, bool, std::string> focusInfo();

  private:
    fcitx::InputContext* focusedInputContext() const;
    static bool isPasswordField(const fcitx::InputContext& context);

    fcitx::Instance* instance_;
    std::function<void(fcitx::InputContext&)> committed_;
    FCITX_OBJECT_VTABLE_METHOD(commitText, "CommitText", "sb", "bs");
    FCITX_OBJECT_VTABLE_METHOD(focusInfo, "FocusInfo", "", "bsssbbs");
};

}  // namespace kelvo::platform::fcitx5
