#include "tests/core/AudioFileProbe.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cmath>
#include <memory>
#include <numbers>
#include <numeric>
#include <stdexcept>

namespace kelvo::testing {
namespace {

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;

Input openInput(const std::filesystem::path& path, int& streamIndex) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("cannot open " + path.string());
    }
    Input input(raw);
    if (avformat_find_stream_info(input.get(), nullptr) < 0) {
        throw std::runtime_error("no stream info in " + path.string());
    }
    streamIndex = av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (streamIndex < 0) {
        throw std::runtime_error("no audio stream in " + path.string());
    }
    return input;
}

}  // namespace

AudioFileInfo probeAudioFile(const std::filesystem::path& path) {
    int streamIndex = 0;
    const Input input = openInput(path, streamIndex);
    const AVCodecParameters* parameters = input->streams[streamIndex]->codecpar;
    AudioFileInfo info;
    info.codecName = avcodec_get_name(parameters->codec_id);
    const char* profile = avcodec_profile_name(parameters->codec_id, parameters->profile);
    info.profileName = profile != nullptr ? profile : "";
    info.sampleRateHz = parameters->sample_rate;
    info.channelCount = parameters->ch_layout.nb_channels;
    info.durationSeconds = input->duration == AV_NOPTS_VALUE
                               ? 0.0
                               : static_cast<double>(input->duration) / AV_TIME_BASE;
    return info;
}

std::vector<float> decodeFirstChannel(const std::filesystem::path& path) {
    int streamIndex = 0;
    const Input input = openInput(path, streamIndex);
    const AVCodecParameters* parameters = input->streams[streamIndex]->codecpar;
    const AVCodec* decoder = avcodec_find_decoder(parameters->codec_id);
    if (decoder == nullptr) {
        throw std::runtime_error("no decoder for " + path.string());
    }
    std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> context(
        avcodec_alloc_context3(decoder), [](AVCodecContext* c) { avcodec_free_context(&c); });
    avcodec_parameters_to_context(context.get(), parameters);
    if (avcodec_open2(context.get(), decoder, nullptr) < 0) {
        throw std::runtime_error("cannot open the decoder");
    }
    std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                          [](AVPacket* p) { av_packet_free(&p); });
    std::unique_ptr<AVFrame, void (*)(AVFrame*)> frame(av_frame_alloc(),
                                                       [](AVFrame* f) { av_frame_free(&f); });
    std::vector<float> samples;
    auto drain = [&] {
        while (avcodec_receive_frame(context.get(), frame.get()) == 0) {
            if (frame->format != AV_SAMPLE_FMT_FLTP) {
                throw std::runtime_error("unexpected decoded sample format");
            }
            const auto* plane = reinterpret_cast<const float*>(frame->data[0]);
            samples.insert(samples.end(), plane, plane + frame->nb_samples);
        }
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == streamIndex) {
            avcodec_send_packet(context.get(), packet.get());
            drain();
        }
        av_packet_unref(packet.get());
    }
    avcodec_send_packet(context.get(), nullptr);
    drain();
    return samples;
}

double rms(const std::vector<float>& samples) {
    const double sum = std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0);
    return samples.empty() ? 0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

std::vector<std::int16_t> sineSamples(double frequencyHz, double amplitude, int sampleRateHz,
                                      std::size_t count) {
    std::vector<std::int16_t> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double phase =
            2 * std::numbers::pi * frequencyHz * static_cast<double>(i) / sampleRateHz;
        samples[i] = static_cast<std::int16_t>(std::lround(32767 * amplitude * std::sin(phase)));
    }
    return samples;
}

}  // namespace kelvo::testing
