#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/WaitUntil.h"

namespace kelvo::test {

/// A real HTTP server (cpp-httplib) on 127.0.0.1 with an ephemeral port, serving on its own
/// thread. It records every POST it receives and answers with the scripted status and body.
/// With `holdAnswers()` each handler waits until `releaseAnswers()` (or destruction, or
/// heldAnswerLimit), so a client time-out can be provoked without any clock in the test. Members
/// may be called from the test thread while the server thread serves.
class LoopbackHttpServer {
  public:
    struct Recorded {
        std::string path;
        httplib::Params params;
        httplib::Headers headers;
        /// The raw body; empty for multipart requests, whose parts are in `files`.
        std::string body;
        httplib::MultipartFormDataMap files;

        bool hasHeader(const std::string& name) const { return headers.count(name) > 0; }
        std::string header(const std::string& name) const {
            const auto found = headers.find(name);
            return found == headers.end() ? std::string() : found->second;
        }
    };

    static constexpr std::chrono::seconds heldAnswerLimit{10};

    LoopbackHttpServer() {
        server_.Post(R"(/.*)",
                     [this](const httplib::Request& request, httplib::Response& response) {
                         std::unique_lock lock(mutex_);
                         requests_.push_back(Recorded{request.path, request.params, request.headers,
                                                      request.body, request.files});
                         changed_.notify_all();
                         // At most heldAnswerLimit: a client that never gives up then gets
                         // its answer and fails its test instead of hanging it.
                         changed_.wait_for(lock, heldAnswerLimit, [this] { return !holding_; });
                         response.status = status_;
                         for (const auto& [name, value] : answerHeaders_) {
                             response.set_header(name, value);
                         }
                         response.set_content(answerBody_, "application/json");
                     });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }

    ~LoopbackHttpServer() {
        releaseAnswers();
        // stop() is ignored until the accept loop runs; a test that sent nothing may get here
        // before that.
        waitUntil([this] { return server_.is_running(); });
        server_.stop();
        thread_.join();
    }

    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    /// "http://127.0.0.1:PORT" followed by `path`.
    std::string url(const std::string& path = "") const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

    void answer(int status, std::string body, httplib::Headers headers = {}) {
        std::lock_guard lock(mutex_);
        status_ = status;
        answerBody_ = std::move(body);
        answerHeaders_ = std::move(headers);
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

    std::vector<Recorded> requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }

  private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Recorded> requests_;
    bool holding_ = false;
    int status_ = 200;
    std::string answerBody_ = R"({"text":"ok"})";
    httplib::Headers answerHeaders_;
};

}  // namespace kelvo::test
