#pragma once

// IBusInputMethodCommitter commits dictated text through ibus-daemon without an engine switch: it
// takes the daemon's panel-extension name (the one the emoji picker uses, taken with replacement
// allowed so the picker gets it back afterwards), serves a panel at the extension's object path,
// emits the panel's CommitText (the daemon commits it into its focused input context, before any
// preedit of the user's engine) and gives the name back nameHoldTime later. This relies on daemon
// behaviour that is stable since IBus 1.5.19 but not documented as an API.
//
// The daemon gives no feedback for a commit and drops it silently when no client has the focus,
// so the focus comes first, from the panel calls the daemon makes to its extension: FocusIn with
// the focused input context, then ContentType with that field's purpose. Taking the name makes the
// daemon report the current focus at once, and while the name is held every change is reported;
// the panel is taken down with the name.
// The daemon's own input context (focused whenever no client's is) means noFocusedInputContext and
// the text goes on to the next path instead of being swallowed; a password or PIN purpose means
// passwordField.
//
// libibus runs on a thread of its own: the bus, the panel and every GLib callback of theirs are
// made and dispatched on a GMainContext that only that thread iterates, so the Qt main loop (which
// need not run GLib at all) never dispatches IBus traffic and nothing else in the process reads
// it. commit() and probe() post their work there and resume their awaiter on the calling thread.
// Construct, call and destroy on one thread (the main thread), with a QCoreApplication running.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "platform/InputMethodCommitter.h"

namespace kelvo::platform {

class IBusInputMethodCommitter final : public InputMethodCommitter {
  public:
    // Each daemon call, and the wait for its focus report; a daemon that does not answer in this
    // time counts as unavailable.
    static constexpr std::chrono::milliseconds callTimeout{500};
    // How long the extension name is kept after a commit (and after each further commit).
    static constexpr std::chrono::milliseconds nameHoldTime{250};

    // Connects to the daemon of this session (IBUS_ADDRESS, else the daemon's address file, which
    // is also what GTK and Qt clients read); reconnects by itself when the daemon starts later.
    IBusInputMethodCommitter();
    ~IBusInputMethodCommitter() override;

    IBusInputMethodCommitter(const IBusInputMethodCommitter&) = delete;
    IBusInputMethodCommitter& operator=(const IBusInputMethodCommitter&) = delete;

    // Whether a field of this IBus input purpose (IBusInputPurpose) is for secrets: a password or
    // a PIN, which get nothing.
    static bool isForSecrets(unsigned purpose);

    std::string name() const override { return "ibus"; }
    QCoro::Task<Result> commit(std::string text) override;
    QCoro::Task<Result> probe() override;

  private:
    struct Connection;

    // Holds the extension name and reads the daemon's current focus, on the IBus thread; commits
    // text when there is some and the focus takes it: delivered (a client's input context, detail
    // its object path) or why nothing can go there.
    QCoro::Task<Result> request(std::optional<std::string> text);

    std::shared_ptr<Connection> connection_;
    std::thread thread_;
};

}  // namespace kelvo::platform
