#include "platform/linux/EvdevKeyMonitor.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

#include <linux/input.h>

#include "platform/linux/EvdevKeyDecoder.h"

namespace kelvo::platform {
namespace {

constexpr std::size_t bitsToBytes(std::size_t bits) {
    return (bits + 7) / 8;
}

bool testBit(const unsigned char* bits, unsigned int bit) {
    return (bits[bit / 8] >> (bit % 8)) & 1;
}

bool isEventNode(const std::string& name) {
    return name.rfind("event", 0) == 0;
}

// Whether fd is an evdev keyboard that has keyCode.
bool reportsKey(int fd, unsigned short keyCode) {
    unsigned char types[bitsToBytes(EV_MAX + 1)] = {};
    unsigned char keys[bitsToBytes(KEY_MAX + 1)] = {};
    return ioctl(fd, EVIOCGBIT(0, sizeof types), types) >= 0 && testBit(types, EV_KEY) &&
           ioctl(fd, EVIOCGBIT(EV_KEY, sizeof keys), keys) >= 0 && testBit(keys, keyCode);
}

bool keyIsDown(int fd, unsigned short keyCode) {
    unsigned char keys[bitsToBytes(KEY_MAX + 1)] = {};
    return ioctl(fd, EVIOCGKEY(sizeof keys), keys) >= 0 && testBit(keys, keyCode);
}

bool isVirtualDevice(int fd) {
    input_id id{};
    return ioctl(fd, EVIOCGID, &id) >= 0 && id.bustype == BUS_VIRTUAL;
}

std::vector<std::string> eventNodes(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            if (isEventNode(entry->d_name)) {
                names.emplace_back(entry->d_name);
            }
        }
        closedir(dir);
    }
    return names;
}

}  // namespace

struct EvdevKeyMonitor::Reader {
    struct Device {
        int fd = -1;
        bool isVirtual = false;
        EvdevKeyDecoder decoder;
    };

    std::string folder;
    unsigned short keyCode;
    Handler handler;
    int stopFd = -1;
    int inotifyFd = -1;
    std::thread thread;
    std::map<std::string, Device> devices;

    Reader(std::string inputFolder, unsigned short code)
        : folder(std::move(inputFolder)), keyCode(code) {}

    bool anyDown() const {
        for (const auto& [name, device] : devices) {
            if (device.decoder.isDown()) {
                return true;
            }
        }
        return false;
    }
    void deliver(bool isVirtual) {
        handler(TriggerKeyEvent{.isTriggerDown = anyDown(), .isSynthetic = isVirtual});
    }
    void open(const std::string& name);
    void close(const std::string& name);
    void readDevice(const std::string& name);
    void readInotify();
    void run();
};

void EvdevKeyMonitor::Reader::open(const std::string& name) {
    if (devices.count(name)) {
        return;
    }
    std::string path = folder + "/" + name;
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        // No permission yet (udev sets the group a moment later: IN_ATTRIB brings us back).
        return;
    }
    if (!reportsKey(fd, keyCode)) {
        ::close(fd);
        return;
    }
    auto& device = devices.emplace(name, Device{fd, isVirtualDevice(fd), EvdevKeyDecoder(keyCode)})
                       .first->second;
    device.decoder.resynchronise(keyIsDown(fd, keyCode), [&](bool) { deliver(device.isVirtual); });
}

void EvdevKeyMonitor::Reader::close(const std::string& name) {
    auto it = devices.find(name);
    if (it == devices.end()) {
        return;
    }
    bool wasDown = it->second.decoder.isDown();
    bool isVirtual = it->second.isVirtual;
    ::close(it->second.fd);
    devices.erase(it);
    // A keyboard unplugged with the trigger held releases it.
    if (wasDown) {
        deliver(isVirtual);
    }
}

void EvdevKeyMonitor::Reader::readDevice(const std::string& name) {
    auto& device = devices.at(name);
    auto onChange = [&](bool) { deliver(device.isVirtual); };
    auto status = device.decoder.readFrom(device.fd, onChange);
    if (status != EvdevKeyDecoder::ReadStatus::drained) {
        close(name);
        return;
    }
    if (device.decoder.resyncNeeded()) {
        device.decoder.resynchronise(keyIsDown(device.fd, keyCode), onChange);
    }
}

void EvdevKeyMonitor::Reader::readInotify() {
    alignas(inotify_event) char buffer[4096];
    ssize_t count = read(inotifyFd, buffer, sizeof buffer);
    for (ssize_t offset = 0; count > 0 && offset < count;) {
        auto* event = reinterpret_cast<inotify_event*>(buffer + offset);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        if (event->len == 0 || !isEventNode(event->name)) {
            continue;
        }
        if (event->mask & (IN_DELETE | IN_MOVED_FROM)) {
            close(event->name);
        } else {
            open(event->name);
        }
    }
}

void EvdevKeyMonitor::Reader::run() {
    while (true) {
        std::vector<pollfd> fds = {{stopFd, POLLIN, 0}};
        if (inotifyFd >= 0) {
            fds.push_back({inotifyFd, POLLIN, 0});
        }
        std::vector<std::string> names;
        for (const auto& [name, device] : devices) {
            fds.push_back({device.fd, POLLIN, 0});
            names.push_back(name);
        }
        if (poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (fds[0].revents != 0) {
            return;
        }
        std::size_t first = 1;
        if (inotifyFd >= 0) {
            if (fds[1].revents != 0) {
                readInotify();
            }
            first = 2;
        }
        for (std::size_t i = first; i < fds.size(); ++i) {
            if (fds[i].revents != 0 && devices.count(names[i - first])) {
                readDevice(names[i - first]);
            }
        }
    }
}

EvdevKeyMonitor::EvdevKeyMonitor(const std::string& triggerKeyName, std::string inputFolder) {
    auto code = keyCodeForName(triggerKeyName);
    if (!code) {
        throw std::invalid_argument("unknown trigger key \"" + triggerKeyName + "\"");
    }
    reader_ = std::make_unique<Reader>(std::move(inputFolder), *code);
}

EvdevKeyMonitor::~EvdevKeyMonitor() {
    if (reader_->thread.joinable()) {
        std::uint64_t one = 1;
        if (write(reader_->stopFd, &one, sizeof one) < 0) {
            // Cannot fail for a single increment of a fresh eventfd.
        }
        reader_->thread.join();
    }
    for (auto& [name, device] : reader_->devices) {
        ::close(device.fd);
    }
    for (int fd : {reader_->stopFd, reader_->inotifyFd}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool EvdevKeyMonitor::hasListenAccess() const {
    for (const auto& name : eventNodes(reader_->folder)) {
        std::string path = reader_->folder + "/" + name;
        int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        bool usable = reportsKey(fd, reader_->keyCode);
        ::close(fd);
        if (usable) {
            return true;
        }
    }
    return false;
}

bool EvdevKeyMonitor::requestListenAccess() {
    return hasListenAccess();
}

void EvdevKeyMonitor::start(Handler handler) {
    if (reader_->thread.joinable() || reader_->stopFd >= 0) {
        return;
    }
    reader_->stopFd = eventfd(0, EFD_CLOEXEC);
    if (reader_->stopFd < 0) {
        return;
    }
    reader_->handler = std::move(handler);
    // Watch before listing, so a keyboard appearing in between is not missed.
    reader_->inotifyFd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (reader_->inotifyFd >= 0 &&
        inotify_add_watch(reader_->inotifyFd, reader_->folder.c_str(),
                          IN_CREATE | IN_ATTRIB | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM) < 0) {
        ::close(reader_->inotifyFd);
        reader_->inotifyFd = -1;
    }
    for (const auto& name : eventNodes(reader_->folder)) {
        reader_->open(name);
    }
    reader_->thread = std::thread([reader = reader_.get()] { reader->run(); });
}

std::optional<unsigned short> EvdevKeyMonitor::keyCodeForName(const std::string& keysymName) {
    static const std::map<std::string, unsigned short> codes = {
        {"Control_L", KEY_LEFTCTRL},
        {"Control_R", KEY_RIGHTCTRL},
        {"Shift_L", KEY_LEFTSHIFT},
        {"Shift_R", KEY_RIGHTSHIFT},
        {"Alt_L", KEY_LEFTALT},
        {"Alt_R", KEY_RIGHTALT},
        {"ISO_Level3_Shift", KEY_RIGHTALT},
        {"Meta_L", KEY_LEFTALT},
        {"Meta_R", KEY_RIGHTALT},
        {"Super_L", KEY_LEFTMETA},
        {"Super_R", KEY_RIGHTMETA},
        {"Menu", KEY_COMPOSE},
        {"Caps_Lock", KEY_CAPSLOCK},
        {"Num_Lock", KEY_NUMLOCK},
        {"Scroll_Lock", KEY_SCROLLLOCK},
        {"Pause", KEY_PAUSE},
        {"Print", KEY_SYSRQ},
        {"Insert", KEY_INSERT},
        {"Henkan_Mode", KEY_HENKAN},
        {"Muhenkan", KEY_MUHENKAN},
        {"Hiragana_Katakana", KEY_KATAKANAHIRAGANA},
        {"F1", KEY_F1},
        {"F2", KEY_F2},
        {"F3", KEY_F3},
        {"F4", KEY_F4},
        {"F5", KEY_F5},
        {"F6", KEY_F6},
        {"F7", KEY_F7},
        {"F8", KEY_F8},
        {"F9", KEY_F9},
        {"F10", KEY_F10},
        {"F11", KEY_F11},
        {"F12", KEY_F12},
        {"F13", KEY_F13},
        {"F14", KEY_F14},
        {"F15", KEY_F15},
        {"F16", KEY_F16},
        {"F17", KEY_F17},
        {"F18", KEY_F18},
        {"F19", KEY_F19},
        {"F20", KEY_F20},
        {"F21", KEY_F21},
        {"F22", KEY_F22},
        {"F23", KEY_F23},
        {"F24", KEY_F24},
    };
    auto it = codes.find(keysymName);
    if (it == codes.end()) {
        return std::nullopt;
    }
    return it->second;
}

}  // namespace kelvo::platform
