#include "platform/linux/EvdevKeyDecoder.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kelvo::platform {

EvdevKeyDecoder::EvdevKeyDecoder(unsigned short keyCode) : keyCode_(keyCode) {}

EvdevKeyDecoder::ReadStatus EvdevKeyDecoder::readFrom(
    int fd, const std::function<void(bool isDown)>& onChange) {
    // Room for a batch; the kernel hands out whole records, a pipe may split them.
    unsigned char buffer[64 * sizeof(input_event)];
    while (true) {
        std::memcpy(buffer, partial_, partialSize_);
        ssize_t count = read(fd, buffer + partialSize_, sizeof buffer - partialSize_);
        if (count == 0) {
            return ReadStatus::endOfStream;
        }
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno == EAGAIN ? ReadStatus::drained : ReadStatus::failed;
        }
        std::size_t available = partialSize_ + static_cast<std::size_t>(count);
        std::size_t whole = available - available % sizeof(input_event);
        for (std::size_t offset = 0; offset < whole; offset += sizeof(input_event)) {
            input_event event;
            std::memcpy(&event, buffer + offset, sizeof event);
            decode(event, onChange);
        }
        partialSize_ = available - whole;
        std::memcpy(partial_, buffer + whole, partialSize_);
    }
}

void EvdevKeyDecoder::decode(const input_event& event,
                             const std::function<void(bool isDown)>& onChange) {
    if (event.type == EV_SYN) {
        if (event.code == SYN_DROPPED) {
            dropping_ = true;
        } else if (event.code == SYN_REPORT && dropping_) {
            dropping_ = false;
            resyncNeeded_ = true;
        }
        return;
    }
    if (dropping_ || event.type != EV_KEY || event.code != keyCode_) {
        return;
    }
    // 0 release, 1 press, 2 autorepeat of a key already down.
    if (event.value == 2) {
        return;
    }
    bool down = event.value == 1;
    if (down != isDown_) {
        isDown_ = down;
        onChange(isDown_);
    }
}

void EvdevKeyDecoder::resynchronise(bool isDown, const std::function<void(bool isDown)>& onChange) {
    resyncNeeded_ = false;
    if (isDown != isDown_) {
        isDown_ = isDown;
        onChange(isDown_);
    }
}

}  // namespace kelvo::platform
