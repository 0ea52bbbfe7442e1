#pragma once

// An InputMethodCommitter that answers with a set outcome at once and records what it was given.

#include <string>
#include <vector>

#include "platform/InputMethodCommitter.h"

namespace kelvo::test {

class FakeInputMethodCommitter final : public platform::InputMethodCommitter {
  public:
    explicit FakeInputMethodCommitter(std::string name, Result answer)
        : name_(std::move(name)), answer(std::move(answer)) {}

    std::string name() const override { return name_; }
    QCoro::Task<Result> commit(std::string text) override {
        commits.push_back(std::move(text));
        co_return answer;
    }
    QCoro::Task<Result> probe() override { co_return answer; }

    std::string name_;
    Result answer;
    std::vector<std::string> commits;
};

}  // namespace kelvo::test
