// Cost of one `transcribe` of a 10 MB recording against a loopback worker: the multipart body
// is built once in a buffer sized up front and handed to libcurl without a copy, so the client
// thread should allocate about one body's worth of bytes per call and the process's peak
// resident size should grow by about one body, not two.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <thread>

#include "core/services/WorkerAPIClient.h"
#include "core/support/Uuid.h"

namespace {

// Bytes handed out by operator new on the calling thread: the client runs the transfer on the
// caller's thread, so this counts the client's own C++ allocations and none of the server's.
thread_local std::size_t tAllocatedBytes = 0;

void* allocate(std::size_t size) {
    tAllocatedBytes += size;
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kSampleRate = 16000;
constexpr std::size_t kAudioBytes = 10 * 1024 * 1024;

long maxResidentKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// A loopback worker that reads each request to its end, throws the bytes away and answers
/// {"text":"ok"}; one connection at a time, on its own thread, until destroyed.
class DiscardingWorker {
  public:
    DiscardingWorker() {
        listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listenFd_, 8);
        ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~DiscardingWorker() {
        ::shutdown(listenFd_, SHUT_RDWR);
        thread_.join();
        ::close(listenFd_);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

  private:
    void serve() {
        static char buffer[1 << 16];
        for (;;) {
            const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                return;
            }
            std::string head;
            std::size_t remaining = 0;
            bool inBody = false;
            for (;;) {
                const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
                if (got <= 0) {
                    break;
                }
                if (!inBody) {
                    head.append(buffer, static_cast<std::size_t>(got));
                    const auto end = head.find("\r\n\r\n");
                    if (end == std::string::npos) {
                        continue;
                    }
                    const auto field = head.find("Content-Length: ");
                    const std::size_t bodySize = std::stoul(head.substr(field + 16));
                    const std::size_t bodyReceived = head.size() - end - 4;
                    remaining = bodySize - bodyReceived;
                    inBody = true;
                } else {
                    remaining -= static_cast<std::size_t>(got);
                }
                if (remaining == 0) {
                    break;
                }
            }
            const std::string answer =
                "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 13\r\n"
                "Connection: close\r\n\r\n{\"text\":\"ok\"}";
            ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
            ::close(fd);
        }
    }

    int listenFd_ = -1;
    int port_ = 0;
    std::thread thread_;
};

void putLittleEndian(std::string& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out += static_cast<char>((value >> (8 * i)) & 0xFF);
    }
}

/// A 16 kHz mono 16-bit WAV of 10 MB (some 5.5 minutes) filled with noise, written in small
/// chunks so that writing it does not raise the peak resident size the benchmark reports.
fs::path writeRecording() {
    const fs::path path = fs::temp_directory_path() / ("kelvo-bench-" + kelvo::makeUuid() + ".wav");
    const auto dataBytes = static_cast<std::uint32_t>(kAudioBytes - 44);
    std::string chunk = "RIFF";
    putLittleEndian(chunk, 36 + dataBytes, 4);
    chunk += "WAVEfmt ";
    putLittleEndian(chunk, 16, 4);
    putLittleEndian(chunk, 1, 2);
    putLittleEndian(chunk, 1, 2);
    putLittleEndian(chunk, kSampleRate, 4);
    putLittleEndian(chunk, kSampleRate * 2, 4);
    putLittleEndian(chunk, 2, 2);
    putLittleEndian(chunk, 16, 2);
    chunk += "data";
    putLittleEndian(chunk, dataBytes, 4);
    std::ofstream out(path, std::ios::binary);
    std::uint32_t noise = 12345;
    for (std::uint32_t i = 0; i < dataBytes; ++i) {
        noise = noise * 1103515245u + 12345u;
        chunk += static_cast<char>(noise >> 24);
        if (chunk.size() == 65536 || i + 1 == dataBytes) {
            out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
            chunk.clear();
        }
    }
    return path;
}

fs::path gRecording;

void BM_TranscribeTenMegabyteRecording(benchmark::State& state) {
    DiscardingWorker worker;
    const kelvo::WorkerAPIClient client(worker.url(), "token", std::nullopt, 120, 60);
    const bool measureDuration = state.range(0) != 0;

    std::size_t allocatedBytes = 0;
    for (auto _ : state) {
        const std::size_t before = tAllocatedBytes;
        const auto response =
            client.transcribe(gRecording, "whisper-1", "ja", std::string("prompt"),
                              measureDuration ? std::nullopt : std::optional<double>(327.678));
        benchmark::DoNotOptimize(response);
        allocatedBytes = tAllocatedBytes - before;
    }

    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kAudioBytes));
    state.counters["client_alloc_MB_per_call"] =
        static_cast<double>(allocatedBytes) / (1024.0 * 1024.0);
    state.counters["peak_rss_MB"] = static_cast<double>(maxResidentKilobytes()) / 1024.0;
}

// Arg 0: the duration is given; arg 1: the client measures it with libavformat first.
BENCHMARK(BM_TranscribeTenMegabyteRecording)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    gRecording = writeRecording();
    benchmark::Initialize(&argc, argv);
    const long startKilobytes = maxResidentKilobytes();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    const long endKilobytes = maxResidentKilobytes();
    std::printf(
        "file: %.1f MB; peak resident size %.1f MB before the uploads, %.1f MB after "
        "(growth %.1f MB)\n",
        static_cast<double>(kAudioBytes) / (1024.0 * 1024.0),
        static_cast<double>(startKilobytes) / 1024.0, static_cast<double>(endKilobytes) / 1024.0,
        static_cast<double>(endKilobytes - startKilobytes) / 1024.0);
    fs::remove(gRecording);
    return 0;
}
