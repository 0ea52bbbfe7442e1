#include "KelvoVoiceMac/ui/InputMethodSettingsSection.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "KelvoVoiceMac/session/PreferenceKeys.h"

namespace kelvo::app {

namespace {

QString statusText(const platform::InputMethodCommitter::Result& result) {
    using Outcome = platform::InputMethodCommitter::Outcome;
    const QString detail = QString::fromStdString(result.detail);
    return result.outcome == Outcome::unavailable ? "Not available: " + detail
                                                  : "Available (" + detail + ")";
}

}  // namespace

InputMethodSettingsSection::InputMethodSettingsSection(
    platform::Preferences& preferences, std::vector<platform::InputMethodCommitter*> committers,
    const platform::InputMethodAddonInstaller* installer, QWidget* parent)
    : QGroupBox(QStringLiteral("Input Method"), parent),
      preferences_(preferences),
      committers_(std::move(committers)),
      installer_(installer) {
    setObjectName(QStringLiteral("inputMethodSection"));
    auto* column = new QVBoxLayout(this);

    auto* enabled = new QCheckBox(
        QStringLiteral("Insert through the input method (Fcitx5, IBus) when it can take the text"),
        this);
    enabled->setObjectName(QStringLiteral("inputMethodToggle"));
    enabled->setChecked(preferences_.boolValue(PreferenceKeys::inputMethodInsertionEnabled));
    connect(enabled, &QCheckBox::clicked, this, [this](bool checked) {
        preferences_.setBool(PreferenceKeys::inputMethodInsertionEnabled, checked);
    });
    column->addWidget(enabled);

    auto* form = new QFormLayout;
    for (platform::InputMethodCommitter* committer : committers_) {
        auto* label = new QLabel(QStringLiteral("Checking…"), this);
        label->setObjectName(QString::fromStdString(committer->name() + "Status"));
        label->setWordWrap(true);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        form->addRow(QString::fromStdString(committer->name()) + ":", label);
        statusLabels_.push_back(label);
    }
    if (installer_) {
        installationLabel_ = new QLabel(this);
        installationLabel_->setObjectName(QStringLiteral("fcitx5AddonInstallation"));
        installationLabel_->setWordWrap(true);
        form->addRow(QStringLiteral("Fcitx5 addon:"), installationLabel_);
    }
    column->addLayout(form);

    auto* buttons = new QHBoxLayout;
    auto* check = new QPushButton(QStringLiteral("Check Again"), this);
    check->setObjectName(QStringLiteral("inputMethodCheck"));
    connect(check, &QPushButton::clicked, this, [this] { refresh(); });
    buttons->addWidget(check);
    if (installer_) {
        installButton_ = new QPushButton(QStringLiteral("Install Fcitx5 Addon for Me"), this);
        installButton_->setObjectName(QStringLiteral("fcitx5AddonInstall"));
        connect(installButton_, &QPushButton::clicked, this, [this] { installForUser(); });
        buttons->addWidget(installButton_);
        showInstallation();
    }
    buttons->addStretch(1);
    column->addLayout(buttons);
}

void InputMethodSettingsSection::showEvent(QShowEvent* event) {
    QGroupBox::showEvent(event);
    refresh();
}

void InputMethodSettingsSection::refresh() {
    if (!probing_) {
        probeAll();
    }
}

QCoro::Task<> InputMethodSettingsSection::probeAll() {
    probing_ = true;
    QPointer<InputMethodSettingsSection> self(this);
    for (std::size_t i = 0; i < committers_.size(); ++i) {
        platform::InputMethodCommitter::Result result = co_await committers_[i]->probe();
        if (!self) {
            co_return;  // the window went while a framework answered
        }
        statusLabels_[i]->setText(statusText(result));
    }
    probing_ = false;
    Q_EMIT refreshed();
}

void InputMethodSettingsSection::showInstallation() {
    using Installation = platform::InputMethodAddonInstaller::Installation;
    switch (installer_->installation()) {
        case Installation::systemWide:
            installationLabel_->setText(QStringLiteral("Installed for all users."));
            installButton_->setEnabled(false);
            break;
        case Installation::forUser:
            installationLabel_->setText(
                QStringLiteral("Installed for you. Restart fcitx5 once (fcitx5 -r, or log out and "
                               "in) if it is not available yet."));
            installButton_->setEnabled(false);
            break;
        case Installation::none:
            installationLabel_->setText(
                installer_->library()
                    ? QStringLiteral("Not installed.")
                    : QStringLiteral("Not installed, and this build has no addon to install."));
            installButton_->setEnabled(installer_->library().has_value());
            break;
    }
}

void InputMethodSettingsSection::installForUser() {
    const std::string problem = installer_->installForUser();
    showInstallation();
    if (!problem.empty()) {
        installationLabel_->setText("Could not install: " + QString::fromStdString(problem));
    }
}

}  // namespace kelvo::app
