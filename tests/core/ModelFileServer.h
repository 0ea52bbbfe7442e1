#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kelvo::testing {

// A digest of data in lower-case hex, as model catalogues publish it; computed here with OpenSSL
// directly so that tests of the installer do not take the installer's word for it.
inline std::string hexDigest(const std::string& data, const EVP_MD* algorithm) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), bytes, &length, algorithm, nullptr);
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += "0123456789abcdef"[bytes[i] >> 4];
        hex += "0123456789abcdef"[bytes[i] & 15];
    }
    return hex;
}

inline std::string sha1Of(const std::string& data) {
    return hexDigest(data, EVP_sha1());
}

/// A loopback HTTP file server (raw sockets on 127.0.0.1, one connection at a time on its own
/// thread) that serves one file at any path and misbehaves on request: it can ignore range
/// requests, break the connection after some bytes, stall or drip 2 bytes every 20 ms after them,
/// flip a byte, announce no length or answer with an error status. Records the Range header of
/// every request. Members may be called from the test thread while the server serves.
class ModelFileServer {
  public:
    enum class Mode { normal, ignoreRange, dropAfter, stallAfter, drip, corrupt, noLength, status };

    explicit ModelFileServer(std::string file) : file_(std::move(file)) {
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

    ~ModelFileServer() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        ::shutdown(listenFd_, SHUT_RDWR);
        thread_.join();
        ::close(listenFd_);
    }

    ModelFileServer(const ModelFileServer&) = delete;
    ModelFileServer& operator=(const ModelFileServer&) = delete;

    /// The folder URL the catalogue or mirror setting points at (ends with "/").
    std::string baseURL() const { return "http://127.0.0.1:" + std::to_string(port_) + "/m/"; }

    /// `bytes` is where dropAfter and stallAfter stop sending; `status` is the error status.
    void behave(Mode mode, std::size_t bytes = 0, int status = 500) {
        std::lock_guard lock(mutex_);
        mode_ = mode;
        limit_ = bytes;
        status_ = status;
    }

    /// The Range header of each request so far ("" when it had none).
    std::vector<std::string> ranges() const {
        std::lock_guard lock(mutex_);
        return ranges_;
    }

  private:
    static std::string headerValue(const std::string& head, const std::string& lowerName) {
        std::string lowered = head;
        for (char& c : lowered) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        const auto at = lowered.find("\r\n" + lowerName + ":");
        if (at == std::string::npos) {
            return "";
        }
        const auto start = head.find_first_not_of(' ', at + lowerName.size() + 3);
        return head.substr(start, head.find("\r\n", start) - start);
    }

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
        for (;;) {
            const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                return;
            }
            answer(fd);
            ::close(fd);
        }
    }

    void answer(int fd) {
        std::string head;
        char buffer[4096];
        while (head.find("\r\n\r\n") == std::string::npos) {
            const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0) {
                return;
            }
            head.append(buffer, static_cast<std::size_t>(got));
        }
        const std::string range = headerValue(head, "range");
        Mode mode;
        std::size_t limit;
        int status;
        {
            std::lock_guard lock(mutex_);
            ranges_.push_back(range);
            mode = mode_;
            limit = limit_;
            status = status_;
        }
        if (mode == Mode::status) {
            const std::string body = "<html>error</html>";
            sendAll(fd, "HTTP/1.1 " + std::to_string(status) +
                            " Error\r\nContent-Type: text/html\r\nContent-Length: " +
                            std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
            return;
        }
        std::string content = file_;
        if (mode == Mode::corrupt) {
            content[content.size() / 2] = static_cast<char>(content[content.size() / 2] ^ 0x5a);
        }
        std::size_t start = 0;
        if (!range.empty() && mode != Mode::ignoreRange) {
            // "bytes=N-"
            start = std::stoul(range.substr(range.find('=') + 1));
            if (start >= content.size()) {
                sendAll(fd, "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */" +
                                std::to_string(content.size()) +
                                "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
                return;
            }
        }
        std::string response;
        if (start > 0) {
            response = "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " +
                       std::to_string(start) + "-" + std::to_string(content.size() - 1) + "/" +
                       std::to_string(content.size()) + "\r\n";
        } else {
            response = "HTTP/1.1 200 OK\r\n";
        }
        const std::string body = content.substr(start);
        response += "Content-Type: application/octet-stream\r\n";
        if (mode != Mode::noLength) {
            response += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        }
        sendAll(fd, response + "Connection: close\r\n\r\n");
        if (mode == Mode::dropAfter || mode == Mode::stallAfter || mode == Mode::drip) {
            sendAll(fd, body.substr(0, std::min(limit, body.size())));
            std::size_t dripped = limit;
            if (mode != Mode::dropAfter) {
                std::unique_lock lock(mutex_);
                // Until the server goes or the client hangs up.
                while (!stopping_) {
                    lock.unlock();
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
                    lock.lock();
                }
            }
            return;
        }
        sendAll(fd, body);
    }

    const std::string file_;
    int listenFd_ = -1;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    bool stopping_ = false;
    Mode mode_ = Mode::normal;
    std::size_t limit_ = 0;
    int status_ = 500;
    std::vector<std::string> ranges_;
};

}  // namespace kelvo::testing
