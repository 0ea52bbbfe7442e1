#pragma once

// SymbolImage draws the few symbols the windows show ("plus", "trash", "text.book.closed",
// "mic.circle.fill", "stop.circle.fill") in a given colour, named as the original names its system
// symbols. They are painted rather than taken from the icon theme because a minimal desktop (or a
// headless session) has no theme, and a toolbar button without its symbol is a blank square.
// Stateless; main thread only (QPixmap).

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

namespace kelvo::app {

class SymbolImage {
  public:
    SymbolImage() = delete;

    // A square image of `sizePixels` logical pixels, drawn at the screen's device pixel ratio.
    // An unknown name gives a null pixmap.
    static QPixmap pixmap(const QString& name, const QColor& color, int sizePixels);
    static QIcon icon(const QString& name, const QColor& color, int sizePixels);
};

}  // namespace kelvo::app
