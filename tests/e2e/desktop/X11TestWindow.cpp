#include "X11TestWindow.h"

#include <QCoreApplication>
#include <QProcess>
#include <stdexcept>
#include <thread>

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace kelvo::test {

std::string runProgram(const QStringList& command, int* exitCode) {
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(command.first(), command.mid(1));
    bool finished = waitUntil([&] { return process.state() == QProcess::NotRunning; });
    if (!finished) {
        process.kill();
        process.waitForFinished();
    }
    if (exitCode) {
        *exitCode =
            finished && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }
    return process.readAllStandardOutput().toStdString();
}

X11TestWindow::X11TestWindow(const std::string& instanceName, const std::string& className)
    : display_(XOpenDisplay(nullptr)) {
    if (!display_) {
        throw std::runtime_error("no X display");
    }
    window_ = XCreateSimpleWindow(display_, DefaultRootWindow(display_), 0, 0, 200, 100, 0, 0, 0);
    XClassHint hint{const_cast<char*>(instanceName.c_str()), const_cast<char*>(className.c_str())};
    XSetClassHint(display_, window_, &hint);
    XSelectInput(display_, window_, KeyPressMask | KeyReleaseMask | FocusChangeMask);
    XMapWindow(display_, window_);
    XSync(display_, False);
}

X11TestWindow::~X11TestWindow() {
    XDestroyWindow(display_, window_);
    XCloseDisplay(display_);
}

void X11TestWindow::focus() {
    // The window must be viewable before it can take the focus.
    waitUntil([&] {
        XWindowAttributes attributes{};
        XGetWindowAttributes(display_, window_, &attributes);
        return attributes.map_state == IsViewable;
    });
    XSetInputFocus(display_, window_, RevertToParent, CurrentTime);
    XSync(display_, False);
    waitUntil([&] {
        Window focused = 0;
        int revert = 0;
        XGetInputFocus(display_, &focused, &revert);
        return focused == window_;
    });
}

void X11TestWindow::publishAsActive() {
    Window window = window_;
    XChangeProperty(display_, DefaultRootWindow(display_),
                    XInternAtom(display_, "_NET_ACTIVE_WINDOW", False), XA_WINDOW, 32,
                    PropModeReplace, reinterpret_cast<unsigned char*>(&window), 1);
    XSync(display_, False);
}

const std::vector<X11TestWindow::Key>& X11TestWindow::keys() {
    while (XPending(display_) > 0) {
        XEvent event;
        XNextEvent(display_, &event);
        if (event.type == KeyPress || event.type == KeyRelease) {
            auto keycode = static_cast<KeyCode>(event.xkey.keycode);
            keys_.push_back({event.type == KeyPress, event.xkey.keycode,
                             XkbKeycodeToKeysym(display_, keycode, 0, 0), event.xkey.state});
        } else if (event.type == MappingNotify) {
            XRefreshKeyboardMapping(&event.xmapping);
        }
    }
    return keys_;
}

std::optional<X11TestWindow::Key> X11TestWindow::pressOf(unsigned long keysym) {
    for (const auto& key : keys()) {
        if (key.isPress && key.keysym == keysym) {
            return key;
        }
    }
    return std::nullopt;
}

void X11TestWindow::clearKeys() {
    keys();
    keys_.clear();
}

}  // namespace kelvo::test
