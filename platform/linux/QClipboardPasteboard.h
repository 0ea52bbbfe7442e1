#pragma once

// QClipboardPasteboard is the Pasteboard on the application's QClipboard (the X11 CLIPBOARD
// selection, or the Wayland clipboard). On X11 the data stays in the owner's process and is copied
// only when another client asks for it: each write publishes a FetchTrackingMimeData whose
// retrieveData() runs exactly when another client converts the selection, which is how we know
// the paste really fetched the text. Whether our write is still the clipboard's content follows
// from ownership: when another client takes the selection Qt drops (and deletes) our data.
//
// Needs a QGuiApplication; main thread only, like QClipboard. The fetched handler runs on the main
// thread. Our own reads of the clipboard do not count as fetches.

#include <QMimeData>
#include <QPointer>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Pasteboard.h"

namespace kelvo::platform {

class QClipboardPasteboard final : public Pasteboard {
  public:
    QClipboardPasteboard();
    ~QClipboardPasteboard() override;

    QClipboardPasteboard(const QClipboardPasteboard&) = delete;
    QClipboardPasteboard& operator=(const QClipboardPasteboard&) = delete;

    std::optional<std::string> readString() const override;
    bool writeString(const std::string& text) override;
    void clear() override;
    bool lastWriteFetched() const override;
    bool holdsLastWrite() const override;
    void setFetchedHandler(std::function<void()> handler) override;

  private:
    class FetchTrackingMimeData;

    void noteFetched(const FetchTrackingMimeData* data);

    // Owned by QClipboard once published; nulled when Qt deletes it (another owner took over).
    QPointer<FetchTrackingMimeData> lastWrite_;
    bool lastWriteFetched_ = false;
    // Set while we read our own data, which calls retrieveData() too.
    mutable bool readingOwnData_ = false;
    std::function<void()> fetchedHandler_;
    // Expires with the pasteboard, for data Qt still holds after we are gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace kelvo::platform
