#pragma once

// Pasteboard is the seam for the system clipboard as the insertion fallback uses it: the plain
// string only (other formats are neither read nor preserved). Because on X11 the clipboard data
// stays with its owner and is only copied when another client asks for it, the seam also reports
// the two facts a safe restore needs: that another application fetched what we wrote (the paste
// really happened), and whether what we wrote is still the clipboard's content (nobody else copied
// something meanwhile). Called from the main thread; the fetched handler runs on the main thread.
// Owned by the application's wiring.

#include <functional>
#include <optional>
#include <string>

namespace kelvo::platform {

class Pasteboard {
  public:
    virtual ~Pasteboard() = default;

    // The current plain-string contents, or nothing when the clipboard holds no text.
    virtual std::optional<std::string> readString() const = 0;

    // Clears the clipboard and takes it over with text as its plain string. Returns false when
    // the clipboard could not be written; then the previous contents may already be gone.
    virtual bool writeString(const std::string& text) = 0;

    // Clears the clipboard (we own it, empty).
    virtual void clear() = 0;

    // Whether another application has fetched the text of the last writeString() since it was
    // written.
    virtual bool lastWriteFetched() const = 0;

    // Whether the clipboard still holds the text of the last writeString(), i.e. no other
    // application (or clear()) has replaced it since.
    virtual bool holdsLastWrite() const = 0;

    // Called on the main thread each time another application fetches the text of the last
    // write. An empty function removes the handler.
    virtual void setFetchedHandler(std::function<void()> handler) = 0;
};

}  // namespace kelvo::platform
