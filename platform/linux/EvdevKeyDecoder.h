#pragma once

// EvdevKeyDecoder follows the state of one key on one evdev device from the device's stream of
// `struct input_event` records. It reads from a file descriptor (a /dev/input/event* node, or a
// pipe in tests), keeps partial records between reads, and reports each press and release of the
// key; repeats (value 2) are no change of state. After the kernel dropped events (SYN_DROPPED) it
// ignores the stream up to the next SYN_REPORT and asks its owner to read the real state again
// (resyncNeeded), as the evdev protocol prescribes. One thread at a time.

#include <cstddef>
#include <functional>

#include <linux/input.h>

namespace kelvo::platform {

class EvdevKeyDecoder {
  public:
    enum class ReadStatus {
        // Everything available was read; the descriptor is non-blocking and has nothing more.
        drained,
        // The writer closed the stream.
        endOfStream,
        // read() failed (the device was unplugged: ENODEV).
        failed,
    };

    // keyCode is an evdev key code (KEY_RIGHTCTRL).
    explicit EvdevKeyDecoder(unsigned short keyCode);

    // Reads records from fd until it would block, ends or fails, and calls onChange(isDown) for
    // every change of the key's state. A blocking descriptor is read until its writer closes it.
    ReadStatus readFrom(int fd, const std::function<void(bool isDown)>& onChange);

    bool isDown() const noexcept { return isDown_; }

    // Whether events were lost and the owner must read the key's state from the device.
    bool resyncNeeded() const noexcept { return resyncNeeded_; }

    // Sets the state read from the device (EVIOCGKEY); reports a change through onChange.
    void resynchronise(bool isDown, const std::function<void(bool isDown)>& onChange);

  private:
    void decode(const input_event& event, const std::function<void(bool isDown)>& onChange);

    unsigned short keyCode_;
    bool isDown_ = false;
    bool dropping_ = false;
    bool resyncNeeded_ = false;
    unsigned char partial_[sizeof(input_event)] = {};
    std::size_t partialSize_ = 0;
};

}  // namespace kelvo::platform
