#include "core/services/WorkerAPIClient.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

#include "core/models/Json.h"
#include "core/services/ProcessResponse.h"
#include "core/services/TransportError.h"
#include "core/services/WorkerAnswer.h"
#include "core/support/Error.h"
#include "core/support/Uuid.h"

namespace kelvo {
namespace {

constexpr std::string_view kCrLf = "\r\n";

using HeaderMap = std::map<std::string, std::string>;

struct CurlHandleDeleter {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct CurlListDeleter {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
struct FormatContextDeleter {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};
struct FileDescriptor {
    int fd = -1;
    ~FileDescriptor() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

// curl_global_init is not guaranteed thread-safe on every build, and the client may be created
// from several threads; run it once per process.
void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::string appendPathComponent(const std::string& baseURL, std::string_view component) {
    // A query or fragment on the endpoint stays after the path.
    const std::size_t pathEnd = std::min(baseURL.find('?'), baseURL.find('#'));
    std::string path = baseURL.substr(0, pathEnd);
    if (path.empty() || path.back() != '/') {
        path += '/';
    }
    path += component;
    if (pathEnd != std::string::npos) {
        path += baseURL.substr(pathEnd);
    }
    return path;
}

// "%.3f" in the POSIX locale whatever the process locale is: to_chars never looks at it.
std::string formatDurationSeconds(double seconds) {
    char buffer[64];
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, seconds, std::chars_format::fixed, 3);
    return std::string(buffer, result.ptr);
}

long timeoutMilliseconds(double seconds) {
    if (std::isnan(seconds) || seconds >= static_cast<double>(LONG_MAX) / 1000.0) {
        return 0;  // no limit
    }
    // curl reads 0 as "no limit", so an exhausted limit must still be at least a millisecond.
    return std::max(1L, std::lround(seconds * 1000.0));
}

HeaderMap commonHeaders(const std::string& authToken, const std::optional<std::string>& deviceToken,
                        std::optional<double> audioDurationSeconds, const std::string& requestID) {
    HeaderMap headers;
    if (deviceToken && !deviceToken->empty()) {
        headers["X-Device-Token"] = *deviceToken;
    } else if (!authToken.empty()) {
        headers["Authorization"] = "Bearer " + authToken;
    }
    if (audioDurationSeconds) {
        headers["X-Audio-Duration-Seconds"] = formatDurationSeconds(*audioDurationSeconds);
    }
    if (!requestID.empty()) {
        headers["X-Request-Id"] = requestID;
    }
    return headers;
}

TransportError::Kind transportErrorKind(CURLcode code) {
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return TransportError::Kind::timedOut;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_CONNECT:
            return TransportError::Kind::cannotConnect;
        case CURLE_GOT_NOTHING:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
        case CURLE_PARTIAL_FILE:
            return TransportError::Kind::connectionLost;
        default:
            return TransportError::Kind::other;
    }
}

// What a transfer collects: the answer, and whether it was cut off for its size.
struct Transfer {
    WorkerAnswer answer;
    bool tooLarge = false;
};

size_t appendToBody(char* data, size_t size, size_t count, void* userData) {
    auto& transfer = *static_cast<Transfer*>(userData);
    const std::size_t bytes = size * count;
    if (bytes > WorkerAPIClient::maximumAnswerBytes - transfer.answer.body.size()) {
        transfer.tooLarge = true;
        return 0;  // makes curl abort the transfer with CURLE_WRITE_ERROR
    }
    try {
        transfer.answer.body.append(data, bytes);
        return bytes;
    } catch (...) {
        return 0;
    }
}

// `body` is handed to curl by pointer, not copied: it must outlive the call, which it does.
WorkerAnswer postRequest(const std::string& url, const HeaderMap& headers, const std::string& body,
                         double timeoutSeconds) {
    initialiseCurlOnce();
    const std::unique_ptr<CURL, CurlHandleDeleter> handle(curl_easy_init());
    if (!handle) {
        throw TransportError(TransportError::Kind::other, CURLE_FAILED_INIT,
                             curl_easy_strerror(CURLE_FAILED_INIT));
    }
    std::unique_ptr<curl_slist, CurlListDeleter> headerList;
    const auto addHeader = [&headerList](const std::string& line) {
        curl_slist* const extended = curl_slist_append(headerList.get(), line.c_str());
        if (!extended) {
            throw std::bad_alloc();
        }
        headerList.release();
        headerList.reset(extended);
    };
    for (const auto& [name, value] : headers) {
        // A line break inside a value (a pasted token, a caller's request id) would let it add
        // headers of its own; refuse before anything is sent.
        if (value.find_first_of("\r\n") != std::string::npos) {
            throw EncodingError("The value of the " + name + " header contains a line break");
        }
        addHeader(name + ": " + value);
    }
    // curl would otherwise announce large uploads with "Expect: 100-continue" and wait for the
    // interim answer; the worker contract has no such header.
    addHeader("Expect:");

    Transfer transfer;
    char errorBuffer[CURL_ERROR_SIZE] = {};
    CURL* const h = handle.get();
    curl_easy_setopt(h, CURLOPT_URL, url.c_str());
    curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
    // The token and the dictated words go only to the endpoint the user named: a redirect is
    // reported, never followed (following could hand them to another host or drop to http).
    curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, headerList.get());
    curl_easy_setopt(h, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, timeoutMilliseconds(timeoutSeconds));
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &appendToBody);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, errorBuffer);

    const CURLcode code = curl_easy_perform(h);
    if (transfer.tooLarge) {
        throw DecodingError("The worker's answer is larger than " +
                            std::to_string(WorkerAPIClient::maximumAnswerBytes / (1024 * 1024)) +
                            " MB; a transcript is never that large, so it was refused");
    }
    if (code != CURLE_OK) {
        const std::string message = errorBuffer[0] != '\0' ? errorBuffer : curl_easy_strerror(code);
        throw TransportError(transportErrorKind(code), code, message);
    }
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &transfer.answer.statusCode);
    const char* redirect = nullptr;
    if (curl_easy_getinfo(h, CURLINFO_REDIRECT_URL, &redirect) == CURLE_OK && redirect) {
        transfer.answer.redirectTarget = redirect;
    }
    return std::move(transfer.answer);
}

void appendTextField(std::string& out, std::string_view boundary, std::string_view name,
                     std::string_view value) {
    out.append("--").append(boundary).append(kCrLf);
    out.append("Content-Disposition: form-data; name=\"").append(name).append("\"");
    out.append(kCrLf).append(kCrLf);
    out.append(value).append(kCrLf);
}

[[noreturn]] void throwFileError(const std::filesystem::path& path, int error) {
    throw FileError("Could not read \"" + path.string() + "\": " + std::strerror(error));
}

// The whole form in one buffer sized up front, the file read straight into its place: a large
// recording is held in memory once, never copied.
std::string buildMultipartBody(const std::filesystem::path& audioFile, const std::string& boundary,
                               const std::string& model, const std::string& language,
                               const std::optional<std::string>& prompt) {
    const std::string fileName = audioFile.filename().string();
    const std::string_view contentType =
        fileName.ends_with(".wav") ? std::string_view("audio/wav") : std::string_view("audio/m4a");

    std::string head;
    head.append("--").append(boundary).append(kCrLf);
    head.append("Content-Disposition: form-data; name=\"file\"; filename=\"")
        .append(fileName)
        .append("\"")
        .append(kCrLf);
    head.append("Content-Type: ").append(contentType).append(kCrLf).append(kCrLf);

    std::string tail(kCrLf);
    appendTextField(tail, boundary, "model", model);
    if (!language.empty()) {
        appendTextField(tail, boundary, "language", language);
    }
    if (prompt) {
        appendTextField(tail, boundary, "prompt", *prompt);
    }
    tail.append("--").append(boundary).append("--").append(kCrLf);

    FileDescriptor file;
    file.fd = ::open(audioFile.c_str(), O_RDONLY | O_CLOEXEC);
    if (file.fd < 0) {
        throwFileError(audioFile, errno);
    }
    struct stat status {};
    if (::fstat(file.fd, &status) != 0) {
        throwFileError(audioFile, errno);
    }
    const auto fileSizeBytes = static_cast<std::size_t>(status.st_size);

    std::string body;
    body.reserve(head.size() + fileSizeBytes + tail.size());
    body.append(head);
    body.resize(head.size() + fileSizeBytes);
    std::size_t readBytes = 0;
    while (readBytes < fileSizeBytes) {
        const ssize_t got =
            ::read(file.fd, body.data() + head.size() + readBytes, fileSizeBytes - readBytes);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwFileError(audioFile, errno);
        }
        if (got == 0) {
            break;  // the file shrank after fstat: send what it holds now
        }
        readBytes += static_cast<std::size_t>(got);
    }
    body.resize(head.size() + readBytes);
    body.append(tail);
    return body;
}

// The container format when the file's first bytes clearly show one. Letting libavformat guess
// on its own writes warnings to standard error for every file that is not audio; a silent probe
// here keeps "the duration is unknown" silent, as it is meant to be.
const AVInputFormat* recognisedContainer(const std::filesystem::path& path) {
    constexpr std::size_t kProbeBytes = 4096;
    FileDescriptor file;
    file.fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file.fd < 0) {
        return nullptr;
    }
    std::vector<unsigned char> buffer(kProbeBytes + AVPROBE_PADDING_SIZE, 0);
    const ssize_t got = ::read(file.fd, buffer.data(), kProbeBytes);
    if (got <= 0) {
        return nullptr;
    }
    const std::string fileName = path.string();
    AVProbeData probe{};
    probe.filename = fileName.c_str();
    probe.buf = buffer.data();
    probe.buf_size = static_cast<int>(got);
    int score = 0;
    const AVInputFormat* const format = av_probe_input_format3(&probe, 1, &score);
    return score >= AVPROBE_SCORE_RETRY ? format : nullptr;
}

}  // namespace

WorkerAPIClient::WorkerAPIClient(std::string baseURL, std::string authToken,
                                 std::optional<std::string> deviceToken, double transcribeTimeout,
                                 double processTimeout)
    : baseURL_(std::move(baseURL)),
      authToken_(std::move(authToken)),
      deviceToken_(std::move(deviceToken)),
      transcribeTimeout_(transcribeTimeout),
      processTimeout_(processTimeout) {
    initialiseCurlOnce();
}

TranscribeResponse WorkerAPIClient::transcribe(const std::filesystem::path& audioFileURL,
                                               const std::string& model,
                                               const std::string& language,
                                               const std::optional<std::string>& prompt,
                                               std::optional<double> audioDurationSeconds,
                                               const std::optional<std::string>& requestID) const {
    const std::string boundary = "Kelvo-" + makeUuid();
    const std::string url = appendPathComponent(baseURL_, "transcribe");
    if (!audioDurationSeconds) {
        audioDurationSeconds = measureAudioDurationSeconds(audioFileURL);
    }
    HeaderMap headers = commonHeaders(authToken_, deviceToken_, audioDurationSeconds,
                                      requestID ? *requestID : makeUuid());
    headers["Content-Type"] = "multipart/form-data; boundary=" + boundary;
    const std::string body = buildMultipartBody(audioFileURL, boundary, model, language, prompt);

    const WorkerAnswer answer = postRequest(url, headers, body, transcribeTimeout_);
    answer.checkStatus(authToken_, deviceToken_);
    return answer.decodedBody<TranscribeResponse>();
}

std::string WorkerAPIClient::process(const std::string& text, const std::string& summaryLevel,
                                     const std::string& processingMode,
                                     const std::vector<std::string>& dictionaryHints,
                                     const std::optional<std::string>& targetLanguage,
                                     const std::optional<std::string>& requestID) const {
    const std::string url = appendPathComponent(baseURL_, "process");
    HeaderMap headers =
        commonHeaders(authToken_, deviceToken_, std::nullopt, requestID ? *requestID : makeUuid());
    headers["Content-Type"] = "application/json";

    Json payload = Json::object();
    payload["text"] = text;
    payload["summaryLevel"] = summaryLevel;
    payload["processingMode"] = processingMode;
    payload["dictionaryHints"] = dictionaryHints;
    if (targetLanguage && !targetLanguage->empty()) {
        payload["targetLanguage"] = *targetLanguage;
    }
    std::string body;
    try {
        body = payload.dump(-1, ' ', false, Json::error_handler_t::strict);
    } catch (const Json::exception& error) {
        throw EncodingError(error.what());
    }

    const WorkerAnswer answer = postRequest(url, headers, body, processTimeout_);
    answer.checkStatus(authToken_, deviceToken_);
    return answer.decodedBody<ProcessResponse>().text;
}

std::optional<double> WorkerAPIClient::measureAudioDurationSeconds(
    const std::filesystem::path& path) {
    const AVInputFormat* const format = recognisedContainer(path);
    if (format == nullptr) {
        return std::nullopt;
    }
    AVFormatContext* opened = nullptr;
    // The "file:" prefix keeps a name such as "rtp:take.wav" from being read as a protocol.
    const std::string location = "file:" + path.string();
    if (avformat_open_input(&opened, location.c_str(), format, nullptr) < 0) {
        return std::nullopt;
    }
    const std::unique_ptr<AVFormatContext, FormatContextDeleter> context(opened);
    const auto audioStream = [&context]() -> const AVStream* {
        const int index =
            av_find_best_stream(context.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
        return index < 0 ? nullptr : context->streams[index];
    };
    const auto known = [](const AVStream* stream) {
        return stream && stream->codecpar->sample_rate > 0 && stream->duration != AV_NOPTS_VALUE;
    };
    // Containers with a header (WAV, MP4/M4A) tell rate and length on opening. Reading packets
    // to find out costs several megabytes of buffering on a long recording, so that is done
    // only for the formats that need it.
    const AVStream* stream = audioStream();
    if (!known(stream)) {
        if (avformat_find_stream_info(context.get(), nullptr) < 0) {
            return std::nullopt;
        }
        stream = audioStream();
    }
    if (!stream) {
        return std::nullopt;
    }
    const int sampleRate = stream->codecpar->sample_rate;
    if (sampleRate <= 0) {
        return std::nullopt;
    }
    std::int64_t frames = 0;
    if (stream->duration != AV_NOPTS_VALUE && stream->duration >= 0) {
        frames = av_rescale_q(stream->duration, stream->time_base, AVRational{1, sampleRate});
    } else if (context->duration != AV_NOPTS_VALUE && context->duration >= 0) {
        frames =
            av_rescale_q(context->duration, AVRational{1, AV_TIME_BASE}, AVRational{1, sampleRate});
    } else {
        return std::nullopt;
    }
    return static_cast<double>(frames) / static_cast<double>(sampleRate);
}

}  // namespace kelvo
