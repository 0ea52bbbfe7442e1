#include "KelvoVoiceMac/ui/WindowStyle.h"

#include <QApplication>
#include <QPalette>
#include <QWidget>

namespace kelvo::app {
namespace {

constexpr const char* kJapaneseFamily = "Noto Sans CJK JP";
// The original's body text is 13 points; every style is scaled from it.
constexpr double kBodyPoints = 13.0;

double stylePoints(WindowStyle::TextStyle style) {
    switch (style) {
        case WindowStyle::TextStyle::title:
            return 22.0;
        case WindowStyle::TextStyle::title2:
            return 17.0;
        case WindowStyle::TextStyle::title3:
            return 15.0;
        case WindowStyle::TextStyle::headline:
        case WindowStyle::TextStyle::body:
            return 13.0;
        case WindowStyle::TextStyle::caption:
            return 10.0;
    }
    return kBodyPoints;
}

QColor withAlpha(QColor color, double alpha) {
    color.setAlphaF(alpha);
    return color;
}

}  // namespace

QStringList WindowStyle::japaneseFamilies(const QString& baseFamily) {
    QStringList families{QString::fromLatin1(kJapaneseFamily)};
    if (!baseFamily.isEmpty() && baseFamily != families.front()) {
        families.append(baseFamily);
    }
    return families;
}

QFont WindowStyle::japaneseFont(QFont base) {
    base.setFamilies(japaneseFamilies(base.family()));
    return base;
}

void WindowStyle::useJapaneseFont(QWidget& window) {
    QFont font;
    font.setFamilies(japaneseFamilies(QApplication::font().family()));
    window.setFont(font);
}

void WindowStyle::setTextStyle(QWidget& widget, TextStyle style, bool bold) {
    // A fresh QFont resolves nothing but what is set here, so the family stays inherited.
    QFont font;
    const double bodyPoints =
        QApplication::font().pointSizeF() > 0 ? QApplication::font().pointSizeF() : kBodyPoints;
    font.setPointSizeF(bodyPoints * stylePoints(style) / kBodyPoints);
    if (bold || style == TextStyle::headline) {
        font.setWeight(QFont::DemiBold);
    }
    widget.setFont(font);
}

QColor WindowStyle::secondaryTextColor(const QWidget& widget) {
    return withAlpha(widget.palette().color(QPalette::WindowText), 0.6);
}

QColor WindowStyle::tertiaryTextColor(const QWidget& widget) {
    return withAlpha(widget.palette().color(QPalette::WindowText), 0.35);
}

void WindowStyle::setTextColor(QWidget& widget, const QColor& color) {
    QPalette palette = widget.palette();
    palette.setColor(QPalette::WindowText, color);
    palette.setColor(QPalette::Text, color);
    palette.setColor(QPalette::ButtonText, color);
    widget.setPalette(palette);
}

}  // namespace kelvo::app
