#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <string>
#include <thread>

namespace kelvo::test {

/// A bare TCP listener on 127.0.0.1 that takes exactly one HTTP request and keeps its bytes as
/// they arrived (request line, header lines and body), for checks a parsing server cannot make:
/// the exact multipart body, and a connection that is closed without any answer. Serves on its
/// own thread; `rawRequest()` waits for that thread to finish.
class RawHttpListener {
  public:
    enum class Behaviour { answerJson, closeWithoutAnswer };

    explicit RawHttpListener(Behaviour behaviour) : behaviour_(behaviour) {
        listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = 0;
        socklen_t length = sizeof address;
        if (listenFd_ < 0 ||
            ::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listenFd_, 4) != 0 ||
            ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("cannot listen on 127.0.0.1");
        }
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serveOne(); });
    }

    ~RawHttpListener() {
        // Wakes a blocked accept() when no client ever came.
        ::shutdown(listenFd_, SHUT_RDWR);
        if (thread_.joinable()) {
            thread_.join();
        }
        ::close(listenFd_);
    }

    RawHttpListener(const RawHttpListener&) = delete;
    RawHttpListener& operator=(const RawHttpListener&) = delete;

    std::string url(const std::string& path = "") const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

    /// Everything the client sent, once the exchange is over.
    const std::string& rawRequest() {
        if (thread_.joinable()) {
            thread_.join();
        }
        return received_;
    }

    /// The body bytes after the blank line that ends the headers.
    std::string body() {
        const std::string& raw = rawRequest();
        const auto end = raw.find("\r\n\r\n");
        return end == std::string::npos ? std::string() : raw.substr(end + 4);
    }

    /// The value of the header line with this lower-case name, or "".
    std::string header(const std::string& lowerName) {
        const std::string& raw = rawRequest();
        const std::string head = lowered(raw.substr(0, raw.find("\r\n\r\n")));
        const auto at = head.find("\r\n" + lowerName + ":");
        if (at == std::string::npos) {
            return "";
        }
        const auto start = raw.find_first_not_of(' ', at + lowerName.size() + 3);
        return raw.substr(start, raw.find("\r\n", start) - start);
    }

  private:
    static std::string lowered(std::string text) {
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return text;
    }

    void serveOne() {
        const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            return;
        }
        std::size_t expectedSize = std::string::npos;
        char buffer[65536];
        while (expectedSize == std::string::npos || received_.size() < expectedSize) {
            const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0) {
                break;
            }
            received_.append(buffer, static_cast<std::size_t>(got));
            const auto headEnd = received_.find("\r\n\r\n");
            if (expectedSize == std::string::npos && headEnd != std::string::npos) {
                const std::string head = lowered(received_.substr(0, headEnd));
                const auto field = head.find("\r\ncontent-length:");
                const std::size_t bodySize =
                    field == std::string::npos ? 0 : std::stoul(head.substr(field + 17));
                expectedSize = headEnd + 4 + bodySize;
            }
        }
        if (behaviour_ == Behaviour::answerJson) {
            const std::string answer =
                "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 13\r\n"
                "Connection: close\r\n\r\n{\"text\":\"ok\"}";
            ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
        ::close(fd);
    }

    Behaviour behaviour_;
    int listenFd_ = -1;
    int port_ = 0;
    std::thread thread_;
    std::string received_;
};

}  // namespace kelvo::test
