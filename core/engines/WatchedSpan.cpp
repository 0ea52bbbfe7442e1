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
      spanEnd_(std::clamp(spanEnd, spanStart_, original_.size())),
      currentStart_(spanStart_),
      currentEnd_(spanEnd_) {}

void WatchedSpan::inserted(std::size_t offset, std::string_view text) {
    const std::u32string added = codePoints(text);
    if (offset < windowOffset_) {
        windowOffset_ += added.size();
        return;
    }
    const std::size_t local = offset - windowOffset_;
    if (local > current_.size()) {
        return;
    }
    current_.insert(local, added);
    if (local < currentStart_) {
        original_.insert(local, added);
        spanStart_ += added.size();
        spanEnd_ += added.size();
        currentStart_ += added.size();
        currentEnd_ += added.size();
    } else if (local > currentEnd_) {
        original_.insert(local - currentEnd_ + spanEnd_, added);
    } else {
        currentEnd_ += added.size();
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
    windowOffset_ = std::min(windowOffset_, offset);
    if (from >= to) {
        return;
    }
    const std::size_t count = to - from;
    current_.erase(from, count);
    if (to <= currentStart_) {
        original_.erase(from, count);
        spanStart_ -= count;
        spanEnd_ -= count;
        currentStart_ -= count;
        currentEnd_ -= count;
    } else if (from >= currentEnd_) {
        original_.erase(from - currentEnd_ + spanEnd_, count);
    } else {
        const std::size_t before = currentStart_ > from ? std::min(to, currentStart_) - from : 0;
        const std::size_t inside = std::min(to, currentEnd_) - std::max(from, currentStart_);
        currentStart_ -= before;
        currentEnd_ -= before + inside;
    }
}

std::string WatchedSpan::original() const {
    return utf8(original_);
}

std::string WatchedSpan::current() const {
    return utf8(current_);
}

}  // namespace kelvo
