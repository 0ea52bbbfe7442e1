#include "KelvoVoiceMac/ui/DictationTestView.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>
#include <exception>

#include "KelvoVoiceMac/ui/SymbolImage.h"
#include "KelvoVoiceMac/ui/WindowStyle.h"

namespace kelvo::app {
namespace {

// The original platform's red and blue.
const QColor kRecordingTint(0xFF, 0x3B, 0x30);
const QColor kIdleTint(0x00, 0x7A, 0xFF);
constexpr int kMainSymbolPixels = 26;

}  // namespace

DictationTestView::DictationTestView(std::unique_ptr<DictationAudioSource> audioCaptureService,
                                     std::unique_ptr<DictationRecognizer> speechService,
                                     QWidget* parent)
    : QWidget(parent),
      audioCaptureService_(std::move(audioCaptureService)),
      speechService_(std::move(speechService)),
      clearButton_(new QPushButton(QStringLiteral("Clear"), this)),
      mainButton_(new QPushButton(this)),
      textArea_(new QPlainTextEdit(this)),
      errorLabel_(new QLabel(this)) {
    WindowStyle::useJapaneseFont(*this);
    setWindowTitle(QStringLiteral("KelvoVoice"));
    setObjectName(QStringLiteral("dictationTestWindow"));

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(8, 8, 8, 8);
    column->setSpacing(8);

    auto* header = new QHBoxLayout;
    auto* heading = new QLabel(QString::fromUtf8(title), this);
    WindowStyle::setTextStyle(*heading, WindowStyle::TextStyle::title2, true);
    clearButton_->setObjectName(QStringLiteral("clearButton"));
    clearButton_->setFlat(true);
    clearButton_->setCursor(Qt::PointingHandCursor);
    WindowStyle::setTextColor(*clearButton_, WindowStyle::secondaryTextColor(*this));
    header->addWidget(heading, 1);
    header->addWidget(clearButton_);
    column->addLayout(header);

    mainButton_->setObjectName(QStringLiteral("dictationButton"));
    mainButton_->setFlat(true);
    mainButton_->setCursor(Qt::PointingHandCursor);
    mainButton_->setIconSize(QSize(kMainSymbolPixels, kMainSymbolPixels));
    WindowStyle::setTextStyle(*mainButton_, WindowStyle::TextStyle::title3);
    column->addWidget(mainButton_, 0, Qt::AlignLeft);

    textArea_->setObjectName(QStringLiteral("transcript"));
    textArea_->setReadOnly(true);
    textArea_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    textArea_->setPlaceholderText(QString::fromUtf8(placeholder));
    QPalette textPalette = textArea_->palette();
    textPalette.setColor(QPalette::PlaceholderText, WindowStyle::tertiaryTextColor(*this));
    textArea_->setPalette(textPalette);
    column->addWidget(textArea_, 1);

    errorLabel_->setObjectName(QStringLiteral("errorMessage"));
    errorLabel_->setTextFormat(Qt::PlainText);
    errorLabel_->setWordWrap(true);
    WindowStyle::setTextStyle(*errorLabel_, WindowStyle::TextStyle::caption);
    WindowStyle::setTextColor(*errorLabel_, kRecordingTint);
    column->addWidget(errorLabel_);

    connect(clearButton_, &QPushButton::clicked, this, [this] { clear(); });
    connect(mainButton_, &QPushButton::clicked, this, [this] { toggleDictation(); });

    setMinimumSize(360, 260);
    resize(420, 320);
    refresh();
}

DictationTestView::~DictationTestView() {
    // Ends the loop's interest in its stream; the capture must not outlive its reader's owner.
    ++generation_;
    audioCaptureService_->stop();
}

std::string DictationTestView::displayedText() const {
    if (currentPartial_.empty()) {
        return confirmedText_;
    }
    if (confirmedText_.empty()) {
        return currentPartial_;
    }
    return confirmedText_ + "\n" + currentPartial_;
}

void DictationTestView::toggleDictation() {
    if (isRecording_) {
        stop();
    } else {
        start();
    }
}

void DictationTestView::closeEvent(QCloseEvent* event) {
    if (isRecording_) {
        stop();
    } else if (isStarting_) {
        // The start still running sees the new generation and closes what it opened.
        ++generation_;
        isStarting_ = false;
        refresh();
    }
    QWidget::closeEvent(event);
}

void DictationTestView::clear() {
    confirmedText_.clear();
    currentPartial_.clear();
    refresh();
}

void DictationTestView::start() {
    // While the microphone opens, the button waits: a second capture would only fail with
    // "Already recording".
    if (isStarting_) {
        return;
    }
    errorMessage_.clear();
    isStarting_ = true;
    refresh();
    runTranscription(++generation_);
}

void DictationTestView::stop() {
    if (!currentPartial_.empty()) {
        appendConfirmed(currentPartial_);
        currentPartial_.clear();
    }
    ++generation_;
    audioCaptureService_->stop();
    finishRecognizer();
    isRecording_ = false;
    refresh();
}

QCoro::Task<> DictationTestView::runTranscription(std::uint64_t generation) {
    QPointer<DictationTestView> self(this);
    std::shared_ptr<Channel<AudioBuffer>> audio;
    try {
        audio = co_await audioCaptureService_->start();
    } catch (const std::exception& error) {
        if (self && generation == generation_) {
            isStarting_ = false;
            errorMessage_ = error.what();
            isRecording_ = false;
            refresh();
        }
        co_return;
    }
    if (!self) {
        co_return;
    }
    if (generation != generation_) {
        audioCaptureService_->stop();
        co_return;
    }
    auto events = speechService_->startTranscription(std::move(audio));
    isStarting_ = false;
    isRecording_ = true;
    refresh();
    while (auto event = co_await events->next()) {
        if (!self || generation != generation_) {
            co_return;
        }
        if (event->kind == TranscriptionEvent::Kind::partial) {
            currentPartial_ = std::move(event->text);
        } else {
            appendConfirmed(event->text);
            currentPartial_.clear();
        }
        refresh();
    }
    if (!self || generation != generation_) {
        co_return;
    }
    // The recogniser ended on its own (an error or the end of its input): release the
    // microphone too, so the next start finds it free.
    audioCaptureService_->stop();
    isRecording_ = false;
    refresh();
}

QCoro::Task<> DictationTestView::finishRecognizer() {
    co_await speechService_->stop();
}

void DictationTestView::appendConfirmed(const std::string& segment) {
    confirmedText_ = confirmedText_.empty() ? segment : confirmedText_ + "\n" + segment;
}

void DictationTestView::refresh() {
    const QColor tint = isRecording_ ? kRecordingTint : kIdleTint;
    mainButton_->setIcon(SymbolImage::icon(
        isRecording_ ? QStringLiteral("stop.circle.fill") : QStringLiteral("mic.circle.fill"), tint,
        kMainSymbolPixels));
    mainButton_->setText(isRecording_ ? QStringLiteral("Stop") : QStringLiteral("Start Dictation"));
    WindowStyle::setTextColor(*mainButton_, tint);
    mainButton_->setEnabled(!isStarting_);

    const QString shown = QString::fromStdString(displayedText());
    if (textArea_->toPlainText() != shown) {
        textArea_->setPlainText(shown);
        textArea_->verticalScrollBar()->setValue(textArea_->verticalScrollBar()->maximum());
    }
    errorLabel_->setText(QString::fromStdString(errorMessage_));
    errorLabel_->setVisible(!errorMessage_.empty());
    Q_EMIT stateChanged();
}

}  // namespace kelvo::app
