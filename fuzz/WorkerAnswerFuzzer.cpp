// The worker's answer as the client reads it. The first byte picks the status (success, an error
// status, a redirect) and, for a redirect, how much of the rest is its target; the rest is the
// body. Contract: a success decodes into the transcription or the processing record or fails with
// DecodingError; an error status becomes an APIError whose text is one line of valid UTF-8, short,
// and never shows either token; a decoded record written as JSON decodes to the same record.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/services/APIError.h"
#include "core/services/ProcessResponse.h"
#include "core/services/TranscribeResponse.h"
#include "core/services/WorkerAnswer.h"
#include "core/support/Utf8.h"
#include "fuzz/FuzzCheck.h"

namespace {

using namespace kelvo;

// The dictionary file lists both, so bodies that echo them are tried.
const std::string kAuthToken = "kv-auth-0123456789";
const std::optional<std::string> kDeviceToken = std::string("kv-device-abcdef");

constexpr long kStatuses[] = {200, 201, 204, 299, 0,   301, 302, 307, 400, 401, 403,
                              404, 413, 429, 500, 502, 503, 100, 199, 600, 999, -1};

template <typename Record>
void checkSuccess(const WorkerAnswer& answer) {
    Record record;
    if (!fuzz::failsOnlyWithOwnError<DecodingError>(
            [&] { record = answer.decodedBody<Record>(); })) {
        return;
    }
    const std::string written = Json(record).dump();
    WorkerAnswer echoed;
    echoed.statusCode = 200;
    echoed.body = written;
    Record reread;
    fuzz::check(fuzz::failsOnlyWithOwnError([&] { reread = echoed.decodedBody<Record>(); }),
                "a written answer does not decode", written);
    fuzz::check(reread == record, "a written answer decodes to another record", written);
}

void checkError(const WorkerAnswer& answer) {
    try {
        answer.checkStatus(kAuthToken, kDeviceToken);
    } catch (const APIError& error) {
        const std::string_view shown = error.what();
        fuzz::check(error.statusCode() == static_cast<int>(answer.statusCode), "wrong status");
        fuzz::check(isValidUtf8(shown), "the error text is not UTF-8", shown);
        for (const char c : shown) {
            fuzz::check(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F,
                        "the error text holds a control character", shown);
        }
        fuzz::check(shown.size() <= 32 + APIError::shownBodyBytes, "the error text is too long",
                    shown);
        for (const std::string& token : {kAuthToken, *kDeviceToken}) {
            fuzz::check(shown.find(token) == std::string_view::npos &&
                            error.body().find(token) == std::string::npos,
                        "a token shows in the error", shown);
        }
        return;
    } catch (...) {
        fuzz::fail("an error status threw something other than APIError");
    }
    fuzz::fail("an error status was taken for success");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::uint8_t selector = data[0];
    std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);

    WorkerAnswer answer;
    answer.statusCode = kStatuses[selector % std::size(kStatuses)];
    if (answer.statusCode >= 300 && answer.statusCode <= 399) {
        const std::size_t targetBytes = std::min<std::size_t>(selector / 32u * 16u, rest.size());
        answer.redirectTarget = rest.substr(0, targetBytes);
        rest.remove_prefix(targetBytes);
    }
    answer.body = rest;

    if (answer.statusCode == 0 || (answer.statusCode >= 200 && answer.statusCode <= 299)) {
        fuzz::check(
            fuzz::failsOnlyWithOwnError([&] { answer.checkStatus(kAuthToken, kDeviceToken); }),
            "a success was taken for an error");
        checkSuccess<TranscribeResponse>(answer);
        checkSuccess<ProcessResponse>(answer);
    } else {
        checkError(answer);
    }
    return 0;
}
