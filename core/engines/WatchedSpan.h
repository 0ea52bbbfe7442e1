#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvo {

/// The dictated text as it landed in a text field, with a little of the field's text on either
/// side (the neighbourhood), kept up to date through the field's own change reports while the
/// user edits it. Only this window of the field is ever held: an edit before it moves the window,
/// an edit after it is not looked at, and an edit across its edge keeps only the part inside.
/// Edits of the user's own text beside the dictated text (not touching it) are applied to both
/// forms, so that original() and current() differ only by what was done to the dictated text or
/// across its ends; an insertion right at either end counts as an edit of the dictated text.
/// Offsets are the field's, in characters (code points), as accessibility change reports give
/// them. Plain value type; no threads.
class WatchedSpan {
  public:
    /// `window` is the field's text from character `windowOffset` on; the dictated text is its
    /// characters [spanStart, spanEnd).
    WatchedSpan(std::string_view window, std::size_t windowOffset, std::size_t spanStart,
                std::size_t spanEnd);

    /// `text` was inserted at field offset `offset`.
    void inserted(std::size_t offset, std::string_view text);
    /// `length` characters were deleted from field offset `offset`.
    void deleted(std::size_t offset, std::size_t length);

    /// The window without and with the edits of the dictated text (UTF-8).
    std::string original() const;
    std::string current() const;
    /// Where the dictated text lies in original(), in characters.
    std::size_t spanStart() const noexcept { return spanStart_; }
    std::size_t spanEnd() const noexcept { return spanEnd_; }
    /// Whether anything inside the window changed.
    bool changed() const noexcept { return original_ != current_; }

  private:
    std::u32string original_;
    std::u32string current_;
    std::size_t windowOffset_;
    std::size_t spanStart_;
    std::size_t spanEnd_;
    // Where the dictated text, as edited, lies in current_.
    std::size_t currentStart_;
    std::size_t currentEnd_;
};

}  // namespace kelvo
