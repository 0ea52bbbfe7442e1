#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "core/services/ModelCatalogEntry.h"
#include "core/services/ModelInventory.h"

namespace kelvo {

/// One installation of one model into an inventory's folder: an HTTP(S) download with libcurl
/// into "<file>.part" (resumed with a range request when a partial file is there), then a check
/// of the size (against the catalogue when it is exact, else against the length the server
/// announced) and of the published checksum when there is one, or else of the ggml header, then
/// an atomic rename into place after the record that makes it count as installed. A download that
/// fails leaves at most the partial file, which never counts as installed; one that turns out
/// corrupt leaves nothing. The transfer never writes more than the catalogue's size (plus a margin
/// when that size is rounded) and gives up when it falls below a minimum average rate.
///
/// run() blocks the calling thread for the whole transfer; fractionCompleted(), bytes*() and
/// cancel() may be called from any other thread meanwhile. While run() works it holds a lock on
/// the partial file, so a second installation of the same model (in any process) fails at once.
/// The inventory must outlive the installation. One run() per object.
class ModelInstallation {
  public:
    struct Options {
        std::chrono::seconds connectTimeout{30};
        /// A transfer slower than 1 byte/s for this long counts as broken off.
        std::chrono::seconds stallTimeout{60};
        /// After `slowStartAllowance`, a transfer must have averaged this rate since then, or it
        /// stops (the partial file stays): a server that drips bytes cannot keep it alive, and the
        /// whole download has a deadline of allowance + size / rate.
        std::uint64_t minimumBytesPerSecond = 16 * 1024;
        std::chrono::milliseconds slowStartAllowance{60'000};
    };

    /// The most a download of `entry` may hold: its size when exact, else the rounded figure with
    /// a margin of a tenth and 1 MiB.
    static std::uint64_t maximumBytes(const ModelCatalogEntry& entry);
    /// Whether `header` (a file's first bytes) starts like a whisper.cpp ggml model: the magic
    /// 0x67676d6c and eleven plausible hyper-parameters.
    static bool looksLikeWhisperModel(std::string_view header);

    ModelInstallation(const ModelInventory& inventory, ModelCatalogEntry entry);
    ModelInstallation(const ModelInventory& inventory, ModelCatalogEntry entry, Options options);

    const ModelCatalogEntry& entry() const { return entry_; }

    /// Installs the model; returns at once when it is installed already. Throws
    /// ModelInstallationError (and FileError when the models folder cannot be made).
    void run();

    /// Asks run() to stop as soon as possible; the partial file stays for a later resume.
    void cancel() noexcept { cancelled_ = true; }

    /// 0.0 to 1.0: the share of the file on disk. Before the size is known, the share of the
    /// catalogue's figure.
    double fractionCompleted() const noexcept;
    std::uint64_t bytesOnDisk() const noexcept { return bytesOnDisk_; }
    /// The file's whole length, once known (0 before).
    std::uint64_t totalBytes() const noexcept { return totalBytes_; }

  private:
    enum class TransferOutcome { complete, restartFromZero };

    void download(int fd, std::uint64_t existingBytes);
    TransferOutcome transfer(int fd, std::uint64_t existingBytes);
    void verifyAndInstall(int fd);

    const ModelInventory& inventory_;
    const ModelCatalogEntry entry_;
    const Options options_;
    std::atomic<bool> cancelled_ = false;
    std::atomic<std::uint64_t> bytesOnDisk_ = 0;
    std::atomic<std::uint64_t> totalBytes_ = 0;
};

}  // namespace kelvo
