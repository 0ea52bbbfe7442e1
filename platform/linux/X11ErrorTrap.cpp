#include "platform/linux/X11ErrorTrap.h"

#include <X11/Xlib.h>

#include <atomic>

namespace kelvo::platform {
namespace {

std::atomic<bool> errorCaught{false};

int recordError(Display*, XErrorEvent*) {
    errorCaught = true;
    return 0;
}

}  // namespace

X11ErrorTrap::X11ErrorTrap(_XDisplay* display) : display_(display) {
    // Errors of requests sent before the trap belong to whoever sent them.
    XSync(display_, False);
    previousCaught_ = errorCaught.exchange(false);
    previousHandler_ = reinterpret_cast<void (*)()>(XSetErrorHandler(recordError));
}

X11ErrorTrap::~X11ErrorTrap() {
    XSync(display_, False);
    XSetErrorHandler(reinterpret_cast<XErrorHandler>(previousHandler_));
    errorCaught = previousCaught_;
}

bool X11ErrorTrap::caughtError() {
    XSync(display_, False);
    return errorCaught;
}

}  // namespace kelvo::platform
