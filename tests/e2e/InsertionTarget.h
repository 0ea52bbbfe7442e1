#pragma once

// InsertionTarget is one insertion target application (tests/e2e/targets) running in the current
// headless session, started focused through `scripts/headless-session target`. It reads back the
// text that really landed in the widget from the target's state file. The target is ended
// (SIGTERM) when the object goes; the session's teardown ends it anyway. Test thread only.

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kelvo::test {

class InsertionTarget {
  public:
    // kind as `headless-session target` names it ("gtk-entry", "qt-lineedit", ...), options
    // passed on ("--text", TEXT, "--select", "START:END"). Throws std::runtime_error with the
    // script's message when the target cannot be started or focused.
    explicit InsertionTarget(std::string kind, const std::vector<std::string>& options = {});
    ~InsertionTarget();

    InsertionTarget(const InsertionTarget&) = delete;
    InsertionTarget& operator=(const InsertionTarget&) = delete;

    const std::string& kind() const noexcept { return kind_; }

    // The text the target last reported; empty when its state file cannot be read.
    std::string text() const;
    // Polls the text until condition holds or a generous limit passes; returns the last text read
    // (check it: the limit only keeps a broken target from hanging the run).
    std::string waitForText(const std::function<bool(const std::string&)>& condition,
                            std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

  private:
    std::string kind_;
    std::string stateFile_;
    long pid_ = 0;
};

}  // namespace kelvo::test
