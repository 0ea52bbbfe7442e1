#include "KelvoVoiceMac/ui/ModelSettingsSection.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QTableWidget>
#include <QVBoxLayout>

#include <exception>

namespace kelvo::app {
namespace {

constexpr int kNameColumn = 0;
constexpr int kSizeColumn = 1;
constexpr int kStatusColumn = 2;

QString sizeText(std::uint64_t bytes) {
    return QString::fromStdString(ModelCatalog::sizeText(bytes));
}

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

ModelSettingsSection::ModelSettingsSection(ModelInstallationService& installer, Bindings bindings,
                                           QWidget* parent)
    : QWidget(parent),
      installer_(installer),
      inventory_(installer.inventory()),
      bindings_(std::move(bindings)),
      table_(new QTableWidget(this)),
      choice_(new QComboBox(this)),
      install_(new QPushButton(tr("Install"), this)),
      cancel_(new QPushButton(tr("Cancel"), this)),
      remove_(new QPushButton(tr("Remove"), this)),
      progress_(new QProgressBar(this)),
      message_(new QLabel(this)),
      recommendation_(new QLabel(this)),
      mirror_(new QLineEdit(this)),
      idleMinutes_(new QSpinBox(this)) {
    table_->setColumnCount(3);
    table_->setHorizontalHeaderLabels({tr("Model"), tr("Size"), tr("Status")});
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setSectionResizeMode(kStatusColumn, QHeaderView::Stretch);
    table_->setRowCount(static_cast<int>(inventory_.catalog().entries().size()));
    int row = 0;
    for (const ModelCatalogEntry& entry : inventory_.catalog().entries()) {
        auto* name = new QTableWidgetItem(qt(entry.name));
        name->setToolTip(qt(entry.description));
        table_->setItem(row, kNameColumn, name);
        table_->setItem(row, kSizeColumn, new QTableWidgetItem(sizeText(entry.sizeBytes)));
        table_->setItem(row, kStatusColumn, new QTableWidgetItem());
        ++row;
    }
    table_->resizeColumnToContents(kNameColumn);

    progress_->setRange(0, 1000);
    progress_->setTextVisible(true);
    progress_->hide();
    message_->setWordWrap(true);
    recommendation_->setWordWrap(true);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(install_);
    buttons->addWidget(cancel_);
    buttons->addWidget(remove_);
    buttons->addStretch();
    mirror_->setPlaceholderText(tr("The publishers' addresses (Hugging Face)"));
    mirror_->setToolTip(tr("A mirror: each model's file name is appended to this address."));
    idleMinutes_->setRange(1, 24 * 60);
    idleMinutes_->setSuffix(tr(" min"));
    auto* form = new QFormLayout;
    form->addRow(tr("Model for dictation:"), choice_);
    form->addRow(tr("Download from:"), mirror_);
    form->addRow(tr("Release an unused model after:"), idleMinutes_);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(recommendation_);
    layout->addWidget(table_, 1);
    layout->addLayout(buttons);
    layout->addWidget(progress_);
    layout->addWidget(message_);
    layout->addLayout(form);

    connect(table_, &QTableWidget::itemSelectionChanged, this, [this] { updateButtons(); });
    connect(install_, &QPushButton::clicked, this, [this] { startInstallation(); });
    connect(cancel_, &QPushButton::clicked, this, [this] { installer_.cancel(); });
    connect(remove_, &QPushButton::clicked, this, [this] { removeSelected(); });
    connect(choice_, &QComboBox::currentIndexChanged, this, [this](int index) {
        choose(index <= 0 ? std::string() : choice_->itemData(index).toString().toStdString());
    });
    observer_ = installer_.addObserver([this] { installationChanged(); });

    connect(mirror_, &QLineEdit::editingFinished, this, [this] {
        const std::string address = mirror_->text().trimmed().toStdString();
        ModelInventory::Settings settings = inventory_.settings();
        if (settings.downloadBaseURL == address) {
            return;
        }
        settings.downloadBaseURL = address;
        inventory_.setSettings(settings);
        if (bindings_.setDownloadBaseURL) {
            bindings_.setDownloadBaseURL(address);
        }
    });
    connect(idleMinutes_, &QSpinBox::valueChanged, this, [this](int minutes) {
        if (bindings_.setIdleReleaseMinutes) {
            bindings_.setIdleReleaseMinutes(minutes);
        }
    });

    ModelInventory::Settings settings = inventory_.settings();
    settings.chosenModel = bindings_.chosenModel ? bindings_.chosenModel() : std::string();
    settings.downloadBaseURL =
        bindings_.downloadBaseURL ? bindings_.downloadBaseURL() : settings.downloadBaseURL;
    inventory_.setSettings(settings);
    mirror_->setText(QString::fromStdString(settings.downloadBaseURL));
    {
        const QSignalBlocker blocker(idleMinutes_);
        idleMinutes_->setValue(bindings_.idleReleaseMinutes ? bindings_.idleReleaseMinutes()
                                                            : defaultIdleReleaseMinutes);
    }
    if (bindings_.recommendation) {
        const auto& entries = inventory_.catalog().entries();
        for (std::size_t row = 0; row < entries.size(); ++row) {
            if (&entries[row] == bindings_.recommendation->entry) {
                table_->selectRow(static_cast<int>(row));
            }
        }
    }
    refresh();
    // An installation started elsewhere (the notice) before the window opened.
    installationChanged();
}

ModelSettingsSection::~ModelSettingsSection() {
    installer_.removeObserver(observer_);
}

void ModelSettingsSection::updateRecommendation() {
    QString text;
    const ModelAssetStatus status = inventory_.statusForLocale(dictationLocale);
    if (status != ModelAssetStatus::installed) {
        text =
            tr("No installed model recognises Japanese yet, so dictation uses the fallback "
               "recogniser, which does not understand Japanese.");
    }
    if (const auto& recommended = bindings_.recommendation) {
        if (!text.isEmpty()) {
            text += QLatin1Char(' ');
        }
        text += tr("Recommended for this computer: %1 (%2) — %3.")
                    .arg(qt(recommended->entry->name), sizeText(recommended->entry->sizeBytes),
                         qt(recommended->reason));
    }
    recommendation_->setText(text);
    recommendation_->setVisible(!text.isEmpty());
}

QString ModelSettingsSection::statusText(const ModelCatalogEntry& entry) const {
    switch (inventory_.status(entry)) {
        case ModelAssetStatus::installed:
            return tr("Installed (%1)").arg(qt(inventory_.verificationText(entry).value_or("")));
        case ModelAssetStatus::downloading:
            if (inventory_.isInstallationRunning(entry)) {
                return tr("Downloading…");
            }
            return tr("Partly downloaded (%1); install to resume")
                .arg(sizeText(inventory_.partialSizeBytes(entry)));
        case ModelAssetStatus::supported:
            return entry.hasPublishedChecksum() ? tr("Not installed")
                                                : tr("Not installed (no published checksum)");
        case ModelAssetStatus::unsupported:
            break;
    }
    return tr("Unsupported");
}

void ModelSettingsSection::refresh() {
    updateRecommendation();
    int row = 0;
    for (const ModelCatalogEntry& entry : inventory_.catalog().entries()) {
        table_->item(row, kStatusColumn)->setText(statusText(entry));
        ++row;
    }
    const std::string chosen = inventory_.settings().chosenModel;
    const QSignalBlocker blocker(choice_);
    choice_->clear();
    choice_->addItem(tr("Best installed model"), QString());
    for (const ModelCatalogEntry* entry : inventory_.installedModels()) {
        choice_->addItem(qt(entry->name), qt(entry->name));
        if (entry->name == chosen) {
            choice_->setCurrentIndex(choice_->count() - 1);
        }
    }
    updateButtons();
}

const ModelCatalogEntry* ModelSettingsSection::selectedEntry() const {
    const QList<QTableWidgetItem*> selected = table_->selectedItems();
    if (selected.isEmpty()) {
        return nullptr;
    }
    const auto row = static_cast<std::size_t>(selected.front()->row());
    return row < inventory_.catalog().entries().size() ? &inventory_.catalog().entries()[row]
                                                       : nullptr;
}

void ModelSettingsSection::updateButtons() {
    const ModelCatalogEntry* entry = selectedEntry();
    const bool installing = installer_.isRunning();
    const ModelAssetStatus status =
        entry ? inventory_.status(*entry) : ModelAssetStatus::unsupported;
    install_->setEnabled(entry && !installing && status != ModelAssetStatus::installed &&
                         !inventory_.isInstallationRunning(*entry));
    cancel_->setEnabled(installing);
    remove_->setEnabled(entry && !installing && status != ModelAssetStatus::supported);
}

void ModelSettingsSection::startInstallation() {
    if (const ModelCatalogEntry* entry = selectedEntry()) {
        installer_.start(*entry, "settings");
    }
}

void ModelSettingsSection::installationChanged() {
    if (const ModelCatalogEntry* current = installer_.current()) {
        if (shownInstallation_ != current->name) {
            shownInstallation_ = current->name;
            progress_->show();
            message_->setText(tr("Installing %1…").arg(qt(current->name)));
            refresh();
        }
        progress_->setValue(static_cast<int>(installer_.fractionCompleted() * 1000));
        return;
    }
    if (!shownInstallation_) {
        return;
    }
    shownInstallation_.reset();
    progress_->hide();
    if (const auto& outcome = installer_.lastOutcome()) {
        message_->setText(outcome->failure ? qt(*outcome->failure)
                                           : tr("Installed %1.").arg(qt(outcome->model)));
    }
    refresh();
}

void ModelSettingsSection::removeSelected() {
    const ModelCatalogEntry* entry = selectedEntry();
    if (!entry || installer_.isRunning()) {
        return;
    }
    try {
        inventory_.remove(*entry);
        message_->setText(tr("Removed %1.").arg(qt(entry->name)));
        if (inventory_.settings().chosenModel == entry->name) {
            choose({});
        }
    } catch (const std::exception& error) {
        message_->setText(qt(error.what()));
    }
    refresh();
}

void ModelSettingsSection::choose(const std::string& name) {
    ModelInventory::Settings settings = inventory_.settings();
    settings.chosenModel = name;
    inventory_.setSettings(settings);
    if (bindings_.setChosenModel) {
        bindings_.setChosenModel(name);
    }
}

}  // namespace kelvo::app
