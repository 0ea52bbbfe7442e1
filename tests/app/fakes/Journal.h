#pragma once

// The shared, optional record of calls that fakes mirror theirs into ("capture: start",
// "speech: stop", ...), so that a test can check the interleaving across them. Written only from
// the test thread.

#include <string>
#include <vector>

namespace kelvo::test {

struct Journal {
    std::vector<std::string>* lines = nullptr;

    void note(std::string line) const {
        if (lines != nullptr) {
            lines->push_back(std::move(line));
        }
    }
};

}  // namespace kelvo::test
