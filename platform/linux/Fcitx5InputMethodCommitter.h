#pragma once

// Fcitx5InputMethodCommitter commits dictated text through our Fcitx5 addon ("kelvovoicecommit",
// object org.kelvovoice.InputMethod1 on fcitx5's bus name org.fcitx.Fcitx5): fcitx5 puts the text
// into the input context that has the focus, before any preedit of the user's engine, which stays
// active. The addon's explicit "no-focused-input-context" answer becomes noFocusedInputContext and
// its "password-field" (the context carries fcitx5's password or sensitive capability flag)
// passwordField; fcitx5 not running, our addon not loaded (installed but fcitx5 not restarted
// since) or no answer within callTimeout become unavailable. Calls never start fcitx5 through bus
// activation.
//
// Main thread only; the calls are asynchronous D-Bus calls on the given connection.

#include <QDBusConnection>
#include <chrono>

#include "platform/InputMethodCommitter.h"

namespace kelvo::platform {

class Fcitx5InputMethodCommitter final : public InputMethodCommitter {
  public:
    // A stalled fcitx5 (for example one waiting on an engine that failed to start) must not hold
    // up the other insertion paths for long.
    static constexpr std::chrono::milliseconds callTimeout{500};

    explicit Fcitx5InputMethodCommitter(QDBusConnection connection = QDBusConnection::sessionBus());

    std::string name() const override { return "fcitx5"; }
    QCoro::Task<Result> commit(std::string text) override;
    QCoro::Task<Result> probe() override;

  private:
    QDBusConnection connection_;
};

}  // namespace kelvo::platform
