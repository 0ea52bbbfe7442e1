#pragma once

// TriggerKeyField shows the push-to-talk key by its X keysym name ("Control_R") and, once clicked,
// captures the next key pressed — a lone modifier such as Right Ctrl included — and reports it
// through keyChosen(). Escape, a click elsewhere or leaving the field cancels the capture. The key
// is taken from the event's native virtual key, which is the keysym on X11 (and under Wayland's
// xkb), so left and right modifiers stay apart; a key with no keysym name is refused. Main thread
// only.

#include <QPushButton>
#include <QString>

namespace kelvo::app {

class TriggerKeyField final : public QPushButton {
    Q_OBJECT

  public:
    explicit TriggerKeyField(QWidget* parent = nullptr);

    void setKeyName(const QString& name);
    const QString& keyName() const noexcept { return keyName_; }
    bool isCapturing() const noexcept { return capturing_; }

    // The keysym name of a native virtual key, or an empty string when it has none.
    static QString keysymName(quint32 keysym);

    static constexpr const char* capturePrompt = "Press a key…";

  Q_SIGNALS:
    void keyChosen(const QString& name);

  protected:
    bool event(QEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

  private:
    void beginCapture();
    void endCapture();

    QString keyName_;
    bool capturing_ = false;
};

}  // namespace kelvo::app
