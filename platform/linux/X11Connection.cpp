#include "platform/linux/X11Connection.h"

#include <X11/Xlib.h>

namespace kelvo::platform {

X11Connection::X11Connection(const std::string& displayName)
    : display_(XOpenDisplay(displayName.empty() ? nullptr : displayName.c_str())) {}

X11Connection::~X11Connection() {
    if (display_) {
        XCloseDisplay(display_);
    }
}

}  // namespace kelvo::platform
