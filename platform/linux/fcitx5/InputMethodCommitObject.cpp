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

bool InputMethodCommitObject::isPasswordField(const fcitx::InputContext& context) {
    // Set by the GTK and Qt frontends from the field's input purpose and hints (password and PIN
    // purposes, Qt's sensitive-data hint); these fields keep their input context.
    return context.capabilityFlags().testAny(fcitx::CapabilityFlag::PasswordOrSensitive);
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
    // Dictation is never put into a field for secrets.
    if (isPasswordField(*context)) {
        return {false, passwordField};
    }
    if (resetComposition) {
        context->reset();  // the engine drops its pending composition
    }
    // Without a reset the engine's preedit stays where it is and this text goes in before it.
    context->commitString(text);
    committed_(*context);
    return {true, context->frontend() + std::string(":") + context->program()};
}

std::tuple<bool, std::string, std::string, std::string, bool, bool, std::string>
InputMethodCommitObject::focusInfo() {
    fcitx::InputContext* context = instance_->lastFocusedInputContext();
    if (!context) {
        return {false, "", "", "", false, false, ""};
    }
    bool hasPreedit =
        !context->inputPanel().clientPreedit().empty() || !context->inputPanel().preedit().empty();
    std::string contextId;
    for (uint8_t byte : context->uuid()) {
        constexpr char hex[] = "0123456789abcdef";
        contextId += hex[byte >> 4];
        contextId += hex[byte & 0xf];
    }
    return {context->hasFocus(),
            context->frontend(),
            context->program(),
            instance_->inputMethod(context),
            hasPreedit,
            isPasswordField(*context),
            contextId};
}

}  // namespace kelvo::platform::fcitx5
