#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kelvo::test {

/// A loopback HTTP server (raw sockets on 127.0.0.1, one connection at a time on its own thread)
/// that keeps every request as it arrived, so a test sees the exact bytes a client sent. It
/// answers with a scripted status, headers and body, or serves one file at any path (ranges
/// "bytes=N-" honoured) and misbehaves on request: it can ignore ranges, break the connection
/// after some bytes, stall or drip 2 bytes every 20 ms after them, flip a byte, announce no
/// length, or hang up without any answer. With holdAnswers() each answer waits until
/// releaseAnswers() (or destruction, or heldAnswerLimit), so a client time-out can be provoked
/// without any clock in the test. Members may be called from the test thread while it serves.
class LoopbackHttpServer {
  public:
    enum class Mode { normal, ignoreRange, dropAfter, stallAfter, drip, corrupt, noLength, hangUp };

    struct Request {
        std::string line;  // "POST /v1/transcribe?key=abc HTTP/1.1"
        std::string path;  // "/v1/transcribe"
        std::string head;  // the header lines, each after its "\r\n"
        std::string body;

        bool hasHeader(const std::string& name) const { return at(name) != std::string::npos; }
        std::string header(const std::string& name) const {
            const auto found = at(name);
            if (found == std::string::npos) {
                return "";
            }
            const auto start = head.find_first_not_of(' ', found + name.size() + 3);
            return head.substr(start, head.find("\r\n", start) - start);
        }

        /// The value of the multipart form field `name`, if the body has one.
        std::optional<std::string> field(const std::string& name) const {
            const auto at = body.find("Content-Disposition: form-data; name=\"" + name + "\"");
            if (at == std::string::npos) {
                return std::nullopt;
            }
            const std::string type = header("content-type");
            const auto start = body.find("\r\n\r\n", at) + 4;
            return body.substr(
                start, body.find("\r\n--" + type.substr(type.find('=') + 1), start) - start);
        }

      private:
        // Header names are case-insensitive.
        std::size_t at(const std::string& name) const {
            const char* found = ::strcasestr(head.c_str(), ("\r\n" + name + ":").c_str());
            return found == nullptr ? std::string::npos
                                    : static_cast<std::size_t>(found - head.c_str());
        }
    };

    static constexpr std::chrono::seconds heldAnswerLimit{10};

    /// Without a file it answers 200 {"text":"ok"} until told otherwise.
    explicit LoopbackHttpServer(std::string file = {})
        : file_(std::move(file)), scripted_(file_.empty()) {
        listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (listenFd_ < 0 ||
            ::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listenFd_, 8) != 0 ||
            ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("cannot listen on 127.0.0.1");
        }
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }

    ~LoopbackHttpServer() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
            changed_.notify_all();
        }
        ::shutdown(listenFd_, SHUT_RDWR);
        thread_.join();
        ::close(listenFd_);
    }

    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    /// "http://127.0.0.1:PORT" followed by `path`.
    std::string url(const std::string& path = "") const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }
    /// The folder URL a model catalogue or mirror setting points at (ends with "/").
    std::string baseURL() const { return url("/m/"); }

    /// From now on every request gets this answer.
    void answer(int status, std::string body,
                std::vector<std::pair<std::string, std::string>> headers = {}) {
        std::lock_guard lock(mutex_);
        scripted_ = true;
        mode_ = Mode::normal;
        status_ = status;
        answerBody_ = std::move(body);
        answerHeaders_ = std::move(headers);
    }

    /// From now on the file is served this way; `bytes` is where dropAfter, stallAfter and drip
    /// stop sending at full speed.
    void behave(Mode mode, std::size_t bytes = 0) {
        std::lock_guard lock(mutex_);
        scripted_ = file_.empty();
        mode_ = mode;
        limit_ = bytes;
    }

    void holdAnswers() {
        std::lock_guard lock(mutex_);
        holding_ = true;
    }

    void releaseAnswers() {
        std::lock_guard lock(mutex_);
        holding_ = false;
        changed_.notify_all();
    }

    std::vector<Request> requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }

    /// The Range header of each request so far ("" when it had none).
    std::vector<std::string> ranges() const {
        std::vector<std::string> ranges;
        for (const Request& request : requests()) {
            ranges.push_back(request.header("range"));
        }
        return ranges;
    }

  private:
    static void sendAll(int fd, const std::string& data) {
        std::size_t done = 0;
        while (done < data.size()) {
            const ssize_t sent = ::send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
            if (sent <= 0) {
                return;
            }
            done += static_cast<std::size_t>(sent);
        }
    }

    void serve() {
        for (int fd; (fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;
             ::close(fd)) {
            answer(fd);
        }
    }

    // Reads one request: the head, then as many body bytes as it announces.
    static bool receive(int fd, Request& request) {
        std::string data;
        std::size_t expected = std::string::npos;
        char buffer[65536];
        while (expected == std::string::npos || data.size() < expected) {
            const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0) {
                return false;
            }
            data.append(buffer, static_cast<std::size_t>(got));
            const auto headEnd = data.find("\r\n\r\n");
            if (expected == std::string::npos && headEnd != std::string::npos) {
                const auto lineEnd = data.find("\r\n");
                request.line = data.substr(0, lineEnd);
                request.head = data.substr(lineEnd, headEnd + 2 - lineEnd);
                const std::string length = request.header("content-length");
                expected = headEnd + 4 + (length.empty() ? 0 : std::stoul(length));
            }
        }
        const auto bodyStart = data.find("\r\n\r\n") + 4;
        request.body = data.substr(bodyStart, expected - bodyStart);
        const auto target = request.line.substr(request.line.find(' ') + 1);
        request.path = target.substr(0, std::min(target.find(' '), target.find('?')));
        return true;
    }

    void answer(int fd) {
        Request request;
        if (!receive(fd, request)) {
            return;
        }
        std::unique_lock lock(mutex_);
        requests_.push_back(request);
        // At most heldAnswerLimit: a client that never gives up then gets its answer and fails
        // its test instead of hanging it.
        changed_.wait_for(lock, heldAnswerLimit, [this] { return !holding_ || stopping_; });
        const Mode mode = mode_;
        const std::size_t limit = limit_;
        const bool scripted = scripted_;
        // The scripted answer, or the file from the range asked for (416 past its end).
        std::string head = "HTTP/1.1 " + std::to_string(status_) + " Scripted\r\n";
        for (const auto& [name, value] : answerHeaders_) {
            head += name + ": " + value + "\r\n";
        }
        std::string body = scripted ? answerBody_ : file_;
        lock.unlock();
        if (mode == Mode::hangUp) {
            return;
        }
        if (!scripted) {
            if (mode == Mode::corrupt) {
                body[body.size() / 2] = static_cast<char>(body[body.size() / 2] ^ 0x5a);
            }
            const std::string range = request.header("range");
            const std::size_t size = body.size();
            const std::size_t start = range.empty() || mode == Mode::ignoreRange
                                          ? 0
                                          : std::stoul(range.substr(range.find('=') + 1));
            head = start == 0 ? "HTTP/1.1 200 OK\r\n"
                   : start < size
                       ? "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " +
                             std::to_string(start) + "-" + std::to_string(size - 1) + "/" +
                             std::to_string(size) + "\r\n"
                       : "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */" +
                             std::to_string(size) + "\r\n";
            body = body.substr(std::min(start, size));
        }
        head += scripted ? "Content-Type: application/json\r\n"
                         : "Content-Type: application/octet-stream\r\n";
        if (scripted || mode != Mode::noLength) {
            head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        }
        sendAll(fd, head + "Connection: close\r\n\r\n");
        const bool throttled = !scripted && (mode == Mode::dropAfter || mode == Mode::stallAfter ||
                                             mode == Mode::drip);
        sendAll(fd, throttled ? body.substr(0, std::min(limit, body.size())) : body);
        // Stalling or dripping until the server goes or the client hangs up.
        for (std::size_t dripped = limit; throttled && mode != Mode::dropAfter;) {
            pollfd peer{fd, POLLIN, 0};
            if (mode == Mode::drip && dripped + 2 <= body.size()) {
                sendAll(fd, body.substr(dripped, 2));
                dripped += 2;
            }
            if (::poll(&peer, 1, mode == Mode::drip ? 20 : 50) > 0) {
                char ignored;
                if (::recv(fd, &ignored, 1, MSG_DONTWAIT) <= 0) {
                    return;
                }
            }
            std::lock_guard stop(mutex_);
            if (stopping_) {
                return;
            }
        }
    }

    const std::string file_;
    int listenFd_ = -1;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    bool holding_ = false;
    bool scripted_;
    Mode mode_ = Mode::normal;
    std::size_t limit_ = 0;
    int status_ = 200;
    std::string answerBody_ = R"({"text":"ok"})";
    std::vector<std::pair<std::string, std::string>> answerHeaders_;
    std::vector<Request> requests_;
};

}  // namespace kelvo::test
