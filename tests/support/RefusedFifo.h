#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>

#include "tests/support/Thrown.h"

namespace kelvo::test {

/// whatOf<Exception>(attempt) for an attempt that must refuse the FIFO at `fifo` rather than open
/// it. It runs aside: should it wait on the FIFO all the same, the test fails after a bounded wait
/// and a writer opening the FIFO lets the attempt finish, so the fault fails the test instead of
/// hanging it.
template <typename Exception, typename Operation>
std::string whatOfRefusedFifo(const std::filesystem::path& fifo, Operation&& attempt) {
    auto refusal = std::async(std::launch::async, [&] { return whatOf<Exception>(attempt); });
    if (refusal.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        ADD_FAILURE() << "waited on the FIFO " << fifo;
        for (int i = 0; i < 1000 && refusal.wait_for(std::chrono::milliseconds(10)) !=
                                        std::future_status::ready;
             ++i) {
            const int writer = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            if (writer >= 0) {
                ::close(writer);
            }
        }
    }
    return refusal.get();
}

}  // namespace kelvo::test
