#pragma once

// What every fuzz target checks besides "no sanitizer report": a broken property aborts with a
// message (libFuzzer then saves the input as a crash), and an operation whose contract is to fail
// only with the project's own errors is run through `failsOnlyWithOwnError`. Single-threaded, as
// libFuzzer calls a target.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>

#include "core/support/Error.h"

namespace kelvo::fuzz {

[[noreturn]] inline void fail(std::string_view what, std::string_view detail = {}) {
    std::fprintf(stderr, "fuzz check failed: %.*s%s%.*s\n", static_cast<int>(what.size()),
                 what.data(), detail.empty() ? "" : ": ", static_cast<int>(detail.size()),
                 detail.data());
    std::abort();
}

inline void check(bool condition, std::string_view what, std::string_view detail = {}) {
    if (!condition) {
        fail(what, detail);
    }
}

/// Runs `operation`; true when it returned, false when it threw an error of type `Own` (a
/// kelvo::Error by default). Anything else it throws (a raw library exception, a standard
/// error) breaks the contract and aborts.
template <typename Own = Error, typename Operation>
bool failsOnlyWithOwnError(Operation&& operation) {
    try {
        operation();
        return true;
    } catch (const Own&) {
        return false;
    } catch (const std::bad_alloc&) {
        throw;  // libFuzzer's memory limit reports these itself
    } catch (const std::exception& error) {
        fail("an error that is not the project's own escaped", error.what());
    } catch (...) {
        fail("a non-standard exception escaped");
    }
}

/// Runs an operation whose contract is not to fail at all; any exception aborts with `what`.
template <typename Operation>
void mustNotFail(std::string_view what, Operation&& operation) {
    try {
        operation();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        fail(what, error.what());
    } catch (...) {
        fail(what);
    }
}

}  // namespace kelvo::fuzz
