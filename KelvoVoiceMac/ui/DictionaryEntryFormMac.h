#pragma once

// DictionaryEntryFormMac edits one dictionary entry: the canonical text (copied into the
// replacement text on every change, so that the replacement always equals it), the enabled
// switch, the readings and the common misrecognitions (each typed as one comma-separated field),
// and a preview of the two parsed lists. It works on a copy of the entry and reports every user
// edit through entryEdited() with the whole changed entry; the owner writes it back into its list
// (the form is its two-way binding to one element). Programmatic updates never emit.
//
// setEntry() shows an entry: when the form was showing nothing before (it "appears"), an empty
// replacement text is first filled with the canonical text and reported; when the identifier
// differs from the one shown, the two list fields are rebuilt from the entry; otherwise the fields
// the user is typing in are left alone. clearEntry() marks the form as showing nothing. Owned by
// the dictionary view; main thread only.

#include <QString>
#include <QStringView>
#include <QWidget>
#include <optional>
#include <string>
#include <vector>

#include "core/models/DictionaryEntry.h"

class QCheckBox;
class QLabel;
class QLineEdit;

namespace kelvo::app {

class DictionaryEntryFormMac final : public QWidget {
    Q_OBJECT

  public:
    explicit DictionaryEntryFormMac(QWidget* parent = nullptr);

    void setEntry(const DictionaryEntry& entry);
    void clearEntry();

    const std::optional<DictionaryEntry>& entry() const noexcept { return entry_; }
    QString readingsText() const;
    QString misrecognitionsText() const;
    // The entry's canonical text, or "新規登録" while it is empty.
    QString navigationTitle() const;

    // Splits at every ASCII comma (only that character: the ideographic and full-width commas are
    // part of the text), trims spaces and tabs around each piece (line breaks are kept), drops the
    // pieces left empty and keeps the order and any duplicates.
    static std::vector<std::string> parseCommaSeparated(QStringView text);
    static QString joined(const std::vector<std::string>& items, QStringView separator);

    static constexpr const char* newEntryTitle = "新規登録";
    static constexpr const char* listSeparator = ", ";

  Q_SIGNALS:
    void entryEdited(const kelvo::DictionaryEntry& entry);
    void navigationTitleChanged(const QString& title);

  private:
    void showFields();
    void updatePreview();
    void publish();

    std::optional<DictionaryEntry> entry_;
    QLineEdit* canonicalField_;
    QCheckBox* enabledToggle_;
    QLineEdit* readingsField_;
    QLineEdit* misrecognitionsField_;
    QWidget* previewSection_;
    QLabel* previewReadingsName_;
    QLabel* previewReadings_;
    QLabel* previewMisrecognitionsName_;
    QLabel* previewMisrecognitions_;
};

}  // namespace kelvo::app
