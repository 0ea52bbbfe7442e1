#pragma once

#include <optional>
#include <utility>

namespace kelvo::test {

/// The `Exception` that `operation` throws, or nothing when it returns normally; any other
/// exception passes through and fails the test.
template <typename Exception, typename Operation>
std::optional<Exception> thrown(Operation&& operation) {
    try {
        std::forward<Operation>(operation)();
    } catch (const Exception& error) {
        return error;
    }
    return std::nullopt;
}

}  // namespace kelvo::test
