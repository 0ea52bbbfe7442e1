#include "LoggedProcess.h"

#include <algorithm>
#include <fstream>

#include "tests/support/WaitUntil.h"

namespace kelvo::test {

namespace {

// The test's own environment with `variables` added or replacing those of the same name.
std::vector<std::string> inheritedWith(const std::vector<std::string>& variables) {
    std::vector<std::string> environment = variables;
    for (char** inherited = environ; *inherited != nullptr; ++inherited) {
        const std::string text = *inherited;
        const std::string name = text.substr(0, text.find('=') + 1);
        if (std::none_of(variables.begin(), variables.end(),
                         [&](const std::string& variable) { return variable.starts_with(name); })) {
            environment.push_back(text);
        }
    }
    return environment;
}

}  // namespace

LoggedProcess::LoggedProcess(const std::vector<std::string>& arguments,
                             std::filesystem::path logFile,
                             const std::vector<std::string>& variables)
    : KelvoProcess(arguments[0].c_str(), {arguments.begin() + 1, arguments.end()},
                   inheritedWith(variables), {}, {}, logFile),
      logFile_(std::move(logFile)) {}

std::string LoggedProcess::log() const {
    std::ifstream in(logFile_);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::size_t LoggedProcess::countInLog(const std::string& text) const {
    const std::string all = log();
    std::size_t count = 0;
    for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
        ++count;
    }
    return count;
}

bool LoggedProcess::waitForLog(const std::string& text, std::size_t count,
                               std::chrono::milliseconds limit) const {
    return waitUntil([&] { return countInLog(text) >= count; }, limit,
                     std::chrono::milliseconds(50));
}

int LoggedProcess::terminate() {
    signal(SIGTERM);
    limit = std::chrono::seconds(20);
    return finish().status;
}

}  // namespace kelvo::test
