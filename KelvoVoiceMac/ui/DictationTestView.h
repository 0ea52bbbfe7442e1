#pragma once

// DictationTestView is the application's main window: a place to try dictation without inserting
// text anywhere. It drives its own microphone capture and recogniser directly, bypassing the
// dictation session (no dictionary corrections, no filler removal), and shows the confirmed text
// (final segments, one per line) followed by the live partial hypothesis. "Start Dictation" starts
// capture and recognition; "Stop" keeps a showing partial as confirmed text, stops the capture and
// lets the recogniser finish in the background; "Clear" empties the text. A capture that cannot
// start shows its error in red under the text.
//
// The view owns its capture and recogniser (separate instances from the session's). Main thread
// only: the dictation loop is a coroutine that resumes on the main thread for every event. Destroy
// the view while it is not recording, after a stopped recogniser has finished (the application
// keeps it for the life of the process).

#include <QCoroTask>
#include <QWidget>
#include <cstdint>
#include <memory>
#include <string>

#include "KelvoVoiceMac/session/DictationAudioSource.h"
#include "KelvoVoiceMac/session/DictationRecognizer.h"

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace kelvo::app {

class DictationTestView final : public QWidget {
    Q_OBJECT

  public:
    DictationTestView(std::unique_ptr<DictationAudioSource> audioCaptureService,
                      std::unique_ptr<DictationRecognizer> speechService,
                      QWidget* parent = nullptr);
    ~DictationTestView() override;

    bool isRecording() const noexcept { return isRecording_; }
    const std::string& confirmedText() const noexcept { return confirmedText_; }
    const std::string& currentPartial() const noexcept { return currentPartial_; }
    const std::string& errorMessage() const noexcept { return errorMessage_; }
    // The confirmed text, a line break and the partial; either alone when the other is empty.
    std::string displayedText() const;

    // The main button's action: stops while recording, else starts.
    void toggleDictation();
    void clear();

    static constexpr const char* title = "KelvoVoice for Mac";
    static constexpr const char* placeholder = "Start Dictation to begin...";

  Q_SIGNALS:
    // After every change of the state shown.
    void stateChanged();

  protected:
    // Closing the window stops a running test dictation: the microphone is never left open behind
    // a window the user no longer sees.
    void closeEvent(QCloseEvent* event) override;

  private:
    void start();
    void stop();
    QCoro::Task<> runTranscription(std::uint64_t generation);
    QCoro::Task<> finishRecognizer();
    void appendConfirmed(const std::string& segment);
    void refresh();

    bool isRecording_ = false;
    std::string confirmedText_;
    std::string currentPartial_;
    std::unique_ptr<DictationAudioSource> audioCaptureService_;
    std::unique_ptr<DictationRecognizer> speechService_;
    // The running dictation loop is the one launched with this generation; a stop moves it on,
    // which is how the loop learns it was cancelled.
    std::uint64_t generation_ = 0;
    bool isStarting_ = false;
    std::string errorMessage_;

    QPushButton* clearButton_;
    QPushButton* mainButton_;
    QPlainTextEdit* textArea_;
    QLabel* errorLabel_;
};

}  // namespace kelvo::app
