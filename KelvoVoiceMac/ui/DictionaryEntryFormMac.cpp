#include "KelvoVoiceMac/ui/DictionaryEntryFormMac.h"

#include <QCheckBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include "KelvoVoiceMac/ui/WindowStyle.h"

namespace kelvo::app {
namespace {

// White space in the sense of the original's trimming set: space separators and the tab, but no
// line breaks.
bool isSpaceOrTab(QChar character) {
    return character == u'\t' || character.category() == QChar::Separator_Space;
}

QLabel* secondaryLabel(const QString& text, WindowStyle::TextStyle style, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    WindowStyle::setTextStyle(*label, style);
    WindowStyle::setTextColor(*label, WindowStyle::secondaryTextColor(*parent));
    return label;
}

// One section of a grouped form: a header above a framed box that holds `content`, and an
// optional footer below it.
QWidget* makeSection(const QString& header, QLayout* content, const QString& footer,
                     QWidget* parent) {
    auto* section = new QWidget(parent);
    auto* column = new QVBoxLayout(section);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    if (!header.isEmpty()) {
        column->addWidget(secondaryLabel(header, WindowStyle::TextStyle::body, section));
    }
    auto* box = new QFrame(section);
    box->setFrameShape(QFrame::StyledPanel);
    box->setAutoFillBackground(true);
    box->setBackgroundRole(QPalette::Base);
    content->setContentsMargins(10, 8, 10, 8);
    box->setLayout(content);
    column->addWidget(box);
    if (!footer.isEmpty()) {
        auto* note = secondaryLabel(footer, WindowStyle::TextStyle::caption, section);
        note->setWordWrap(true);
        column->addWidget(note);
    }
    return section;
}

}  // namespace

DictionaryEntryFormMac::DictionaryEntryFormMac(QWidget* parent)
    : QWidget(parent),
      canonicalField_(new QLineEdit(this)),
      enabledToggle_(new QCheckBox(QStringLiteral("有効"), this)),
      readingsField_(new QLineEdit(this)),
      misrecognitionsField_(new QLineEdit(this)) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(16, 12, 16, 12);
    column->setSpacing(16);

    auto* wordLine = new QHBoxLayout;
    auto* requiredMark = new QLabel(QStringLiteral("*"), this);
    WindowStyle::setTextStyle(*requiredMark, WindowStyle::TextStyle::caption);
    WindowStyle::setTextColor(*requiredMark, QColor(0xFF, 0x3B, 0x30));
    canonicalField_->setObjectName(QStringLiteral("canonicalTextField"));
    canonicalField_->setPlaceholderText(QStringLiteral("正式な表記を入力"));
    // Each field is named after its section's header for screen readers, which would otherwise
    // announce an unnamed text field (the placeholder reaches them only as a description).
    const QString wordHeader = QStringLiteral("変換したい単語");
    canonicalField_->setAccessibleName(wordHeader);
    enabledToggle_->setObjectName(QStringLiteral("enabledToggle"));
    wordLine->addWidget(requiredMark, 0, Qt::AlignTop);
    wordLine->addWidget(canonicalField_, 1);
    wordLine->addWidget(enabledToggle_);
    column->addWidget(makeSection(wordHeader, wordLine, {}, this));

    auto* readingsLine = new QVBoxLayout;
    readingsField_->setObjectName(QStringLiteral("readingsField"));
    readingsField_->setPlaceholderText(QStringLiteral("ひらがなで入力（カンマ区切り）"));
    const QString readingsHeader = QStringLiteral("よみかた");
    readingsField_->setAccessibleName(readingsHeader);
    readingsLine->addWidget(readingsField_);
    column->addWidget(makeSection(readingsHeader, readingsLine, {}, this));

    auto* misrecognitionsLine = new QVBoxLayout;
    misrecognitionsField_->setObjectName(QStringLiteral("misrecognitionsField"));
    misrecognitionsField_->setPlaceholderText(QStringLiteral("カンマ区切りで入力"));
    const QString misrecognitionsHeader = QStringLiteral("誤変換されやすい単語");
    misrecognitionsField_->setAccessibleName(misrecognitionsHeader);
    misrecognitionsLine->addWidget(misrecognitionsField_);
    column->addWidget(makeSection(
        misrecognitionsHeader, misrecognitionsLine,
        QStringLiteral("音声認識で間違って変換されるパターンを登録してください"), this));

    auto* preview = new QGridLayout;
    preview->setHorizontalSpacing(16);
    preview->setColumnStretch(1, 1);
    previewReadingsName_ = new QLabel(QStringLiteral("よみかた"), this);
    previewReadings_ = secondaryLabel({}, WindowStyle::TextStyle::body, this);
    previewMisrecognitionsName_ = new QLabel(QStringLiteral("誤変換"), this);
    previewMisrecognitions_ = secondaryLabel({}, WindowStyle::TextStyle::body, this);
    for (auto* value : {previewReadings_, previewMisrecognitions_}) {
        value->setObjectName(value == previewReadings_ ? QStringLiteral("previewReadings")
                                                       : QStringLiteral("previewMisrecognitions"));
        value->setWordWrap(true);
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    preview->addWidget(previewReadingsName_, 0, 0, Qt::AlignTop);
    preview->addWidget(previewReadings_, 0, 1);
    preview->addWidget(previewMisrecognitionsName_, 1, 0, Qt::AlignTop);
    preview->addWidget(previewMisrecognitions_, 1, 1);
    previewSection_ = makeSection(QStringLiteral("プレビュー"), preview, {}, this);
    column->addWidget(previewSection_);
    column->addStretch(1);

    // textChanged, not textEdited: an assistive tool's text (AT-SPI's EditableText, which Qt
    // applies with setText) is the user's edit too. The form's own setText calls block the signal.
    connect(canonicalField_, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (!entry_) {
            return;
        }
        entry_->canonicalText = text.toStdString();
        entry_->replacementText = entry_->canonicalText;
        publish();
        Q_EMIT navigationTitleChanged(navigationTitle());
    });
    connect(enabledToggle_, &QCheckBox::clicked, this, [this](bool checked) {
        if (!entry_) {
            return;
        }
        entry_->enabled = checked;
        publish();
    });
    connect(readingsField_, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (!entry_) {
            return;
        }
        entry_->readings = parseCommaSeparated(text);
        updatePreview();
        publish();
    });
    connect(misrecognitionsField_, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (!entry_) {
            return;
        }
        entry_->commonMisrecognitions = parseCommaSeparated(text);
        updatePreview();
        publish();
    });

    updatePreview();
}

void DictionaryEntryFormMac::setEntry(const DictionaryEntry& entry) {
    const bool appearing = !entry_.has_value();
    const bool otherEntry = appearing || entry_->id != entry.id;
    entry_ = entry;
    if (appearing && entry_->replacementText.empty() && !entry_->canonicalText.empty()) {
        entry_->replacementText = entry_->canonicalText;
        publish();
    }
    if (otherEntry) {
        const QString separator = QString::fromUtf8(listSeparator);
        const QSignalBlocker readingsShown(readingsField_);
        const QSignalBlocker misrecognitionsShown(misrecognitionsField_);
        readingsField_->setText(joined(entry_->readings, separator));
        misrecognitionsField_->setText(joined(entry_->commonMisrecognitions, separator));
    }
    showFields();
}

void DictionaryEntryFormMac::clearEntry() {
    entry_.reset();
    showFields();
}

QString DictionaryEntryFormMac::readingsText() const {
    return readingsField_->text();
}

QString DictionaryEntryFormMac::misrecognitionsText() const {
    return misrecognitionsField_->text();
}

QString DictionaryEntryFormMac::navigationTitle() const {
    if (!entry_ || entry_->canonicalText.empty()) {
        return QString::fromUtf8(newEntryTitle);
    }
    return QString::fromStdString(entry_->canonicalText);
}

std::vector<std::string> DictionaryEntryFormMac::parseCommaSeparated(QStringView text) {
    std::vector<std::string> items;
    for (QStringView piece : text.split(u',', Qt::SkipEmptyParts)) {
        qsizetype begin = 0;
        qsizetype end = piece.size();
        while (begin < end && isSpaceOrTab(piece[begin])) {
            ++begin;
        }
        while (end > begin && isSpaceOrTab(piece[end - 1])) {
            --end;
        }
        if (begin < end) {
            items.push_back(piece.sliced(begin, end - begin).toString().toStdString());
        }
    }
    return items;
}

QString DictionaryEntryFormMac::joined(const std::vector<std::string>& items,
                                       QStringView separator) {
    QStringList parts;
    for (const auto& item : items) {
        parts.append(QString::fromStdString(item));
    }
    return parts.join(separator);
}

void DictionaryEntryFormMac::showFields() {
    const bool hasEntry = entry_.has_value();
    if (hasEntry) {
        if (canonicalField_->text().toStdString() != entry_->canonicalText) {
            const QSignalBlocker shown(canonicalField_);
            canonicalField_->setText(QString::fromStdString(entry_->canonicalText));
        }
        enabledToggle_->setChecked(entry_->enabled);
    } else {
        canonicalField_->clear();
        readingsField_->clear();
        misrecognitionsField_->clear();
        enabledToggle_->setChecked(false);
    }
    for (QWidget* field : std::initializer_list<QWidget*>{canonicalField_, enabledToggle_,
                                                          readingsField_, misrecognitionsField_}) {
        field->setEnabled(hasEntry);
    }
    updatePreview();
    Q_EMIT navigationTitleChanged(navigationTitle());
}

void DictionaryEntryFormMac::updatePreview() {
    const bool hasReadings = entry_ && !entry_->readings.empty();
    const bool hasMisrecognitions = entry_ && !entry_->commonMisrecognitions.empty();
    const QString separator = QString::fromUtf8(listSeparator);
    previewReadings_->setText(hasReadings ? joined(entry_->readings, separator) : QString());
    previewMisrecognitions_->setText(
        hasMisrecognitions ? joined(entry_->commonMisrecognitions, separator) : QString());
    previewReadingsName_->setVisible(hasReadings);
    previewReadings_->setVisible(hasReadings);
    previewMisrecognitionsName_->setVisible(hasMisrecognitions);
    previewMisrecognitions_->setVisible(hasMisrecognitions);
    previewSection_->setVisible(hasReadings || hasMisrecognitions);
}

void DictionaryEntryFormMac::publish() {
    if (entry_) {
        Q_EMIT entryEdited(*entry_);
    }
}

}  // namespace kelvo::app
