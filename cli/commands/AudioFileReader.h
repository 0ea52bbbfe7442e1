#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "platform/AudioInput.h"

namespace kelvo::cli {

/// Decodes any audio file FFmpeg reads (libavformat/libavcodec) into reads of the file's own
/// sample rate and channel count as interleaved float, shaped like a microphone's reads, so the
/// application's converter turns them into recogniser audio exactly as it does live audio. Opening
/// probes the file and throws kelvo::Error when it cannot be read, is not a regular file (a URL,
/// a FIFO, a device) or has no audio stream; read() throws on a decoding failure midway. One
/// thread; not copyable.
class AudioFileReader {
  public:
    explicit AudioFileReader(const std::filesystem::path& file);
    ~AudioFileReader();
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    const platform::AudioInput::Format& format() const noexcept { return format_; }

    /// Calls `read` with blocks of `framesPerRead` frames (the last one may be shorter) until the
    /// end of the file, or until `read` returns false; returns the number of frames decoded. The
    /// file is decoded as it is read: memory does not grow with its length.
    std::uint64_t read(std::uint32_t framesPerRead,
                       const std::function<bool(const platform::AudioInput::Frames&)>& read);

  private:
    struct Decoder;

    std::filesystem::path file_;
    Decoder* decoder_;
    platform::AudioInput::Format format_;
};

}  // namespace kelvo::cli
