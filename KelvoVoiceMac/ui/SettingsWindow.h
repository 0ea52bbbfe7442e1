#pragma once

// SettingsWindow is the window behind "Settings...": the push-to-talk key, the microphone, the
// recognition engine (with the model settings panel below it when the build has one), the window
// classes of terminal emulators that are pasted into with Ctrl+Shift+V, start at login and filler
// removal. Every change is written at once (preferences through the Preferences seam, start at
// login as the XDG autostart entry) and takes effect from the next dictation, when the wiring reads
// the preferences again; preferenceChanged() tells the wiring which key changed, for what it keeps
// on screen (the filler menu item's check mark) or must re-arm (the key monitor). The window only
// hides when closed.
//
// The microphone list comes from `listMicrophones`, which blocks (it asks the sound server), so it
// runs on a worker thread each time the window is shown; a stored source that is not connected
// stays listed and selected, so nothing the user chose is lost while a device is unplugged. Main
// thread only; the preferences must outlive the window.

#include <QCoroTask>
#include <QWidget>
#include <functional>
#include <vector>

#include "KelvoVoiceMac/ui/AutostartEntry.h"
#include "platform/AudioSourceInfo.h"
#include "platform/Preferences.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QListWidget;
class QVBoxLayout;

namespace kelvo::app {

class TriggerKeyField;

class SettingsWindow final : public QWidget {
    Q_OBJECT

  public:
    using MicrophoneLister = std::function<std::vector<platform::AudioSourceInfo>()>;

    SettingsWindow(platform::Preferences& preferences, MicrophoneLister listMicrophones,
                   AutostartEntry autostart, QWidget* parent = nullptr);
    ~SettingsWindow() override;

    // Puts the model settings panel under the engine choice, replacing the note shown while there
    // is none; the window takes ownership.
    void setModelSection(QWidget* section);

    // Adds the input-method panel below the other groups; the window takes ownership.
    void setInputMethodSection(QWidget* section);

    // Shows the window (restoring it when minimised), raises it and asks for the keyboard focus.
    void present();

    // Lists the microphones again; the result arrives through microphonesListed().
    void refreshMicrophones();

    static constexpr const char* windowTitle = "Settings";

  Q_SIGNALS:
    void preferenceChanged(const QString& key);
    void startAtLoginChanged(bool enabled);
    void microphonesListed();

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    QCoro::Task<> listMicrophones();
    QWidget* makeDictationGroup();
    QWidget* makeRecognitionGroup();
    QWidget* makeTerminalGroup();
    QWidget* makeGeneralGroup();
    void fillMicrophones(const std::vector<platform::AudioSourceInfo>& sources);
    void storeTerminalClasses();
    void setStartAtLogin(bool enabled);
    void showProblem(const QString& text);
    void changed(const char* key);
    QLabel* rowLabel(const QString& text, QWidget* parent);

    platform::Preferences& preferences_;
    MicrophoneLister listMicrophones_;
    AutostartEntry autostart_;
    bool listing_ = false;

    TriggerKeyField* triggerKeyField_ = nullptr;
    QComboBox* microphoneChoice_ = nullptr;
    QCheckBox* fillerRemovalToggle_ = nullptr;
    QComboBox* engineChoice_ = nullptr;
    QVBoxLayout* modelSectionSlot_ = nullptr;
    QWidget* modelSection_ = nullptr;
    QListWidget* terminalClasses_ = nullptr;
    QCheckBox* startAtLoginToggle_ = nullptr;
    QLabel* problemLabel_ = nullptr;
    std::vector<QLabel*> rowLabels_;
};

}  // namespace kelvo::app
