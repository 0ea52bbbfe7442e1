#pragma once

// InsertionTarget is one insertion target application (tests/e2e/targets) running in the current
// headless session, started focused through `scripts/headless-session target`. It reads back what
// the target reports in its state file: the text that really landed in the widget, the selection
// and caret in the toolkit's own units, and the focus. The target is ended (SIGTERM) when the
// object goes; the session's teardown ends it anyway. Test thread only.

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelvo::test {

class InsertionTarget {
  public:
    struct State {
        std::string text;
        int selectionStart = 0;
        int selectionEnd = 0;
        int caret = 0;
        bool focused = false;
        bool active = false;
    };

    // kind as `headless-session target` names it ("gtk-entry", "qt-lineedit", ...), options
    // passed on ("--text", TEXT, "--select", "START:END"). Throws std::runtime_error with the
    // script's message when the target cannot be started or focused.
    explicit InsertionTarget(std::string kind, const std::vector<std::string>& options = {});
    ~InsertionTarget();

    InsertionTarget(const InsertionTarget&) = delete;
    InsertionTarget& operator=(const InsertionTarget&) = delete;

    const std::string& kind() const noexcept { return kind_; }
    const std::string& stateFile() const noexcept { return stateFile_; }

    // The last state the target wrote; nothing when the file cannot be read.
    std::optional<State> state() const;

    // Polls the state file until condition holds or a generous limit passes; returns the last
    // state read (check it: the limit only keeps a broken target from hanging the run).
    std::optional<State> waitForState(
        const std::function<bool(const State&)>& condition,
        std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

  private:
    std::string kind_;
    std::string stateFile_;
    long pid_ = 0;
};

}  // namespace kelvo::test
