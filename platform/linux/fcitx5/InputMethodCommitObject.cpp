#include "InputMethodCommitObject.h"

#include <fcitx-utils/capabilityflags.h>
#include <fcitx-utils/utf8.h>
#include <fcitx/inputcontext.h>
#include <fcitx/inputpanel.h>

namespace kelvo::platform::fcitx5 {

namespace {
constexpr char noFocusedInputContext[] = "no-focused-input-context";
constexpr char invalidUtf8[] = "invalid-utf8";
constexpr char passwordField[] = "password-field";
}  // namespace

fcitx::InputContext* InputMethodCommitObject::focusedInputContext() const {
    // The last focused context keeps that title after its window lost the focus to one without
    // input-method support, so the focus itself is checked too: committing there would send the
    // text to a window the user has left.
    fcitx::InputContext* context = instance_->lastFocusedInputContext();
    return context && context->hasFocus() ? context : nullptr;
}

std::tuple<bool, std::string> InputMethodCommitObject::commitText(const std::string& text,
                                                                  bool resetComposition) {
    if (!fcitx::utf8::validate(text)) {
        return {false, invalidUtf8};
    }
    fcitx::InputContext* context = focusedInputContext();
    if (!context) {
        return {false, noFocusedInputContext};
    }
    // GTK and Qt password fields keep their input context and would take the text; dictation is
    // never put into a field for secrets.
    if (context->capabilityFlags().testAny(fcitx::CapabilityFlag::PasswordOrSensitive)) {
        return {false, passwordField};
    }
    if (resetComposition) {
        context->reset();  // the engine drops its pending composition
    }
    // Without a reset the engine's preedit stays where it is and this text goes in before it.
    context->commitString(text);
    return {true, context->frontend() + std::string(":") + context->program()};
}

std::tuple<bool, std::string, std::string, std::string, bool> InputMethodCommitObject::focusInfo() {
    fcitx::InputContext* context = instance_->lastFocusedInputContext();
    if (!context) {
        return {false, "", "", "", false};
    }
    bool hasPreedit =
        !context->inputPanel().clientPreedit().empty() || !context->inputPanel().preedit().empty();
    return {context->hasFocus(), context->frontend(), context->program(),
            instance_->inputMethod(context), hasPreedit};
}

}  // namespace kelvo::platform::fcitx5
