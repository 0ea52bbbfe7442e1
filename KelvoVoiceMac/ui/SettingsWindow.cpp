#include "KelvoVoiceMac/ui/SettingsWindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoroFuture>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <exception>

#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "KelvoVoiceMac/ui/TriggerKeyField.h"
#include "KelvoVoiceMac/ui/WindowStyle.h"

namespace kelvo::app {
namespace {

constexpr int kSourceNameRole = Qt::UserRole;

struct ListingOutcome {
    std::vector<platform::AudioSourceInfo> sources;
    QString error;
};

ListingOutcome listWith(SettingsWindow::MicrophoneLister lister) {
    ListingOutcome result;
    try {
        result.sources = lister();
    } catch (const std::exception& error) {
        result.error = QString::fromStdString(error.what());
    }
    return result;
}

QLabel* noteLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    WindowStyle::setTextStyle(*label, WindowStyle::TextStyle::caption);
    WindowStyle::setTextColor(*label, WindowStyle::secondaryTextColor(*parent));
    return label;
}

}  // namespace

SettingsWindow::SettingsWindow(platform::Preferences& preferences, MicrophoneLister listMicrophones,
                               AutostartEntry autostart, QWidget* parent)
    : QWidget(parent),
      preferences_(preferences),
      listMicrophones_(std::move(listMicrophones)),
      autostart_(std::move(autostart)) {
    WindowStyle::useJapaneseFont(*this);
    setWindowTitle(QString::fromUtf8(windowTitle));
    setObjectName(QStringLiteral("settingsWindow"));
    setAttribute(Qt::WA_DeleteOnClose, false);

    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* content = new QWidget(scroll);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(16, 16, 16, 16);
    column->setSpacing(12);
    column->addWidget(makeDictationGroup());
    column->addWidget(makeRecognitionGroup());
    column->addWidget(makeTerminalGroup());
    column->addWidget(makeGeneralGroup());
    problemLabel_ = new QLabel(content);
    problemLabel_->setObjectName(QStringLiteral("problem"));
    problemLabel_->setWordWrap(true);
    WindowStyle::setTextColor(*problemLabel_, QColor(0xFF, 0x3B, 0x30));
    problemLabel_->hide();
    column->addWidget(problemLabel_);
    column->addWidget(noteLabel(QStringLiteral("Changes apply from the next dictation."), content));
    column->addStretch(1);
    scroll->setWidget(content);
    outer->addWidget(scroll);

    // The groups have a form each; one label width lines their fields up as if they were one.
    int labelWidth = 0;
    for (auto* label : rowLabels_) {
        labelWidth = std::max(labelWidth, label->sizeHint().width());
    }
    for (auto* label : rowLabels_) {
        label->setMinimumWidth(labelWidth);
    }

    setMinimumSize(480, 400);
    resize(540, 660);
}

SettingsWindow::~SettingsWindow() = default;

QLabel* SettingsWindow::rowLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    rowLabels_.push_back(label);
    return label;
}

QWidget* SettingsWindow::makeDictationGroup() {
    auto* group = new QGroupBox(QStringLiteral("Dictation"), this);
    auto* form = new QFormLayout(group);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);

    triggerKeyField_ = new TriggerKeyField(group);
    triggerKeyField_->setObjectName(QStringLiteral("triggerKeyField"));
    triggerKeyField_->setKeyName(QString::fromStdString(
        preferences_.stringValue(PreferenceKeys::triggerKey, PreferenceKeys::defaultTriggerKey)));
    connect(triggerKeyField_, &TriggerKeyField::keyChosen, this, [this](const QString& name) {
        preferences_.setString(PreferenceKeys::triggerKey, name.toStdString());
        changed(PreferenceKeys::triggerKey);
    });
    auto* keyColumn = new QVBoxLayout;
    keyColumn->addWidget(triggerKeyField_);
    keyColumn->addWidget(
        noteLabel(QStringLiteral("Hold it to dictate, double-tap it for hands-free. Click the "
                                 "button, then press the key."),
                  group));
    form->addRow(rowLabel(QStringLiteral("Push-to-talk key:"), group), keyColumn);

    microphoneChoice_ = new QComboBox(group);
    microphoneChoice_->setObjectName(QStringLiteral("microphoneChoice"));
    microphoneChoice_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    microphoneChoice_->setMinimumContentsLength(20);
    fillMicrophones({});
    connect(microphoneChoice_, &QComboBox::activated, this, [this](int index) {
        preferences_.setString(
            PreferenceKeys::microphoneSource,
            microphoneChoice_->itemData(index, kSourceNameRole).toString().toStdString());
        changed(PreferenceKeys::microphoneSource);
    });
    form->addRow(rowLabel(QStringLiteral("Microphone:"), group), microphoneChoice_);

    fillerRemovalToggle_ =
        new QCheckBox(QStringLiteral("Remove filler words (フィラーカット)"), group);
    fillerRemovalToggle_->setObjectName(QStringLiteral("fillerRemovalToggle"));
    fillerRemovalToggle_->setChecked(preferences_.boolValue(PreferenceKeys::fillerRemovalEnabled));
    connect(fillerRemovalToggle_, &QCheckBox::clicked, this, [this](bool checked) {
        preferences_.setBool(PreferenceKeys::fillerRemovalEnabled, checked);
        changed(PreferenceKeys::fillerRemovalEnabled);
    });
    form->addRow(QString(), fillerRemovalToggle_);
    return group;
}

QWidget* SettingsWindow::makeRecognitionGroup() {
    auto* group = new QGroupBox(QStringLiteral("Recognition"), this);
    auto* column = new QVBoxLayout(group);
    auto* form = new QFormLayout;
    engineChoice_ = new QComboBox(group);
    engineChoice_->setObjectName(QStringLiteral("engineChoice"));
    engineChoice_->addItem(QStringLiteral("Automatic (speech model when ready, else fallback)"),
                           QString::fromLatin1(PreferenceKeys::recognitionEngineAutomatic));
    engineChoice_->addItem(QStringLiteral("Fallback recogniser only"),
                           QString::fromLatin1(PreferenceKeys::recognitionEngineFallback));
    const auto stored = QString::fromStdString(preferences_.stringValue(
        PreferenceKeys::recognitionEngine, PreferenceKeys::defaultRecognitionEngine));
    engineChoice_->setCurrentIndex(std::max(0, engineChoice_->findData(stored)));
    connect(engineChoice_, &QComboBox::activated, this, [this](int index) {
        preferences_.setString(PreferenceKeys::recognitionEngine,
                               engineChoice_->itemData(index).toString().toStdString());
        changed(PreferenceKeys::recognitionEngine);
    });
    form->addRow(rowLabel(QStringLiteral("Engine:"), group), engineChoice_);
    column->addLayout(form);

    modelSectionSlot_ = new QVBoxLayout;
    modelSectionSlot_->setContentsMargins(0, 0, 0, 0);
    modelSection_ = noteLabel(QStringLiteral("No speech model engine in this build."), group);
    modelSectionSlot_->addWidget(modelSection_);
    column->addLayout(modelSectionSlot_);
    return group;
}

QWidget* SettingsWindow::makeTerminalGroup() {
    auto* group = new QGroupBox(QStringLiteral("Terminals"), this);
    auto* column = new QVBoxLayout(group);
    column->addWidget(noteLabel(QStringLiteral("Windows of these classes (WM_CLASS) are pasted "
                                               "into with Ctrl+Shift+V instead of Ctrl+V."),
                                group));
    terminalClasses_ = new QListWidget(group);
    terminalClasses_->setObjectName(QStringLiteral("terminalClasses"));
    terminalClasses_->setMinimumHeight(70);
    terminalClasses_->setMaximumHeight(110);
    for (const auto& name : preferences_.stringListValue(PreferenceKeys::terminalWindowClasses)) {
        auto* item = new QListWidgetItem(QString::fromStdString(name), terminalClasses_);
        item->setFlags(item->flags() | Qt::ItemIsEditable);
    }
    column->addWidget(terminalClasses_);
    auto* buttons = new QHBoxLayout;
    auto* add = new QPushButton(QStringLiteral("Add"), group);
    add->setObjectName(QStringLiteral("addTerminalClass"));
    auto* remove = new QPushButton(QStringLiteral("Remove"), group);
    remove->setObjectName(QStringLiteral("removeTerminalClass"));
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch(1);
    column->addLayout(buttons);

    connect(add, &QPushButton::clicked, this, [this] {
        auto* item = new QListWidgetItem(terminalClasses_);
        item->setFlags(item->flags() | Qt::ItemIsEditable);
        terminalClasses_->setCurrentItem(item);
        terminalClasses_->editItem(item);
    });
    connect(remove, &QPushButton::clicked, this, [this] {
        delete terminalClasses_->currentItem();
        storeTerminalClasses();
    });
    connect(terminalClasses_, &QListWidget::itemChanged, this, [this] { storeTerminalClasses(); });
    return group;
}

QWidget* SettingsWindow::makeGeneralGroup() {
    auto* group = new QGroupBox(QStringLiteral("General"), this);
    auto* column = new QVBoxLayout(group);
    startAtLoginToggle_ = new QCheckBox(QStringLiteral("Start KelvoVoice at login"), group);
    startAtLoginToggle_->setObjectName(QStringLiteral("startAtLoginToggle"));
    startAtLoginToggle_->setChecked(autostart_.isEnabled());
    connect(startAtLoginToggle_, &QCheckBox::clicked, this,
            [this](bool checked) { setStartAtLogin(checked); });
    column->addWidget(startAtLoginToggle_);
    return group;
}

void SettingsWindow::setModelSection(QWidget* section) {
    if (section == nullptr) {
        return;
    }
    if (modelSection_ != nullptr) {
        modelSectionSlot_->removeWidget(modelSection_);
        delete modelSection_;
    }
    modelSection_ = section;
    modelSectionSlot_->addWidget(section);
}

void SettingsWindow::setInputMethodSection(QWidget* section) {
    if (section == nullptr) {
        return;
    }
    // Into the column of groups, just above the problem line.
    auto* column = static_cast<QVBoxLayout*>(problemLabel_->parentWidget()->layout());
    column->insertWidget(column->indexOf(problemLabel_), section);
}

void SettingsWindow::present() {
    if (isMinimized()) {
        showNormal();
    } else {
        show();
    }
    raise();
    activateWindow();
}

void SettingsWindow::refreshMicrophones() {
    if (listing_ || !listMicrophones_) {
        return;
    }
    listing_ = true;
    listMicrophones();
}

void SettingsWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // Devices come and go; the list is asked for again each time the window opens.
    refreshMicrophones();
}

QCoro::Task<> SettingsWindow::listMicrophones() {
    QPointer<SettingsWindow> self(this);
    // Named, not a temporary inside the co_await: GCC 12 destroys such temporaries twice.
    QFuture<ListingOutcome> work = QtConcurrent::run(listWith, listMicrophones_);
    ListingOutcome outcome = co_await work;
    if (!self) {
        co_return;
    }
    listing_ = false;
    if (!outcome.error.isEmpty()) {
        showProblem(QStringLiteral("Could not list the microphones: ") + outcome.error);
    }
    fillMicrophones(outcome.sources);
    Q_EMIT microphonesListed();
}

void SettingsWindow::fillMicrophones(const std::vector<platform::AudioSourceInfo>& sources) {
    const auto stored =
        QString::fromStdString(preferences_.stringValue(PreferenceKeys::microphoneSource, ""));
    microphoneChoice_->clear();
    microphoneChoice_->addItem(QStringLiteral("System default"), QString());
    for (const auto& source : sources) {
        const auto name = QString::fromStdString(source.name);
        const auto label =
            source.description.empty() ? name : QString::fromStdString(source.description);
        microphoneChoice_->addItem(label, name);
        microphoneChoice_->setItemData(microphoneChoice_->count() - 1, name, Qt::ToolTipRole);
    }
    int selected = microphoneChoice_->findData(stored, kSourceNameRole);
    if (selected < 0) {
        microphoneChoice_->addItem(stored + QStringLiteral(" (not connected)"), stored);
        selected = microphoneChoice_->count() - 1;
    }
    microphoneChoice_->setCurrentIndex(selected);
}

void SettingsWindow::storeTerminalClasses() {
    std::vector<std::string> names;
    for (int row = 0; row < terminalClasses_->count(); ++row) {
        const auto name = terminalClasses_->item(row)->text().trimmed().toStdString();
        if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    if (names == preferences_.stringListValue(PreferenceKeys::terminalWindowClasses)) {
        return;
    }
    preferences_.setStringList(PreferenceKeys::terminalWindowClasses, names);
    changed(PreferenceKeys::terminalWindowClasses);
}

void SettingsWindow::setStartAtLogin(bool enabled) {
    // A few hundred bytes in the user's config folder: written inline, like QSettings itself.
    try {
        if (enabled) {
            autostart_.enable();
        } else {
            autostart_.disable();
        }
        problemLabel_->hide();
    } catch (const std::exception& error) {
        showProblem(QStringLiteral("Could not change start at login: ") +
                    QString::fromStdString(error.what()));
    }
    const bool nowEnabled = autostart_.isEnabled();
    startAtLoginToggle_->setChecked(nowEnabled);
    Q_EMIT startAtLoginChanged(nowEnabled);
}

void SettingsWindow::showProblem(const QString& text) {
    problemLabel_->setText(text);
    problemLabel_->show();
}

void SettingsWindow::changed(const char* key) {
    Q_EMIT preferenceChanged(QString::fromLatin1(key));
}

}  // namespace kelvo::app
