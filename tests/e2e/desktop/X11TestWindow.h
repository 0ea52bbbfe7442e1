#pragma once

// Test support for the desktop backends: a real top-level window on its own X connection with a
// WM_CLASS and title of the test's choosing, which takes the keyboard focus on request and records
// the key events the server delivers to it; plus polling helpers that keep Qt's event loop (and so
// its clipboard) running while a condition is awaited, and a command runner on top of them.

#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>
#include "tests/support/WaitUntil.h"

struct _XDisplay;

namespace kelvo::test {

// Runs program with arguments to its end while Qt events keep being processed; returns its
// standard output, and sets *exitCode (-1 when it did not finish in time).
std::string runProgram(const QStringList& command, int* exitCode = nullptr);

class X11TestWindow {
  public:
    struct Key {
        bool isPress;
        unsigned int keycode;
        // The unmodified symbol of keycode in the mapping at the time of the event.
        unsigned long keysym;
        // Modifier state the server reported with the event.
        unsigned int state;
    };

    X11TestWindow(const std::string& instanceName, const std::string& className);
    ~X11TestWindow();

    X11TestWindow(const X11TestWindow&) = delete;
    X11TestWindow& operator=(const X11TestWindow&) = delete;

    unsigned long id() const { return window_; }
    _XDisplay* display() const { return display_; }

    // Gives the window the input focus (no window manager needed) and waits until it has it.
    void focus();
    // Publishes the window as _NET_ACTIVE_WINDOW on the root, as a window manager would.
    void publishAsActive();

    // Every key event received so far (reads what the server has sent).
    const std::vector<Key>& keys();
    // The first press of keysym received so far, if any.
    std::optional<Key> pressOf(unsigned long keysym);
    // Forgets the keys received so far.
    void clearKeys();

  private:
    _XDisplay* display_;
    unsigned long window_;
    std::vector<Key> keys_;
};

}  // namespace kelvo::test
