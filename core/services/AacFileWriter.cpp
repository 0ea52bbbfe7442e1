#include "core/services/AacFileWriter.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <system_error>

namespace kelvo {
namespace {

// Speech at 16 kHz mono: FFmpeg's native AAC-LC encoder sounds clean from about 32 kbit/s; 48
// leaves headroom for music and noisy rooms at ~6 KB a second, our counterpart of the platform
// recorder's "high" quality setting.
constexpr std::int64_t bitRateBitsPerSecond = 48000;

std::string ffmpegMessage(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

void check(int code, const std::string& step) {
    if (code < 0) {
        throw AacFileWriter::Error(step + ": " + ffmpegMessage(code));
    }
}

}  // namespace

void AacFileWriter::FormatContextDeleter::operator()(AVFormatContext* context) const noexcept {
    avformat_free_context(context);
}
void AacFileWriter::CodecContextDeleter::operator()(AVCodecContext* context) const noexcept {
    avcodec_free_context(&context);
}
void AacFileWriter::FrameDeleter::operator()(AVFrame* frame) const noexcept {
    av_frame_free(&frame);
}
void AacFileWriter::PacketDeleter::operator()(AVPacket* packet) const noexcept {
    av_packet_free(&packet);
}

AacFileWriter::AacFileWriter(std::filesystem::path path) : path_(std::move(path)) {
    // FFmpeg reports encoder statistics ("Qavg: ...") at its default level on the host program's
    // standard error, which for the command-line tool is user-facing. Keep only errors, unless
    // the host has chosen a level of its own.
    static std::once_flag quietLogging;
    std::call_once(quietLogging, [] {
        if (av_log_get_level() == AV_LOG_INFO) {
            av_log_set_level(AV_LOG_ERROR);
        }
    });
    const std::string pathText = path_.string();
    AVFormatContext* format = nullptr;
    check(avformat_alloc_output_context2(&format, nullptr, nullptr, pathText.c_str()),
          "Cannot choose a container for " + pathText);
    format_.reset(format);

    // FFmpeg's own AAC encoder: Debian builds FFmpeg without libfdk-aac. It produces AAC-LC and
    // accepts planar float only.
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        throw Error("No AAC encoder in this FFmpeg build");
    }
    encoder_.reset(avcodec_alloc_context3(codec));
    if (!encoder_) {
        throw Error("Cannot allocate the AAC encoder");
    }
    encoder_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder_->sample_rate = sampleRateHz;
    av_channel_layout_default(&encoder_->ch_layout, 1);
    encoder_->bit_rate = bitRateBitsPerSecond;
    encoder_->time_base = AVRational{1, sampleRateHz};
    if ((format_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    check(avcodec_open2(encoder_.get(), codec, nullptr), "Cannot open the AAC encoder");

    AVStream* stream = avformat_new_stream(format_.get(), nullptr);
    if (stream == nullptr) {
        throw Error("Cannot add an audio stream to " + pathText);
    }
    stream->time_base = encoder_->time_base;
    streamIndex_ = stream->index;
    check(avcodec_parameters_from_context(stream->codecpar, encoder_.get()),
          "Cannot describe the audio stream");

    frame_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    if (!frame_ || !packet_) {
        throw Error("Cannot allocate encoder buffers");
    }
    frame_->format = encoder_->sample_fmt;
    frame_->sample_rate = sampleRateHz;
    frame_->nb_samples = encoder_->frame_size;
    check(av_channel_layout_copy(&frame_->ch_layout, &encoder_->ch_layout),
          "Cannot set the frame layout");
    check(av_frame_get_buffer(frame_.get(), 0), "Cannot allocate an audio frame");

    check(avio_open(&format_->pb, pathText.c_str(), AVIO_FLAG_WRITE), "Cannot create " + pathText);
    try {
        check(avformat_write_header(format_.get(), nullptr),
              "Cannot write the header of " + pathText);
    } catch (...) {
        closeFile();
        throw;
    }
}

AacFileWriter::~AacFileWriter() {
    if (format_ && format_->pb != nullptr) {
        closeFile();
    }
}

void AacFileWriter::closeFile() noexcept {
    avio_closep(&format_->pb);
    if (!finished_) {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
}

void AacFileWriter::write(std::span<const std::int16_t> samples) {
    if (finished_ || format_->pb == nullptr) {
        throw std::logic_error("AacFileWriter::write after finish");
    }
    const int frameSize = encoder_->frame_size;
    while (!samples.empty()) {
        if (frameFill_ == 0) {
            // The encoder may still hold a reference to the previous frame's buffer.
            check(av_frame_make_writable(frame_.get()), "Cannot reuse the audio frame");
        }
        const auto count =
            std::min<std::size_t>(samples.size(), static_cast<std::size_t>(frameSize - frameFill_));
        auto* plane = reinterpret_cast<float*>(frame_->data[0]) + frameFill_;
        std::transform(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(count), plane,
                       [](std::int16_t s) { return static_cast<float>(s) / 32768.0f; });
        frameFill_ += static_cast<int>(count);
        samplesWritten_ += static_cast<std::int64_t>(count);
        samples = samples.subspan(count);
        if (frameFill_ == frameSize) {
            sendFrame(frameSize);
        }
    }
}

void AacFileWriter::finish() {
    if (finished_ || format_->pb == nullptr) {
        throw std::logic_error("AacFileWriter::finish called twice");
    }
    if (samplesWritten_ == 0) {
        throw Error("No audio samples to write to " + path_.string());
    }
    if (frameFill_ > 0) {
        // The encoder takes a short last frame, so the file ends at the last real sample.
        sendFrame(frameFill_);
    }
    sendToEncoder(nullptr);
    check(av_write_trailer(format_.get()), "Cannot finish " + path_.string());
    const int closed = avio_closep(&format_->pb);
    if (closed < 0) {
        // The last buffered bytes may be missing: the file cannot be trusted.
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
        check(closed, "Cannot close " + path_.string());
    }
    finished_ = true;
}

void AacFileWriter::sendFrame(int sampleCount) {
    frame_->nb_samples = sampleCount;
    frame_->pts = nextPts_;
    nextPts_ += sampleCount;
    frameFill_ = 0;
    sendToEncoder(frame_.get());
}

void AacFileWriter::sendToEncoder(const AVFrame* frame) {
    check(avcodec_send_frame(encoder_.get(), frame), "AAC encoding failed");
    AVStream* stream = format_->streams[streamIndex_];
    for (;;) {
        const int received = avcodec_receive_packet(encoder_.get(), packet_.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            return;
        }
        check(received, "AAC encoding failed");
        av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream->time_base);
        packet_->stream_index = streamIndex_;
        // Takes the packet's payload and leaves packet_ blank for the next round.
        check(av_interleaved_write_frame(format_.get(), packet_.get()),
              "Cannot write audio to " + path_.string());
    }
}

}  // namespace kelvo
