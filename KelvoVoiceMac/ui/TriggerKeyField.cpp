#include "KelvoVoiceMac/ui/TriggerKeyField.h"

#include <QKeyEvent>

#include <X11/Xlib.h>
// Xlib's event-type macros would replace Qt's enumerators of the same names.
#undef KeyPress
#undef FocusOut

namespace kelvo::app {

TriggerKeyField::TriggerKeyField(QWidget* parent) : QPushButton(parent) {
    setCheckable(false);
    setFocusPolicy(Qt::StrongFocus);
    connect(this, &QPushButton::clicked, this, [this] {
        if (!capturing_) {
            beginCapture();
        }
    });
}

void TriggerKeyField::setKeyName(const QString& name) {
    keyName_ = name;
    if (!capturing_) {
        setText(keyName_);
    }
}

QString TriggerKeyField::keysymName(quint32 keysym) {
    if (keysym == 0) {
        return {};
    }
    // XKeysymToString reads a static table; it needs no display connection.
    const char* name = XKeysymToString(static_cast<KeySym>(keysym));
    return name != nullptr ? QString::fromLatin1(name) : QString();
}

bool TriggerKeyField::event(QEvent* event) {
    // Taken here rather than in keyPressEvent so that Tab, Space and Return are captured too
    // instead of moving the focus or pressing the button.
    if (capturing_ && event->type() == QEvent::KeyPress) {
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->isAutoRepeat()) {
            return true;
        }
        if (key->key() == Qt::Key_Escape) {
            endCapture();
            return true;
        }
        const QString name = keysymName(key->nativeVirtualKey());
        if (!name.isEmpty()) {
            keyName_ = name;
            endCapture();
            Q_EMIT keyChosen(keyName_);
        }
        return true;
    }
    if (capturing_ && event->type() == QEvent::ShortcutOverride) {
        event->accept();
        return true;
    }
    return QPushButton::event(event);
}

void TriggerKeyField::focusOutEvent(QFocusEvent* event) {
    endCapture();
    QPushButton::focusOutEvent(event);
}

void TriggerKeyField::beginCapture() {
    capturing_ = true;
    setDown(true);
    setText(QString::fromUtf8(capturePrompt));
    setFocus(Qt::OtherFocusReason);
}

void TriggerKeyField::endCapture() {
    if (!capturing_) {
        return;
    }
    capturing_ = false;
    setDown(false);
    setText(keyName_);
}

}  // namespace kelvo::app
