#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "core/support/Error.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;

namespace kelvo {

/// Encodes 16 kHz mono signed 16-bit PCM as AAC-LC into an MPEG-4 audio (.m4a) file through
/// FFmpeg's libavformat/libavcodec. The constructor creates the file; write() appends samples;
/// finish() flushes the encoder and writes the index (the "moov" box) without which no player can
/// read the file. An unfinished writer removes its file when it is destroyed, so a writer never
/// leaves an unreadable file behind: after destruction the file exists only if finish() returned.
/// Single-owner and not thread-safe: one thread at a time may call it (it may be handed from one
/// thread to another between calls).
class AacFileWriter {
  public:
    /// An encoder or file failure; `what()` says which step failed and FFmpeg's reason.
    class Error : public kelvo::Error {
      public:
        using kelvo::Error::Error;
    };

    static constexpr int sampleRateHz = 16000;

    /// Creates (or truncates) the file at `path` and writes its header. The container follows the
    /// extension (".m4a" gives the MPEG-4 audio brand). Throws Error and leaves no file on failure.
    explicit AacFileWriter(std::filesystem::path path);
    ~AacFileWriter();

    AacFileWriter(const AacFileWriter&) = delete;
    AacFileWriter& operator=(const AacFileWriter&) = delete;

    /// Appends samples (any count; they are encoded in frames of the encoder's size, 1024).
    /// Throws Error on an encoder or write failure, std::logic_error after finish().
    void write(std::span<const std::int16_t> samples);

    /// Encodes what is buffered, drains the encoder and writes the trailer. Requires at least one
    /// written sample: a file without audio has no readable stream, so throws Error otherwise
    /// (callers should discard an empty recording instead). Throws std::logic_error when called
    /// twice.
    void finish();

    std::int64_t samplesWritten() const noexcept { return samplesWritten_; }
    const std::filesystem::path& path() const noexcept { return path_; }

  private:
    struct FormatContextDeleter {
        void operator()(AVFormatContext* context) const noexcept;
    };
    struct CodecContextDeleter {
        void operator()(AVCodecContext* context) const noexcept;
    };
    struct FrameDeleter {
        void operator()(AVFrame* frame) const noexcept;
    };
    struct PacketDeleter {
        void operator()(AVPacket* packet) const noexcept;
    };

    void sendFrame(int sampleCount);
    void sendToEncoder(const AVFrame* frame);
    void closeFile() noexcept;

    std::filesystem::path path_;
    std::unique_ptr<AVFormatContext, FormatContextDeleter> format_;
    std::unique_ptr<AVCodecContext, CodecContextDeleter> encoder_;
    std::unique_ptr<AVFrame, FrameDeleter> frame_;
    std::unique_ptr<AVPacket, PacketDeleter> packet_;
    int streamIndex_ = 0;
    int frameFill_ = 0;  // samples already placed in frame_
    std::int64_t nextPts_ = 0;
    std::int64_t samplesWritten_ = 0;
    bool finished_ = false;
};

}  // namespace kelvo
