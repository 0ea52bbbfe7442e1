#pragma once

// Test support for the input-method route, shared by the end-to-end tests and the benchmark: an
// input-method daemon (fcitx5 with our addon, or ibus-daemon) with its own folders inside the
// headless session, the insertion targets and an XIM terminal as clients, and focusing a client
// until its framework reports its input context focused. Main thread; needs a Qt application and
// a session from scripts/headless-session.

#include <QString>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "LoggedProcess.h"
#include "platform/InputMethodCommitter.h"

namespace kelvo::test {

// A client window that can be focused and whose received text can be read.
struct Client {
    std::string title;  // empty when it did not start
    std::function<std::string()> text;
    // Whether the client itself sees its window active; empty when it cannot tell.
    std::function<bool()> active = {};
};

// Starts an insertion target (scripts/headless-session target KIND [OPTIONS]); the input-method
// variables of this process's environment reach it.
Client startTarget(const std::string& kind, const QStringList& options = {});

// xterm with input-method support (XIM server inputMethodName), its keyboard input copied byte for
// byte into a file: no line editing, no echo, so nothing waits for a newline.
Client startTerminal(const std::string& inputMethodName);

// A GTK entry whose input purpose is password while its characters are shown (accessible role
// plain text): a field for secrets that only the input method can recognise.
Client startShownPasswordField();

// Focuses the client's window, again and again (from no focus at all after the first time) until
// condition holds (false after a minute). A client makes its input context asynchronously, so a
// focus that comes before it is ready is not seen by the framework.
bool focusUntil(const Client& client, platform::InputMethodCommitter& committer,
                const std::function<bool()>& condition);

// Focuses the client's window until the framework reports an input context with the focus other
// than focusBefore (the focus it reported before the client started): until then the framework
// may still report the previous window's context, which would take the text.
bool focusUntilReady(const Client& client, platform::InputMethodCommitter& committer,
                     const std::string& focusBefore = {});

// What the framework reports as focused now (its probe's description).
std::string reportedFocus(platform::InputMethodCommitter& committer);

// Starts headless Sway (`scripts/headless-session compositor`, until the session ends) and points
// WAYLAND_DISPLAY of this process at it, so that fcitx5 started from then on runs its Wayland
// input-method frontend there. False when it did not start (not installed, or run as root).
bool startCompositor();

// Sets the variables that make GTK, Qt and XIM clients started from now on use a framework.
void useInputMethod(const char* gtkAndQtModule, const char* ximServer);

// An input-method framework's daemon in the session with its own home folder, its log
// FRAMEWORK.log in the session folder; ended when destroyed.
class InputMethodDaemon : public LoggedProcess {
  public:
    // fcitx5 with our addon library at addonLibrary, installed for the user by
    // Fcitx5AddonInstaller (XDG_DATA_HOME of this process and the daemon: the session's), keyboard
    // layout engine only, no panel, Wayland only when WAYLAND_DISPLAY is set; clients are
    // switched to fcitx. Null when the install failed.
    // With inputMethod "mozc" the user's profile makes Mozc the only input method.
    static std::unique_ptr<InputMethodDaemon> startFcitx5(const QString& addonLibrary,
                                                          const QString& inputMethod = {});
    // ibus-daemon with XIM, no panel; its address file lands under XDG_CONFIG_HOME, which this
    // process and the clients started from now on share. Returns once the address is written.
    static std::unique_ptr<InputMethodDaemon> startIBus();

  private:
    InputMethodDaemon(const std::vector<std::string>& command, const QString& home);
};

}  // namespace kelvo::test
