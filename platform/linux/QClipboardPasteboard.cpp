#include "platform/linux/QClipboardPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>

namespace kelvo::platform {

// Tells its pasteboard each time a client converts the data to text. QMimeData::data() is the
// only way Qt's clipboard hands our data to another client, and it always goes through
// retrieveData().
class QClipboardPasteboard::FetchTrackingMimeData final : public QMimeData {
  public:
    FetchTrackingMimeData(QClipboardPasteboard* owner, std::weak_ptr<int> ownerAlive)
        : owner_(owner), ownerAlive_(std::move(ownerAlive)) {}

  protected:
    QVariant retrieveData(const QString& mimeType, QMetaType type) const override {
        if (ownerAlive_.lock()) {
            owner_->noteFetched(this);
        }
        return QMimeData::retrieveData(mimeType, type);
    }

  private:
    QClipboardPasteboard* owner_;
    std::weak_ptr<int> ownerAlive_;
};

QClipboardPasteboard::QClipboardPasteboard() = default;

QClipboardPasteboard::~QClipboardPasteboard() = default;

std::optional<std::string> QClipboardPasteboard::readString() const {
    const QMimeData* data = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    if (!data || !data->hasText()) {
        return std::nullopt;
    }
    readingOwnData_ = true;
    QString text = data->text();
    readingOwnData_ = false;
    return text.toStdString();
}

bool QClipboardPasteboard::writeString(const std::string& text) {
    QClipboard* clipboard = QGuiApplication::clipboard();
    auto* data = new FetchTrackingMimeData(this, lifetime_);
    data->setText(QString::fromStdString(text));
    lastWrite_ = data;
    lastWriteFetched_ = false;
    // Ownership passes to the clipboard, which deletes the data when it is replaced.
    clipboard->setMimeData(data, QClipboard::Clipboard);
    return holdsLastWrite();
}

void QClipboardPasteboard::clear() {
    lastWrite_.clear();
    lastWriteFetched_ = false;
    QGuiApplication::clipboard()->clear(QClipboard::Clipboard);
}

bool QClipboardPasteboard::lastWriteFetched() const {
    return lastWriteFetched_;
}

bool QClipboardPasteboard::holdsLastWrite() const {
    QClipboard* clipboard = QGuiApplication::clipboard();
    return lastWrite_ && clipboard->ownsClipboard() &&
           clipboard->mimeData(QClipboard::Clipboard) == lastWrite_.data();
}

void QClipboardPasteboard::setFetchedHandler(std::function<void()> handler) {
    fetchedHandler_ = std::move(handler);
}

void QClipboardPasteboard::noteFetched(const FetchTrackingMimeData* data) {
    if (readingOwnData_ || data != lastWrite_.data()) {
        return;
    }
    lastWriteFetched_ = true;
    if (fetchedHandler_) {
        // A copy: the handler may replace itself.
        auto handler = fetchedHandler_;
        handler();
    }
}

}  // namespace kelvo::platform
