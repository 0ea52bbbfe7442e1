#include "core/engines/WatchedSpan.h"

#include <algorithm>

#include "core/support/Unicode.h"

namespace kelvo {
namespace {

std::u32string codePoints(std::string_view text) {
    std::u32string result;
    unicode::forEachCodePoint(text, [&result](char32_t codePoint, std::size_t, std::size_t) {
        result.push_back(codePoint);
    });
    return result;
}

std::string utf8(const std::u32string& text) {
    std::string result;
    for (const char32_t codePoint : text) {
        result += unicode::encode(codePoint);
    }
    return result;
}

}  // namespace

WatchedSpan::WatchedSpan(std::string_view window, std::size_t windowOffset, std::size_t spanStart,
                         std::size_t spanEnd)
    : original_(codePoints(window)),
      current_(original_),
      windowOffset_(windowOffset),
      spanStart_(std::min(spanStart, original_.size())),
      spanEnd_(std::clamp(spanEnd, spanStart_, original_.size())) {}

void WatchedSpan::inserted(std::size_t offset, std::string_view text) {
    const std::u32string added = codePoints(text);
    if (offset < windowOffset_) {
        windowOffset_ += added.size();
        return;
    }
    const std::size_t local = offset - windowOffset_;
    if (local <= current_.size()) {
        current_.insert(local, added);
    }
}

void WatchedSpan::deleted(std::size_t offset, std::size_t length) {
    const std::size_t end = offset + length;
    if (end <= windowOffset_) {
        windowOffset_ -= length;
        return;
    }
    // Clipped to the window: the part of a deletion outside it is not ours to know.
    const std::size_t from = offset > windowOffset_ ? offset - windowOffset_ : 0;
    const std::size_t to = std::min(end - windowOffset_, current_.size());
    if (from < to) {
        current_.erase(from, to - from);
    }
    windowOffset_ = std::min(windowOffset_, offset);
}

std::string WatchedSpan::original() const {
    return utf8(original_);
}

std::string WatchedSpan::current() const {
    return utf8(current_);
}

}  // namespace kelvo
