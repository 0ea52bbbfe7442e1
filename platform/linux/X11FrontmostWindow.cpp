#include "platform/linux/X11FrontmostWindow.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include "platform/linux/X11ErrorTrap.h"

namespace kelvo::platform {
namespace {

// A window read from a 32-bit WINDOW property of another window; 0 when absent.
Window windowProperty(Display* display, Window owner, const char* name) {
    Atom property = XInternAtom(display, name, False);
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    Window result = 0;
    if (XGetWindowProperty(display, owner, property, 0, 1, False, XA_WINDOW, &type, &format, &count,
                           &remaining, &data) == Success &&
        type == XA_WINDOW && format == 32 && count == 1) {
        // Xlib hands 32-bit items back as longs.
        result = *reinterpret_cast<unsigned long*>(data);
    }
    if (data) {
        XFree(data);
    }
    return result;
}

bool readClass(Display* display, Window window, X11FrontmostWindow& out) {
    XClassHint hint{};
    if (!XGetClassHint(display, window, &hint)) {
        return false;
    }
    out.instanceName = hint.res_name ? hint.res_name : "";
    out.className = hint.res_class ? hint.res_class : "";
    if (hint.res_name) {
        XFree(hint.res_name);
    }
    if (hint.res_class) {
        XFree(hint.res_class);
    }
    return true;
}

Window parentOf(Display* display, Window window) {
    Window root = 0;
    Window parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(display, window, &root, &parent, &children, &count)) {
        return 0;
    }
    if (children) {
        XFree(children);
    }
    return parent == root ? 0 : parent;
}

}  // namespace

std::optional<X11FrontmostWindow> X11FrontmostWindow::read(_XDisplay* display) {
    X11ErrorTrap trap(display);
    Window root = DefaultRootWindow(display);
    Window window = windowProperty(display, root, "_NET_ACTIVE_WINDOW");
    if (window == 0) {
        int revert = 0;
        XGetInputFocus(display, &window, &revert);
        if (window == PointerRoot) {
            window = 0;
        }
    }
    // The walk stops at the root; a bounded depth guards against a tree changing under us.
    for (int depth = 0; window != 0 && window != root && depth < 64; ++depth) {
        X11FrontmostWindow front;
        if (readClass(display, window, front)) {
            front.window = window;
            if (trap.caughtError()) {
                return std::nullopt;
            }
            return front;
        }
        window = parentOf(display, window);
    }
    return std::nullopt;
}

}  // namespace kelvo::platform
