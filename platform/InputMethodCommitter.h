#pragma once

// InputMethodCommitter is the seam for handing finished text to the user's input-method framework
// (Fcitx5, IBus), which commits it into the focused input context exactly as an input method
// commits converted text: no clipboard, no synthetic keys, and it reaches terminals and clients
// that have no accessibility interface. It is tried before the accessibility and paste paths and
// must say precisely when it could not deliver, so that the text goes on to them instead of being
// swallowed: a framework that is not running or cannot take the commit is `unavailable`; one that
// runs but has no input context with the focus (a window without input-method support, or none)
// is `noFocusedInputContext`. The framework knows what the focused field is for, so it also says
// when that field is for secrets (a password or PIN field): `passwordField`, and nothing may be
// inserted there by any path, since the paste that would follow types blindly into whatever has
// the focus. A pending composition of the user's own (a preedit) is kept: the text goes in before
// it.
//
// Owned by the application's wiring; called from the main thread, and every task resumes there.

#include <QCoroTask>
#include <string>

namespace kelvo::platform {

class InputMethodCommitter {
  public:
    enum class Outcome { delivered, noFocusedInputContext, passwordField, unavailable };

    struct Result {
        Outcome outcome = Outcome::unavailable;
        // Delivered: which client took it ("gtk3:gedit"); otherwise why not. For traces only.
        std::string detail;
    };

    virtual ~InputMethodCommitter() = default;

    // The framework's short name for traces and the settings window ("fcitx5", "ibus").
    virtual std::string name() const = 0;

    // Commits text (UTF-8) into the focused input context. Never throws.
    virtual QCoro::Task<Result> commit(std::string text) = 0;

    // Whether a commit could be delivered now if a window with an input context had the focus:
    // `unavailable` with the reason (framework not running, our addon not loaded), otherwise
    // `delivered`, `noFocusedInputContext` or `passwordField` with a description of the focus.
    // Never throws.
    virtual QCoro::Task<Result> probe() = 0;
};

}  // namespace kelvo::platform
