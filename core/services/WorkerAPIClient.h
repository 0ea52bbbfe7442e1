#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/services/TranscribeResponse.h"

namespace kelvo {

/// HTTP client of the transcription and text-processing worker: `transcribe` uploads an audio
/// file as a multipart form, `process` sends text as JSON. Both block until the worker has
/// answered, the call's time limit has run out or the transfer failed, and throw:
/// `APIError` for an answer outside 2xx (a redirect included: it is never followed, so the token
/// and the text reach no other host; the error names its target), `TransportError` when no
/// answer could be had, `DecodingError` for a body that is not the expected JSON or larger than
/// `maximumAnswerBytes`, `FileError` when the audio file
/// cannot be read (nothing is sent then) and `EncodingError` when the text cannot become JSON.
///
/// Immutable after construction and holding no shared transfer state (one libcurl handle per
/// call), so one client may be shared and called from several threads at once. The tokens are
/// sent only in request headers and are hidden in the error text when a server echoes them; the
/// client never logs or prints anything.
class WorkerAPIClient {
  public:
    /// A transcript or a rewritten text is small; an answer past this size is refused as an
    /// error instead of being read into memory and kept.
    static constexpr std::size_t maximumAnswerBytes = 4 * 1024 * 1024;

    /// `baseURL` is the worker's endpoint ("https://host/v1" or "https://host/v1/"); "transcribe"
    /// and "process" are appended to it as path components. A non-empty `deviceToken` is sent
    /// instead of the bearer `authToken`. The time limits are whole-call limits in seconds.
    WorkerAPIClient(std::string baseURL, std::string authToken,
                    std::optional<std::string> deviceToken, double transcribeTimeout,
                    double processTimeout);

    /// Uploads the audio file at `audioFileURL`. Without `audioDurationSeconds` the duration is
    /// measured from the file and left out when it cannot be. Without `requestID` a fresh UUID
    /// identifies the request; an empty `requestID` sends none.
    TranscribeResponse transcribe(const std::filesystem::path& audioFileURL,
                                  const std::string& model, const std::string& language,
                                  const std::optional<std::string>& prompt,
                                  std::optional<double> audioDurationSeconds = std::nullopt,
                                  const std::optional<std::string>& requestID = std::nullopt) const;

    /// Sends `text` for rework; `summaryLevel` and `processingMode` are the worker's wire words.
    /// Returns the worker's text.
    std::string process(const std::string& text, const std::string& summaryLevel,
                        const std::string& processingMode,
                        const std::vector<std::string>& dictionaryHints,
                        const std::optional<std::string>& targetLanguage,
                        const std::optional<std::string>& requestID = std::nullopt) const;

    /// Seconds of audio in the file (frames over sample rate of its first audio stream), or
    /// nothing when the file cannot be opened as audio or its rate is unknown.
    static std::optional<double> measureAudioDurationSeconds(const std::filesystem::path& path);

    const std::string& baseURL() const noexcept { return baseURL_; }
    double transcribeTimeout() const noexcept { return transcribeTimeout_; }
    double processTimeout() const noexcept { return processTimeout_; }

  private:
    const std::string baseURL_;
    const std::string authToken_;
    const std::optional<std::string> deviceToken_;
    const double transcribeTimeout_;
    const double processTimeout_;
};

}  // namespace kelvo
