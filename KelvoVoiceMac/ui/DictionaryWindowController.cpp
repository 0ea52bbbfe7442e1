#include "KelvoVoiceMac/ui/DictionaryWindowController.h"

#include <QVBoxLayout>

#include "KelvoVoiceMac/ui/CorrectionSuggestionsPanelMac.h"
#include "KelvoVoiceMac/ui/DictionaryEditViewMac.h"

namespace kelvo::app {

DictionaryWindowController::DictionaryWindowController(
    std::shared_ptr<DictionaryStore> dictionaryStore,
    std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine,
    std::shared_ptr<JSONSuggestionStore> suggestions, platform::Preferences* preferences)
    : window_(std::make_unique<QWidget>()),
      editView_(new DictionaryEditViewMac(std::move(dictionaryStore), std::move(dictionaryEngine),
                                          window_.get())) {
    window_->setWindowTitle(QString::fromUtf8(windowTitle));
    window_->setObjectName(QStringLiteral("dictionaryWindow"));
    // Without WA_DeleteOnClose (the default) closing hides the window and keeps its state.
    window_->setAttribute(Qt::WA_DeleteOnClose, false);
    auto* layout = new QVBoxLayout(window_.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(editView_, 1);
    if (suggestions && preferences) {
        layout->addWidget(new CorrectionSuggestionsPanelMac(std::move(suggestions), *editView_,
                                                            *preferences, window_.get()));
    }
    window_->setMinimumSize(640, 420);
    window_->resize(760, 520);
}

DictionaryWindowController::~DictionaryWindowController() = default;

void DictionaryWindowController::show() {
    if (window_->isMinimized()) {
        window_->showNormal();
    } else {
        window_->show();
    }
    window_->raise();
    window_->activateWindow();
}

}  // namespace kelvo::app
