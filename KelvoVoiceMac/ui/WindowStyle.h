#pragma once

// WindowStyle holds the typography and text colours shared by the application's windows, so that
// every window draws Japanese text with Japanese glyph shapes and sizes its titles and captions the
// same way. Han characters shared by Chinese and Japanese have different shapes in each; which one
// the default fallback picks depends on fontconfig and the locale, so the family is pinned to
// "Noto Sans CJK JP" ahead of the desktop's own family (which still serves when it is missing).
// Text styles are sizes relative to the application's body font, in the proportions of the
// original platform's type ramp. Stateless; main thread only, like all widgets.

#include <QColor>
#include <QFont>
#include <QStringList>

class QWidget;

namespace kelvo::app {

class WindowStyle {
  public:
    enum class TextStyle { title, title2, title3, headline, body, caption };

    WindowStyle() = delete;

    // The pinned family first, then `baseFamily`.
    static QStringList japaneseFamilies(const QString& baseFamily);
    // `base` with the Japanese families pinned; size and weight unchanged.
    static QFont japaneseFont(QFont base);
    // Pins the families on a window; its children inherit them.
    static void useJapaneseFont(QWidget& window);

    // Sets the size (and the weight, for headline and `bold`) of the text style on a widget. Only
    // size and weight are set, so the family still comes from the window.
    static void setTextStyle(QWidget& widget, TextStyle style, bool bold = false);

    // Text colours of the original's secondary and tertiary levels, derived from the widget's
    // palette so that they follow light and dark themes.
    static QColor secondaryTextColor(const QWidget& widget);
    static QColor tertiaryTextColor(const QWidget& widget);
    static void setTextColor(QWidget& widget, const QColor& color);
};

}  // namespace kelvo::app
