#include "platform/linux/XInputKeyMonitor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

#include "platform/linux/X11Connection.h"
#include "platform/linux/X11Keymap.h"

namespace kelvo::platform {

// Everything that lives on the reading thread once start() has run.
struct XInputKeyMonitor::Reader {
    X11Connection connection;
    KeySym trigger = NoSymbol;
    int xiOpcode = 0;
    int xkbEventBase = 0;
    bool usable = false;
    int stopFd = -1;
    std::thread thread;
    Handler handler;

    std::bitset<256> triggerKeycodes;
    std::set<int> xtestDevices;
    // (source device, keycode) pairs of trigger keys now down: two keyboards, or two keys
    // carrying the trigger symbol, may overlap.
    std::set<std::pair<int, int>> held;

    explicit Reader(const std::string& displayName) : connection(displayName) {}

    void refreshKeymap();
    void refreshDevices();
    void handle(XEvent& event);
    void handleRaw(const XIRawEvent& raw, bool press);
    void run();
};

void XInputKeyMonitor::Reader::refreshKeymap() {
    X11Keymap keymap(connection.display());
    triggerKeycodes.reset();
    for (auto keycode : keymap.keycodesWithBaseSymbol(trigger)) {
        triggerKeycodes.set(keycode);
    }
}

void XInputKeyMonitor::Reader::refreshDevices() {
    xtestDevices.clear();
    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(connection.display(), XIAllDevices, &count);
    for (int i = 0; i < count; ++i) {
        // The server names its virtual devices "Virtual core XTEST keyboard/pointer".
        if (devices[i].name && std::strstr(devices[i].name, "XTEST")) {
            xtestDevices.insert(devices[i].deviceid);
        }
    }
    if (devices) {
        XIFreeDeviceInfo(devices);
    }
}

void XInputKeyMonitor::Reader::handleRaw(const XIRawEvent& raw, bool press) {
    if (raw.detail < 0 || raw.detail > 255 || !triggerKeycodes.test(raw.detail)) {
        return;
    }
    auto key = std::make_pair(raw.sourceid, raw.detail);
    if (press) {
        held.insert(key);
    } else {
        held.erase(key);
    }
    handler(TriggerKeyEvent{.isTriggerDown = !held.empty(),
                            .isSynthetic = xtestDevices.count(raw.sourceid) > 0});
}

void XInputKeyMonitor::Reader::handle(XEvent& event) {
    Display* display = connection.display();
    if (event.type == xkbEventBase) {
        auto& xkb = reinterpret_cast<XkbAnyEvent&>(event);
        if (xkb.xkb_type == XkbNewKeyboardNotify || xkb.xkb_type == XkbMapNotify) {
            refreshKeymap();
        }
        return;
    }
    if (event.type == MappingNotify) {
        refreshKeymap();
        return;
    }
    XGenericEventCookie* cookie = &event.xcookie;
    if (cookie->type != GenericEvent || cookie->extension != xiOpcode ||
        !XGetEventData(display, cookie)) {
        return;
    }
    switch (cookie->evtype) {
        case XI_RawKeyPress:
        case XI_RawKeyRelease:
            handleRaw(*static_cast<XIRawEvent*>(cookie->data), cookie->evtype == XI_RawKeyPress);
            break;
        case XI_HierarchyChanged:
            refreshDevices();
            break;
        default:
            break;
    }
    XFreeEventData(display, cookie);
}

void XInputKeyMonitor::Reader::run() {
    Display* display = connection.display();
    pollfd fds[2] = {{ConnectionNumber(display), POLLIN, 0}, {stopFd, POLLIN, 0}};
    while (true) {
        // XPending also flushes and reads what already arrived on the socket.
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            handle(event);
        }
        if (poll(fds, 2, -1) < 0 && errno != EINTR) {
            return;
        }
        if (fds[1].revents != 0) {
            return;
        }
        if (fds[0].revents & (POLLERR | POLLHUP)) {
            // The server went away; Xlib would end the process on the next read.
            return;
        }
    }
}

XInputKeyMonitor::XInputKeyMonitor(const std::string& triggerKeyName,
                                   const std::string& displayName)
    : reader_(std::make_unique<Reader>(displayName)) {
    reader_->trigger = XStringToKeysym(triggerKeyName.c_str());
    if (reader_->trigger == NoSymbol) {
        throw std::invalid_argument("unknown trigger key \"" + triggerKeyName + "\"");
    }
    Display* display = reader_->connection.display();
    if (!display) {
        return;
    }
    int event = 0;
    int error = 0;
    if (!XQueryExtension(display, "XInputExtension", &reader_->xiOpcode, &event, &error)) {
        return;
    }
    int major = 2;
    int minor = 2;
    if (XIQueryVersion(display, &major, &minor) != Success || major < 2 ||
        (major == 2 && minor < 2)) {
        return;
    }
    int xkbOpcode = 0;
    int xkbError = 0;
    int xkbMajor = XkbMajorVersion;
    int xkbMinor = XkbMinorVersion;
    if (!XkbQueryExtension(display, &xkbOpcode, &reader_->xkbEventBase, &xkbError, &xkbMajor,
                           &xkbMinor)) {
        return;
    }
    reader_->usable = true;
}

XInputKeyMonitor::~XInputKeyMonitor() {
    if (reader_->thread.joinable()) {
        std::uint64_t one = 1;
        if (write(reader_->stopFd, &one, sizeof one) < 0) {
            // eventfd writes only fail on counter overflow, impossible with one write.
        }
        reader_->thread.join();
    }
    if (reader_->stopFd >= 0) {
        close(reader_->stopFd);
    }
}

bool XInputKeyMonitor::hasListenAccess() const {
    return reader_->usable;
}

bool XInputKeyMonitor::requestListenAccess() {
    return hasListenAccess();
}

void XInputKeyMonitor::start(Handler handler) {
    if (!reader_->usable || reader_->thread.joinable()) {
        return;
    }
    reader_->stopFd = eventfd(0, EFD_CLOEXEC);
    if (reader_->stopFd < 0) {
        return;
    }
    Display* display = reader_->connection.display();
    Window root = DefaultRootWindow(display);

    unsigned char keyBits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(keyBits, XI_RawKeyPress);
    XISetMask(keyBits, XI_RawKeyRelease);
    unsigned char hierarchyBits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(hierarchyBits, XI_HierarchyChanged);
    XIEventMask masks[2] = {{XIAllMasterDevices, sizeof keyBits, keyBits},
                            {XIAllDevices, sizeof hierarchyBits, hierarchyBits}};
    XISelectEvents(display, root, masks, 2);
    unsigned int keymapEvents = XkbNewKeyboardNotifyMask | XkbMapNotifyMask;
    XkbSelectEvents(display, XkbUseCoreKbd, keymapEvents, keymapEvents);
    XSync(display, False);
    reader_->refreshDevices();
    reader_->refreshKeymap();

    reader_->handler = std::move(handler);
    reader_->thread = std::thread([reader = reader_.get()] { reader->run(); });
}

}  // namespace kelvo::platform
