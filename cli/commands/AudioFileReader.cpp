#include "cli/commands/AudioFileReader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "core/support/Error.h"

namespace kelvo::cli {

namespace {

std::string avError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

}  // namespace

struct AudioFileReader::Decoder {
    AVFormatContext* container = nullptr;
    AVCodecContext* codec = nullptr;
    SwrContext* resampler = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
    int stream = -1;

    ~Decoder() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        swr_free(&resampler);
        avcodec_free_context(&codec);
        avformat_close_input(&container);
    }
};

AudioFileReader::AudioFileReader(const std::filesystem::path& file)
    : file_(file), decoder_(new Decoder) {
    const auto fail = [&](const std::string& reason) {
        delete decoder_;
        decoder_ = nullptr;
        throw Error("cannot read audio file '" + file.string() + "': " + reason);
    };
    // A file, not whatever FFmpeg can open: a URL would fetch from the network, and a FIFO or a
    // device would block or never end.
    if (file.string().find("://") != std::string::npos) {
        fail("only local files are read, not URLs");
    }
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0) {
        fail(std::strerror(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        fail(S_ISDIR(info.st_mode) ? "it is a folder"
                                   : "it is not a regular file (a FIFO, a device or a socket)");
    }
    // Our error line says what went wrong; FFmpeg's own notes would only clutter standard error.
    av_log_set_level(AV_LOG_QUIET);
    Decoder& d = *decoder_;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    const std::string url = "file:" + file.string();
    const int opened = avformat_open_input(&d.container, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (opened < 0) {
        fail(avError(opened));
    }
    if (const int error = avformat_find_stream_info(d.container, nullptr); error < 0) {
        fail(avError(error));
    }
    const AVCodec* codec = nullptr;
    d.stream = av_find_best_stream(d.container, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (d.stream < 0 || codec == nullptr) {
        fail("no audio stream");
    }
    d.codec = avcodec_alloc_context3(codec);
    if (d.codec == nullptr ||
        avcodec_parameters_to_context(d.codec, d.container->streams[d.stream]->codecpar) < 0) {
        fail("unsupported audio stream");
    }
    if (const int error = avcodec_open2(d.codec, codec, nullptr); error < 0) {
        fail(avError(error));
    }
    if (d.codec->sample_rate <= 0 || d.codec->ch_layout.nb_channels <= 0) {
        fail("no sample rate or channel count");
    }
    // Only the sample format changes here (to interleaved float, what a microphone delivers);
    // rate and channels stay the file's own for the application's converter to handle.
    if (swr_alloc_set_opts2(&d.resampler, &d.codec->ch_layout, AV_SAMPLE_FMT_FLT,
                            d.codec->sample_rate, &d.codec->ch_layout, d.codec->sample_fmt,
                            d.codec->sample_rate, 0, nullptr) < 0 ||
        swr_init(d.resampler) < 0) {
        fail("unsupported sample format");
    }
    d.packet = av_packet_alloc();
    d.frame = av_frame_alloc();
    if (d.packet == nullptr || d.frame == nullptr) {
        fail("out of memory");
    }
    format_.sampleRateHz = d.codec->sample_rate;
    format_.channelCount = static_cast<std::uint32_t>(d.codec->ch_layout.nb_channels);
    format_.sampleFormat = platform::AudioInput::SampleFormat::float32;
}

AudioFileReader::~AudioFileReader() {
    delete decoder_;
}

std::uint64_t AudioFileReader::read(
    std::uint32_t framesPerRead,
    const std::function<bool(const platform::AudioInput::Frames&)>& read) {
    Decoder& d = *decoder_;
    const std::size_t channels = format_.channelCount;
    std::vector<float> pending;
    std::uint64_t total = 0;
    bool reading = true;
    const auto deliverBlocks = [&](bool all) {
        std::size_t offset = 0;
        while (reading && (pending.size() - offset >= framesPerRead * channels ||
                           (all && pending.size() > offset))) {
            const std::size_t frames =
                std::min<std::size_t>(framesPerRead, (pending.size() - offset) / channels);
            platform::AudioInput::Frames block;
            block.format = format_;
            block.frameCount = static_cast<std::uint32_t>(frames);
            block.float32Samples =
                std::span<const float>(pending.data() + offset, frames * channels);
            reading = read(block);
            total += frames;
            offset += frames * channels;
        }
        pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    const auto drainFrames = [&]() {
        while (reading) {
            const int status = avcodec_receive_frame(d.codec, d.frame);
            if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) {
                return;
            }
            if (status < 0) {
                throw Error("cannot decode audio file '" + file_.string() +
                            "': " + avError(status));
            }
            const std::size_t start = pending.size();
            pending.resize(start + static_cast<std::size_t>(d.frame->nb_samples) * channels);
            auto* out = reinterpret_cast<std::uint8_t*>(pending.data() + start);
            const int converted = swr_convert(
                d.resampler, &out, d.frame->nb_samples,
                const_cast<const std::uint8_t**>(d.frame->extended_data), d.frame->nb_samples);
            av_frame_unref(d.frame);
            if (converted < 0) {
                throw Error("cannot decode audio file '" + file_.string() +
                            "': " + avError(converted));
            }
            pending.resize(start + static_cast<std::size_t>(converted) * channels);
            deliverBlocks(false);
        }
    };
    while (reading && av_read_frame(d.container, d.packet) >= 0) {
        if (d.packet->stream_index == d.stream) {
            const int status = avcodec_send_packet(d.codec, d.packet);
            av_packet_unref(d.packet);
            // A damaged packet is skipped, as players do; the rest of the file still counts.
            if (status < 0 && status != AVERROR_INVALIDDATA) {
                throw Error("cannot decode audio file '" + file_.string() +
                            "': " + avError(status));
            }
            drainFrames();
        } else {
            av_packet_unref(d.packet);
        }
    }
    if (reading) {
        avcodec_send_packet(d.codec, nullptr);
        drainFrames();
        deliverBlocks(true);
    }
    return total;
}

}  // namespace kelvo::cli
