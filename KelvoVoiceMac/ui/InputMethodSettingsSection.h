#pragma once

// InputMethodSettingsSection is the settings window's panel for inserting through the input
// method: the switch for the route (preference "kvmac_inputMethodInsertionEnabled", default true,
// read by TextInsertionService at each insertion), the status of each framework's route as its
// committer reports it (asked again each time the panel is shown and on "Check Again"), and the
// Fcitx5 addon's installation, with a per-user install (no root) that tells the user fcitx5 must
// restart once to load it.
//
// Main thread only. The committers, the preferences and the installer are borrowed and must
// outlive the panel; the settings window owns the panel once it is added there.

#include <QCoroTask>
#include <QGroupBox>
#include <vector>

#include "platform/InputMethodAddonInstaller.h"
#include "platform/InputMethodCommitter.h"
#include "platform/Preferences.h"

class QLabel;
class QPushButton;

namespace kelvo::app {

class InputMethodSettingsSection final : public QGroupBox {
    Q_OBJECT

  public:
    // installer may be null (no Fcitx5 addon in this build): the install row is left out.
    InputMethodSettingsSection(platform::Preferences& preferences,
                               std::vector<platform::InputMethodCommitter*> committers,
                               const platform::InputMethodAddonInstaller* installer,
                               QWidget* parent = nullptr);

    // Asks every committer for its status again; the labels change when the answers arrive.
    void refresh();

  Q_SIGNALS:
    void refreshed();

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    QCoro::Task<> probeAll();
    void showInstallation();
    void installForUser();

    platform::Preferences& preferences_;
    std::vector<platform::InputMethodCommitter*> committers_;
    const platform::InputMethodAddonInstaller* installer_;
    std::vector<QLabel*> statusLabels_;
    QLabel* installationLabel_ = nullptr;
    QPushButton* installButton_ = nullptr;
    bool probing_ = false;
};

}  // namespace kelvo::app
