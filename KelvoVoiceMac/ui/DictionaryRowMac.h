#pragma once

// DictionaryRowMac shows one dictionary entry in the sidebar list, read only: a dot that is green
// for an enabled entry and faint grey for a disabled one, the canonical text ("(未入力)" while it
// is empty) and, when there are readings, the readings joined by " / " below it in small secondary
// text. The row keeps no reference to the entry; setEntry() redraws it from a new value. Owned by
// the list that shows it; main thread only.

#include <QWidget>

#include "core/models/DictionaryEntry.h"

class QLabel;

namespace kelvo::app {

class DictionaryRowMac final : public QWidget {
    Q_OBJECT

  public:
    explicit DictionaryRowMac(const DictionaryEntry& entry, QWidget* parent = nullptr);

    void setEntry(const DictionaryEntry& entry);
    // Draws the texts in the highlighted-text colour while the list shows the row selected.
    void setSelected(bool selected);

    static constexpr const char* emptyCanonicalText = "(未入力)";
    static constexpr const char* readingsSeparator = " / ";

  private:
    void applyColors();

    bool selected_ = false;
    QLabel* dot_;
    QLabel* canonicalLabel_;
    QLabel* readingsLabel_;
};

}  // namespace kelvo::app
