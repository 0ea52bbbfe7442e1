#include "core/services/ModelInstallation.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "core/models/Json.h"
#include "core/services/JsonFile.h"
#include "core/services/ModelInstallationError.h"
#include "core/support/AtomicFile.h"

namespace kelvo {
namespace {

using Kind = ModelInstallationError::Kind;

struct CurlHandleDeleter {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct DigestContextDeleter {
    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

bool isOutOfSpace(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

std::optional<std::uint64_t> parseNumber(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end == text.data()) {
        return std::nullopt;
    }
    return value;
}

std::uint64_t availableBytes(const std::filesystem::path& folder) {
    struct statvfs info {};
    if (::statvfs(folder.c_str(), &info) != 0) {
        return UINT64_MAX;  // unknown: let the writes tell
    }
    return static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize;
}

std::string hexDigest(int fd, const EVP_MD* algorithm) {
    const std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), algorithm, nullptr) != 1) {
        throw std::bad_alloc();
    }
    std::vector<unsigned char> buffer(1 << 20);
    off_t offset = 0;
    for (;;) {
        const ssize_t got = ::pread(fd, buffer.data(), buffer.size(), offset);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw ModelInstallationError(
                Kind::noSpace,
                std::string("Could not read the download back: ") + std::strerror(errno));
        }
        if (got == 0) {
            break;
        }
        EVP_DigestUpdate(context.get(), buffer.data(), static_cast<std::size_t>(got));
        offset += got;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context.get(), digest, &length);
    static constexpr char kHex[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += kHex[digest[i] >> 4];
        text += kHex[digest[i] & 0x0f];
    }
    return text;
}

void syncFolder(const std::filesystem::path& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// What one curl transfer learns and does; shared with its callbacks.
struct Transfer {
    ModelInstallation* installation = nullptr;
    CURL* handle = nullptr;
    int fd = -1;
    std::uint64_t existingBytes = 0;
    std::uint64_t writtenBytes = 0;
    std::filesystem::path folder;
    std::atomic<std::uint64_t>* bytesOnDisk = nullptr;
    std::atomic<std::uint64_t>* totalBytes = nullptr;
    const std::atomic<bool>* cancelled = nullptr;
    std::uint64_t maximumBytes = UINT64_MAX;
    std::chrono::steady_clock::time_point started;
    std::chrono::milliseconds slowStartAllowance{0};
    std::uint64_t minimumBytesPerSecond = 0;

    bool bodyStarted = false;
    long status = 0;
    // From the last "Content-Range" header of the final response.
    std::optional<std::uint64_t> rangeStart;
    std::optional<std::uint64_t> rangeTotal;
    // Why the write callback stopped the transfer.
    bool rangeMismatch = false;
    bool noRoom = false;
    bool tooLarge = false;
    bool tooSlow = false;
    int writeErrno = 0;
};

std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) {
        // A new response (after a redirect): forget what the previous one said.
        transfer.rangeStart.reset();
        transfer.rangeTotal.reset();
        return line.size();
    }
    constexpr std::string_view kContentRange = "content-range:";
    if (line.size() > kContentRange.size()) {
        std::string name(line.substr(0, kContentRange.size()));
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (name == kContentRange) {
            // "bytes 100-999/1000" or "bytes */1000"
            std::string_view value = line.substr(kContentRange.size());
            const std::size_t bytes = value.find("bytes");
            const std::size_t slash = value.find('/');
            if (bytes != std::string_view::npos && slash != std::string_view::npos) {
                const std::string_view range = value.substr(bytes + 5, slash - bytes - 5);
                const std::size_t first = range.find_first_not_of(' ');
                if (first != std::string_view::npos && range[first] != '*') {
                    transfer.rangeStart = parseNumber(range.substr(first));
                }
                transfer.rangeTotal = parseNumber(value.substr(slash + 1));
            }
        }
    }
    return line.size();
}

// Decides, at the first byte of the body, whether and where the body goes into the file.
bool startBody(Transfer& transfer) {
    curl_easy_getinfo(transfer.handle, CURLINFO_RESPONSE_CODE, &transfer.status);
    if (transfer.status != 200 && transfer.status != 206) {
        return true;  // an error page: read and ignore it, the status decides afterwards
    }
    if (transfer.status == 206 && transfer.rangeStart != transfer.existingBytes) {
        transfer.rangeMismatch = true;
        return false;
    }
    if (transfer.status == 200 && transfer.existingBytes > 0) {
        // The server ignored the range: start the file over.
        if (::ftruncate(transfer.fd, 0) != 0) {
            transfer.writeErrno = errno;
            return false;
        }
        transfer.existingBytes = 0;
    }
    curl_off_t length = -1;
    curl_easy_getinfo(transfer.handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    std::uint64_t total = 0;
    if (transfer.status == 206 && transfer.rangeTotal) {
        total = *transfer.rangeTotal;
    } else if (length >= 0) {
        total = transfer.existingBytes + static_cast<std::uint64_t>(length);
    }
    if (total > 0) {
        transfer.totalBytes->store(total);
        if (total > transfer.existingBytes &&
            availableBytes(transfer.folder) < total - transfer.existingBytes) {
            transfer.noRoom = true;
            return false;
        }
    }
    return true;
}

std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const std::size_t length = size * count;
    if (!transfer.bodyStarted) {
        transfer.bodyStarted = true;
        if (!startBody(transfer)) {
            return 0;
        }
    }
    if (transfer.status != 200 && transfer.status != 206) {
        return length;
    }
    // Also when the server announced no length, or a false one: a model never outgrows its size.
    if (transfer.existingBytes + transfer.writtenBytes + length > transfer.maximumBytes) {
        transfer.tooLarge = true;
        return 0;
    }
    std::size_t done = 0;
    while (done < length) {
        const off_t offset = static_cast<off_t>(transfer.existingBytes + transfer.writtenBytes);
        const ssize_t wrote = ::pwrite(transfer.fd, data + done, length - done, offset);
        if (wrote < 0) {
            if (errno == EINTR) {
                continue;
            }
            transfer.writeErrno = errno;
            return 0;
        }
        done += static_cast<std::size_t>(wrote);
        transfer.writtenBytes += static_cast<std::size_t>(wrote);
    }
    transfer.bytesOnDisk->store(transfer.existingBytes + transfer.writtenBytes);
    return length;
}

int onProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto& transfer = *static_cast<Transfer*>(user);
    if (transfer.cancelled->load()) {
        return 1;
    }
    const auto late =
        std::chrono::steady_clock::now() - transfer.started - transfer.slowStartAllowance;
    if (late > std::chrono::steady_clock::duration::zero()) {
        const double required = static_cast<double>(transfer.minimumBytesPerSecond) *
                                std::chrono::duration<double>(late).count();
        if (static_cast<double>(transfer.writtenBytes) < required) {
            transfer.tooSlow = true;
            return 1;
        }
    }
    return 0;
}

std::uint32_t littleEndian32(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    }
    return value;
}

std::string megabytes(std::uint64_t bytes) {
    return std::to_string((bytes + 999'999) / 1'000'000) + " MB";
}

}  // namespace

std::uint64_t ModelInstallation::maximumBytes(const ModelCatalogEntry& entry) {
    constexpr std::uint64_t kMiB = 1024 * 1024;
    return entry.sizeIsExact ? entry.sizeBytes : entry.sizeBytes + entry.sizeBytes / 10 + kMiB;
}

bool ModelInstallation::looksLikeWhisperModel(std::string_view header) {
    // whisper.cpp's loader reads a little-endian magic, then n_vocab, n_audio_ctx, n_audio_state,
    // n_audio_head, n_audio_layer, n_text_ctx, n_text_state, n_text_head, n_text_layer, n_mels
    // and ftype as 32-bit integers. The bounds are loose: any model whisper.cpp ships or
    // converts passes, while a web page, an archive or random bytes do not.
    constexpr std::uint32_t kMagic = 0x67676d6c;
    constexpr std::size_t kHeaderBytes = 4 + 11 * 4;
    if (header.size() < kHeaderBytes || littleEndian32(header, 0) != kMagic) {
        return false;
    }
    std::int32_t p[11];
    for (std::size_t i = 0; i < 11; ++i) {
        p[i] = static_cast<std::int32_t>(littleEndian32(header, 4 + 4 * i));
    }
    const auto within = [](std::int32_t value, std::int32_t low, std::int32_t high) {
        return value >= low && value <= high;
    };
    const std::int32_t ftype = p[10] % 1000;  // the rest counts the quantisation version
    return within(p[0], 1000, 1'000'000) && within(p[1], 1, 1 << 16) && within(p[2], 1, 1 << 16) &&
           within(p[3], 1, 1024) && within(p[4], 1, 1024) && within(p[5], 1, 1 << 16) &&
           p[6] == p[2] && within(p[7], 1, 1024) && within(p[8], 1, 1024) &&
           within(p[9], 1, 1024) && p[10] >= 0 && ftype <= 64;
}

ModelInstallation::ModelInstallation(const ModelInventory& inventory, ModelCatalogEntry entry)
    : ModelInstallation(inventory, std::move(entry), Options{}) {}

ModelInstallation::ModelInstallation(const ModelInventory& inventory, ModelCatalogEntry entry,
                                     Options options)
    : inventory_(inventory), entry_(std::move(entry)), options_(options) {}

double ModelInstallation::fractionCompleted() const noexcept {
    const std::uint64_t total = totalBytes_ ? totalBytes_.load() : entry_.sizeBytes;
    if (total == 0) {
        return 0.0;
    }
    return std::min(1.0, static_cast<double>(bytesOnDisk_) / static_cast<double>(total));
}

void ModelInstallation::run() {
    if (inventory_.isInstalled(entry_)) {
        bytesOnDisk_ = totalBytes_ = std::max<std::uint64_t>(entry_.sizeBytes, 1);
        return;
    }
    std::error_code folderError;
    std::filesystem::create_directories(inventory_.modelsFolder(), folderError);
    if (folderError) {
        throw FileError("Could not create " + inventory_.modelsFolder().string() + ": " +
                        folderError.message());
    }
    const std::filesystem::path partial = inventory_.partialFile(entry_);
    const FileDescriptor file(::open(partial.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (file.get() < 0) {
        const int error = errno;
        throw ModelInstallationError(
            Kind::noSpace, "Could not create " + partial.string() + ": " + std::strerror(error));
    }
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        throw ModelInstallationError(Kind::alreadyRunning,
                                     "Model " + entry_.name + " is already being installed");
    }
    // Another process may have finished and renamed the file while this one waited to open it.
    if (inventory_.isInstalled(entry_)) {
        return;
    }

    struct stat info {};
    ::fstat(file.get(), &info);
    std::uint64_t existing = static_cast<std::uint64_t>(info.st_size);
    if (existing > maximumBytes(entry_)) {
        ::ftruncate(file.get(), 0);
        existing = 0;
    }
    bytesOnDisk_ = existing;
    try {
        download(file.get(), existing);
    } catch (const ModelInstallationError&) {
        // A download that never got a byte leaves nothing behind.
        struct stat after {};
        if (::fstat(file.get(), &after) == 0 && after.st_size == 0) {
            ::unlink(partial.c_str());
        }
        throw;
    }
}

void ModelInstallation::download(int fd, std::uint64_t existing) {
    const std::filesystem::path partial = inventory_.partialFile(entry_);
    if (!(entry_.sizeIsExact && existing == entry_.sizeBytes)) {
        if (transfer(fd, existing) == TransferOutcome::restartFromZero) {
            if (::ftruncate(fd, 0) != 0) {
                throw ModelInstallationError(Kind::noSpace, std::string("Could not restart ") +
                                                                partial.string() + ": " +
                                                                std::strerror(errno));
            }
            bytesOnDisk_ = 0;
            if (transfer(fd, 0) == TransferOutcome::restartFromZero) {
                throw ModelInstallationError(
                    Kind::server, "Download of model " + entry_.name +
                                      " failed: the server does not answer range requests "
                                      "consistently (" +
                                      inventory_.downloadURL(entry_) + ")");
            }
        }
    }
    verifyAndInstall(fd);
}

ModelInstallation::TransferOutcome ModelInstallation::transfer(int fd,
                                                               std::uint64_t existingBytes) {
    initialiseCurlOnce();
    const std::unique_ptr<CURL, CurlHandleDeleter> handle(curl_easy_init());
    if (!handle) {
        throw ModelInstallationError(Kind::interrupted, "Could not start a download");
    }
    const std::string url = inventory_.downloadURL(entry_);
    Transfer state;
    state.installation = this;
    state.handle = handle.get();
    state.fd = fd;
    state.existingBytes = existingBytes;
    state.folder = inventory_.modelsFolder();
    state.bytesOnDisk = &bytesOnDisk_;
    state.totalBytes = &totalBytes_;
    state.cancelled = &cancelled_;
    state.maximumBytes = maximumBytes(entry_);
    state.started = std::chrono::steady_clock::now();
    state.slowStartAllowance = options_.slowStartAllowance;
    state.minimumBytesPerSecond = options_.minimumBytesPerSecond;
    const std::string range = std::to_string(existingBytes) + "-";

    char errorBuffer[CURL_ERROR_SIZE] = {};
    CURL* const h = handle.get();
    curl_easy_setopt(h, CURLOPT_URL, url.c_str());
    curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(h, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(h, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT, static_cast<long>(options_.connectTimeout.count()));
    curl_easy_setopt(h, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(h, CURLOPT_LOW_SPEED_TIME, static_cast<long>(options_.stallTimeout.count()));
    if (existingBytes > 0) {
        curl_easy_setopt(h, CURLOPT_RANGE, range.c_str());
    }
    curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, &onHeader);
    curl_easy_setopt(h, CURLOPT_HEADERDATA, &state);
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &onBody);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &state);
    curl_easy_setopt(h, CURLOPT_XFERINFOFUNCTION, &onProgress);
    curl_easy_setopt(h, CURLOPT_XFERINFODATA, &state);
    curl_easy_setopt(h, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, errorBuffer);

    const CURLcode code = curl_easy_perform(h);
    if (!state.bodyStarted) {
        curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &state.status);
    }
    if (cancelled_) {
        throw ModelInstallationError(Kind::cancelled,
                                     "Installation of model " + entry_.name + " was cancelled");
    }
    if (state.rangeMismatch) {
        return TransferOutcome::restartFromZero;
    }
    if (state.tooLarge) {
        // Whatever it is, it is not this model: nothing of it is worth resuming.
        std::error_code ignored;
        std::filesystem::remove(inventory_.partialFile(entry_), ignored);
        throw ModelInstallationError(
            Kind::corrupt, "Download of model " + entry_.name + " is larger than its " +
                               std::to_string(entry_.sizeBytes) + " bytes" +
                               (entry_.sizeIsExact ? "" : " and their margin") + " (from " + url +
                               "); the download was deleted");
    }
    if (state.tooSlow) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
            std::chrono::steady_clock::now() - state.started);
        throw ModelInstallationError(
            Kind::interrupted, "Download of model " + entry_.name + " was too slow (" +
                                   std::to_string(state.writtenBytes) + " bytes in " +
                                   std::to_string(seconds.count()) + " s; it needs at least " +
                                   std::to_string(options_.minimumBytesPerSecond / 1024) +
                                   " KiB/s); install it again to resume");
    }
    if (state.noRoom) {
        throw ModelInstallationError(Kind::noSpace,
                                     "Not enough disk space for model " + entry_.name + " in " +
                                         inventory_.modelsFolder().string() + " (it needs " +
                                         megabytes(totalBytes_ - state.existingBytes) + " more)");
    }
    if (state.writeErrno != 0) {
        const std::string reason = std::strerror(state.writeErrno);
        throw ModelInstallationError(
            Kind::noSpace, (isOutOfSpace(state.writeErrno) ? "Not enough disk space for model "
                                                           : "Could not write model ") +
                               entry_.name + " in " + inventory_.modelsFolder().string() + ": " +
                               reason);
    }
    if (code == CURLE_OK && state.status == 416 && existingBytes > 0) {
        // Nothing left to send from there: either the partial file is already whole, or it is
        // longer than the file now published.
        if (state.rangeTotal == existingBytes) {
            totalBytes_ = existingBytes;
            return TransferOutcome::complete;
        }
        return TransferOutcome::restartFromZero;
    }
    if (code != CURLE_OK) {
        const std::string message = errorBuffer[0] != '\0' ? errorBuffer : curl_easy_strerror(code);
        throw ModelInstallationError(Kind::interrupted, "Download of model " + entry_.name +
                                                            " was interrupted (" + message +
                                                            "); install it again to resume");
    }
    if (state.status != 200 && state.status != 206) {
        throw ModelInstallationError(Kind::server, "Download of model " + entry_.name +
                                                       " failed: the server answered HTTP " +
                                                       std::to_string(state.status) + " for " +
                                                       url);
    }
    if (!state.bodyStarted) {
        // An empty body: startBody never ran, so the file was not reset for a 200.
        if (state.status == 200 && existingBytes > 0) {
            ::ftruncate(fd, 0);
        }
        totalBytes_ = state.status == 206 ? existingBytes : 0;
        bytesOnDisk_ = totalBytes_.load();
    }
    return TransferOutcome::complete;
}

void ModelInstallation::verifyAndInstall(int fd) {
    const std::filesystem::path partial = inventory_.partialFile(entry_);
    const auto discard = [&](const std::string& why) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw ModelInstallationError(Kind::corrupt, "Downloaded model " + entry_.name + " " + why +
                                                        "; the download was deleted");
    };
    if (::fsync(fd) != 0) {
        throw ModelInstallationError(
            Kind::noSpace, "Could not write model " + entry_.name + ": " + std::strerror(errno));
    }
    struct stat info {};
    ::fstat(fd, &info);
    const auto size = static_cast<std::uint64_t>(info.st_size);
    bytesOnDisk_ = size;
    const std::uint64_t announced = totalBytes_;
    if (entry_.sizeIsExact && size != entry_.sizeBytes) {
        discard("has the wrong size (" + std::to_string(size) + " bytes, expected " +
                std::to_string(entry_.sizeBytes) + ")");
    }
    if (announced != 0 && size != announced) {
        discard("has the wrong size (" + std::to_string(size) + " bytes, the server announced " +
                std::to_string(announced) + ")");
    }
    if (size == 0 || (!entry_.sizeIsExact && announced == 0 && !entry_.hasPublishedChecksum())) {
        discard("cannot be verified (no size was announced and no checksum is published)");
    }
    Json record = Json::object();
    record["name"] = entry_.name;
    record["fileName"] = entry_.fileName;
    record["sizeBytes"] = size;
    record["url"] = inventory_.downloadURL(entry_);
    if (!entry_.sha1.empty()) {
        const std::string actual = hexDigest(fd, EVP_sha1());
        if (actual != entry_.sha1) {
            discard("does not match its published SHA-1 checksum");
        }
        record["sha1"] = actual;
    }
    if (!entry_.sha256.empty()) {
        const std::string actual = hexDigest(fd, EVP_sha256());
        if (actual != entry_.sha256) {
            discard("does not match its published SHA-256 checksum");
        }
        record["sha256"] = actual;
    }
    if (!entry_.hasPublishedChecksum()) {
        // A size alone is the server's word: a captive portal's page has a size too.
        std::string header(64, '\0');
        const ssize_t got = ::pread(fd, header.data(), header.size(), 0);
        header.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        if (!looksLikeWhisperModel(header)) {
            discard("is not a whisper model (its header is not a ggml model's)");
        }
    }
    record["verifiedBy"] = entry_.hasPublishedChecksum() ? "checksum" : "size and header";

    try {
        // The record first: the model file appears under its own name only complete and checked.
        writeFileAtomically(inventory_.recordFile(entry_), jsonfile::prettyPrinted(record));
    } catch (const FileError& error) {
        throw ModelInstallationError(Kind::noSpace, error.what());
    }
    std::error_code renameError;
    std::filesystem::rename(partial, inventory_.modelFile(entry_), renameError);
    if (renameError) {
        throw ModelInstallationError(Kind::noSpace, "Could not move model " + entry_.name +
                                                        " into place: " + renameError.message());
    }
    syncFolder(inventory_.modelsFolder());
    totalBytes_ = size;
}

}  // namespace kelvo
