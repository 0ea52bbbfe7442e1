#include "platform/StdoutTraceOutput.h"

#include <cstdio>
#include <string>

namespace kelvo::platform {

void StdoutTraceOutput::write(std::string_view line) {
    std::string withNewline(line);
    withNewline.push_back('\n');
    std::fwrite(withNewline.data(), 1, withNewline.size(), stdout);
    std::fflush(stdout);
}

}  // namespace kelvo::platform
