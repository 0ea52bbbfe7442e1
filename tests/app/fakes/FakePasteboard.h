#pragma once

// A clipboard that remembers: the plain string (absent when it holds something else, such as an
// image), whether the text we last wrote was fetched by another application and whether it is
// still ours. fetchByTarget() and takeOverByOtherApplication() play the other side; writeFails
// makes writeString() fail. Operations are recorded in operations ("write X", "clear").

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Pasteboard.h"

namespace kelvo::test {

class FakePasteboard final : public platform::Pasteboard {
  public:
    std::optional<std::string> readString() const override { return contents; }

    bool writeString(const std::string& text) override {
        operations.push_back("write " + text);
        if (writeFails) {
            contents.reset();
            return false;
        }
        contents = text;
        fetched = false;
        holdsWrite = true;
        return true;
    }

    void clear() override {
        operations.push_back("clear");
        contents.reset();
        holdsWrite = false;
    }

    bool lastWriteFetched() const override { return fetched; }
    bool holdsLastWrite() const override { return holdsWrite; }
    void setFetchedHandler(std::function<void()> handler) override {
        fetchedHandler = std::move(handler);
    }

    // The paste target converts the clipboard.
    void fetchByTarget() {
        fetched = true;
        if (fetchedHandler) {
            fetchedHandler();
        }
    }

    // Another application copies something.
    void takeOverByOtherApplication(std::optional<std::string> text) {
        contents = std::move(text);
        holdsWrite = false;
    }

    std::optional<std::string> contents;
    bool writeFails = false;
    bool fetched = false;
    bool holdsWrite = false;
    std::function<void()> fetchedHandler;
    std::vector<std::string> operations;
};

}  // namespace kelvo::test
