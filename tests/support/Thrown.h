#pragma once

#include <optional>
#include <string>
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

/// The description of the `Exception` that `operation` throws, or "<no error>".
template <typename Exception, typename Operation>
std::string whatOf(Operation&& operation) {
    const auto error = thrown<Exception>(std::forward<Operation>(operation));
    return error ? error->what() : "<no error>";
}

}  // namespace kelvo::test
