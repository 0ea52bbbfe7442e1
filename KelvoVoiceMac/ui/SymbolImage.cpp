#include "KelvoVoiceMac/ui/SymbolImage.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>

namespace kelvo::app {
namespace {

// Every symbol is drawn on a 24 × 24 grid and scaled to the requested size.
constexpr double kGrid = 24.0;

QPen strokePen(const QColor& color, double width) {
    QPen pen(color, width);
    pen.setCapStyle(Qt::RoundCap);
    pen.setJoinStyle(Qt::RoundJoin);
    return pen;
}

void drawPlus(QPainter& painter, const QColor& color) {
    painter.setPen(strokePen(color, 2.2));
    painter.drawLine(QPointF(12, 4), QPointF(12, 20));
    painter.drawLine(QPointF(4, 12), QPointF(20, 12));
}

void drawTrash(QPainter& painter, const QColor& color) {
    painter.setPen(strokePen(color, 1.8));
    painter.setBrush(Qt::NoBrush);
    painter.drawLine(QPointF(3.5, 6), QPointF(20.5, 6));
    painter.drawPolyline(
        QPolygonF({QPointF(9, 6), QPointF(9.5, 3.5), QPointF(14.5, 3.5), QPointF(15, 6)}));
    QPainterPath can;
    can.moveTo(5.5, 6);
    can.lineTo(6.8, 20);
    can.quadTo(7, 21, 8, 21);
    can.lineTo(16, 21);
    can.quadTo(17, 21, 17.2, 20);
    can.lineTo(18.5, 6);
    painter.drawPath(can);
    painter.drawLine(QPointF(10, 9.5), QPointF(10.3, 17.5));
    painter.drawLine(QPointF(14, 9.5), QPointF(13.7, 17.5));
}

void drawClosedBook(QPainter& painter, const QColor& color) {
    painter.setPen(strokePen(color, 1.6));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(4.5, 2.5, 15, 19), 2, 2);
    painter.drawLine(QPointF(8, 2.5), QPointF(8, 21.5));
    painter.setPen(strokePen(color, 1.4));
    painter.drawLine(QPointF(10.8, 7.5), QPointF(16.5, 7.5));
    painter.drawLine(QPointF(10.8, 11), QPointF(16.5, 11));
}

void drawMicCircle(QPainter& painter, const QColor& color) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawEllipse(QRectF(1, 1, 22, 22));
    painter.setBrush(Qt::white);
    painter.drawRoundedRect(QRectF(9.5, 5, 5, 9.5), 2.5, 2.5);
    painter.setPen(strokePen(Qt::white, 1.5));
    painter.setBrush(Qt::NoBrush);
    painter.drawArc(QRectF(7, 7.5, 10, 9.5), 180 * 16, 180 * 16);
    painter.drawLine(QPointF(12, 17), QPointF(12, 19));
}

void drawStopCircle(QPainter& painter, const QColor& color) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawEllipse(QRectF(1, 1, 22, 22));
    painter.setBrush(Qt::white);
    painter.drawRoundedRect(QRectF(8, 8, 8, 8), 1.5, 1.5);
}

using Drawer = void (*)(QPainter&, const QColor&);

Drawer drawerFor(const QString& name) {
    if (name == QLatin1String("plus")) {
        return drawPlus;
    }
    if (name == QLatin1String("trash")) {
        return drawTrash;
    }
    if (name == QLatin1String("text.book.closed")) {
        return drawClosedBook;
    }
    if (name == QLatin1String("mic.circle.fill")) {
        return drawMicCircle;
    }
    if (name == QLatin1String("stop.circle.fill")) {
        return drawStopCircle;
    }
    return nullptr;
}

}  // namespace

QPixmap SymbolImage::pixmap(const QString& name, const QColor& color, int sizePixels) {
    Drawer draw = drawerFor(name);
    if (draw == nullptr || sizePixels <= 0) {
        return {};
    }
    const double ratio = qGuiApp != nullptr ? qGuiApp->devicePixelRatio() : 1.0;
    QPixmap image(QSize(sizePixels, sizePixels) * ratio);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(sizePixels / kGrid, sizePixels / kGrid);
    draw(painter, color);
    return image;
}

QIcon SymbolImage::icon(const QString& name, const QColor& color, int sizePixels) {
    QIcon result;
    QPixmap normal = pixmap(name, color, sizePixels);
    if (normal.isNull()) {
        return result;
    }
    result.addPixmap(normal, QIcon::Normal);
    QColor faded = color;
    faded.setAlphaF(color.alphaF() * 0.35);
    result.addPixmap(pixmap(name, faded, sizePixels), QIcon::Disabled);
    return result;
}

}  // namespace kelvo::app
