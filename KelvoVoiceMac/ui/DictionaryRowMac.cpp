#include "KelvoVoiceMac/ui/DictionaryRowMac.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QVBoxLayout>

#include "KelvoVoiceMac/ui/DictionaryEntryFormMac.h"
#include "KelvoVoiceMac/ui/WindowStyle.h"

namespace kelvo::app {
namespace {

constexpr int kDotPixels = 10;

QPixmap dotImage(bool enabled) {
    // The original platform's green, and its grey at 30 % opacity.
    QColor color = enabled ? QColor(0x34, 0xC7, 0x59) : QColor(0x8E, 0x8E, 0x93);
    if (!enabled) {
        color.setAlphaF(0.3);
    }
    const double ratio = qGuiApp != nullptr ? qGuiApp->devicePixelRatio() : 1.0;
    QPixmap image(QSize(kDotPixels, kDotPixels) * ratio);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawEllipse(QRectF(0, 0, kDotPixels, kDotPixels));
    return image;
}

}  // namespace

DictionaryRowMac::DictionaryRowMac(const DictionaryEntry& entry, QWidget* parent)
    : QWidget(parent),
      dot_(new QLabel(this)),
      canonicalLabel_(new QLabel(this)),
      readingsLabel_(new QLabel(this)) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(6, 2, 6, 2);
    row->setSpacing(8);
    dot_->setFixedSize(kDotPixels, kDotPixels);
    row->addWidget(dot_, 0, Qt::AlignVCenter);

    auto* stack = new QVBoxLayout;
    stack->setContentsMargins(0, 0, 0, 0);
    stack->setSpacing(0);
    WindowStyle::setTextStyle(*canonicalLabel_, WindowStyle::TextStyle::headline);
    WindowStyle::setTextStyle(*readingsLabel_, WindowStyle::TextStyle::caption);
    canonicalLabel_->setTextFormat(Qt::PlainText);
    readingsLabel_->setTextFormat(Qt::PlainText);
    stack->addWidget(canonicalLabel_);
    stack->addWidget(readingsLabel_);
    row->addLayout(stack, 1);

    setEntry(entry);
    applyColors();
}

void DictionaryRowMac::setSelected(bool selected) {
    if (selected_ != selected) {
        selected_ = selected;
        applyColors();
    }
}

void DictionaryRowMac::applyColors() {
    if (selected_) {
        const QColor highlighted = palette().color(QPalette::HighlightedText);
        WindowStyle::setTextColor(*canonicalLabel_, highlighted);
        WindowStyle::setTextColor(*readingsLabel_, highlighted);
    } else {
        WindowStyle::setTextColor(*canonicalLabel_, palette().color(QPalette::WindowText));
        WindowStyle::setTextColor(*readingsLabel_, WindowStyle::secondaryTextColor(*this));
    }
}

void DictionaryRowMac::setEntry(const DictionaryEntry& entry) {
    dot_->setPixmap(dotImage(entry.enabled));
    canonicalLabel_->setText(entry.canonicalText.empty()
                                 ? QString::fromUtf8(emptyCanonicalText)
                                 : QString::fromStdString(entry.canonicalText));
    readingsLabel_->setText(
        DictionaryEntryFormMac::joined(entry.readings, QString::fromUtf8(readingsSeparator)));
    readingsLabel_->setVisible(!entry.readings.empty());
}

}  // namespace kelvo::app
