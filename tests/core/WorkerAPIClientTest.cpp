#include "core/services/WorkerAPIClient.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/services/APIError.h"
#include "core/services/TransportError.h"
#include "core/support/Error.h"
#include "core/support/Uuid.h"
#include "tests/core/AudioFileProbe.h"
#include "tests/core/TemporaryFolder.h"
#include "tests/support/LoopbackHttpServer.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using test::LoopbackHttpServer;
using test::thrown;

// Bytes that a careless multipart writer would mangle: a NUL, a CR LF and a fake boundary.
const std::string kAudioBytes = std::string("RIFF\0\x01\xff", 7) + "\r\n--Kelvo-\r\n";

void processX(const WorkerAPIClient& worker) {
    worker.process("x", "verbatim", "voiceInput", {}, std::nullopt);
}

bool isUpperCaseUuid(const std::string& text) {
    return isUuid(text) && canonicalUuid(text) == text;
}

class WorkerAPIClientTest : public ::testing::Test {
  protected:
    fs::path audioFile(const std::string& name, const std::string& bytes = kAudioBytes) {
        return folder_.write(name, bytes);
    }

    static WorkerAPIClient client(const std::string& baseURL, std::string authToken = "t",
                                  std::optional<std::string> deviceToken = std::nullopt,
                                  double timeoutSeconds = 30) {
        return WorkerAPIClient(baseURL, std::move(authToken), std::move(deviceToken),
                               timeoutSeconds, timeoutSeconds);
    }

    testing::TemporaryFolder folder_;
};

TEST_F(WorkerAPIClientTest, TranscribeSendsTheMultipartBodyByteForByte) {
    LoopbackHttpServer server;
    client(server.url("/v1/"))
        .transcribe(audioFile("take.wav"), "whisper-x", "ja", "会議 notes", 2.5);
    // No language and no prompt: only the model field follows the file.
    client(server.url("/v1")).transcribe(audioFile("memo.m4a"), "m", "", std::nullopt, 1.0);
    const auto sent = server.requests();
    ASSERT_EQ(sent.size(), 2u);
    std::string boundary[2];
    for (std::size_t i = 0; i < 2; ++i) {
        const std::string type = sent[i].header("Content-Type");
        ASSERT_TRUE(type.starts_with("multipart/form-data; boundary=Kelvo-")) << type;
        boundary[i] = type.substr(30);
        EXPECT_TRUE(isUpperCaseUuid(boundary[i].substr(6))) << type;
        EXPECT_EQ(sent[i].line, "POST /v1/transcribe HTTP/1.1");
    }
    EXPECT_NE(boundary[0], boundary[1]) << "every request has a fresh boundary";
    const auto part = [](const std::string& boundary, const std::string& name,
                         const std::string& value) {
        return "--" + boundary + "\r\nContent-Disposition: form-data; name=" + name + "\r\n\r\n" +
               value + "\r\n";
    };
    const std::string& take = boundary[0];
    EXPECT_EQ(
        sent[0].body,
        part(take, "\"file\"; filename=\"take.wav\"\r\nContent-Type: audio/wav", kAudioBytes) +
            part(take, "\"model\"", "whisper-x") + part(take, "\"language\"", "ja") +
            part(take, "\"prompt\"", "会議 notes") + "--" + take + "--\r\n");
    const std::string& memo = boundary[1];
    EXPECT_EQ(sent[1].body, part(memo, "\"file\"; filename=\"memo.m4a\"\r\nContent-Type: audio/m4a",
                                 kAudioBytes) +
                                part(memo, "\"model\"", "m") + "--" + memo + "--\r\n");

    // Only a lower-case ".wav" is sent as WAV; an empty prompt that was given is still sent.
    for (const char* name : {"take.WAV", "take.caf", "take"}) {
        client(server.url()).transcribe(audioFile(name), "m", "", "", 1.0);
        const auto sent = server.requests().back();
        EXPECT_NE(sent.body.find("; filename=\"" + std::string(name) +
                                 "\"\r\nContent-Type: audio/m4a\r\n"),
                  std::string::npos)
            << sent.body;
        EXPECT_EQ(sent.field("prompt"), "");
    }
}

TEST_F(WorkerAPIClientTest, TokenRequestIdAndDurationHeaders) {
    LoopbackHttpServer server;
    processX(client(server.url(), "t", ""));
    processX(client(server.url(), "", ""));
    client(server.url(), "t", "abc").transcribe(audioFile("a.wav"), "m", "ja", {}, 1.0);
    client(server.url()).process("x", "verbatim", "voiceInput", {}, std::nullopt, "my-id");
    client(server.url()).process("x", "verbatim", "voiceInput", {}, std::nullopt, "");

    const auto r = server.requests();
    ASSERT_EQ(r.size(), 5u);
    // The device token replaces the bearer token (for a text to process too: the kelvo binary's
    // worker token test); empty tokens send neither.
    const std::pair<std::string, std::string> tokens[] = {{"Bearer t", ""}, {"", ""}, {"", "abc"}};
    for (std::size_t i = 0; i < std::size(tokens); ++i) {
        SCOPED_TRACE(i);
        // Absent, not merely empty, when not expected.
        EXPECT_EQ(r[i].hasHeader("Authorization"), !tokens[i].first.empty());
        EXPECT_EQ(r[i].header("Authorization"), tokens[i].first);
        EXPECT_EQ(r[i].hasHeader("X-Device-Token"), !tokens[i].second.empty());
        EXPECT_EQ(r[i].header("X-Device-Token"), tokens[i].second);
        EXPECT_TRUE(isUpperCaseUuid(r[i].header("X-Request-Id")));
    }
    EXPECT_NE(r[0].header("X-Request-Id"), r[1].header("X-Request-Id"));
    EXPECT_EQ(r[3].header("X-Request-Id"), "my-id");
    EXPECT_FALSE(r[4].hasHeader("X-Request-Id"));

    // The audio's duration: as given with three decimals, else measured, else (not audio, or no
    // audio at all) not sent.
    const fs::path wav = folder_.path() / "take.wav";
    testing::writeWav(wav, 50000, std::vector<std::int16_t>(61728));  // 1.23456 s of silence
    const WorkerAPIClient worker = client(server.url());
    worker.transcribe(wav, "m", "ja", {}, 2.5);
    worker.transcribe(wav, "m", "ja", {});
    worker.transcribe(audioFile("not-audio.m4a", "plain text, not audio"), "m", "ja", {});
    const auto timed = server.requests();
    ASSERT_EQ(timed.size(), 8u);
    EXPECT_EQ(timed[5].header("X-Audio-Duration-Seconds"), "2.500");
    EXPECT_EQ(timed[6].header("X-Audio-Duration-Seconds"), "1.235");
    EXPECT_FALSE(timed[7].hasHeader("X-Audio-Duration-Seconds"));
    EXPECT_FALSE(timed[0].hasHeader("X-Audio-Duration-Seconds"));
}

TEST_F(WorkerAPIClientTest, ProcessSendsCompactJsonAndSuccessfulAnswersDecode) {
    LoopbackHttpServer server;
    server.answer(200, R"({"text":"整えた文","model":"ignored"})");
    // A query on the base URL is kept.
    const WorkerAPIClient worker = client(server.url("/api?key=abc"));
    EXPECT_EQ(worker.process("生の文", "concise", "markdown", {"東京", "gRPC"}, std::nullopt),
              "整えた文");
    worker.process("a", "translate", "translate", {}, "");
    worker.process("a", "translate", "translate", {}, "en");

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].line, "POST /api/process?key=abc HTTP/1.1");
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_EQ(Json::parse(requests[0].body),
              Json::parse(R"({"text":"生の文","summaryLevel":"concise",)"
                          R"("processingMode":"markdown","dictionaryHints":["東京","gRPC"]})"));
    EXPECT_FALSE(Json::parse(requests[1].body).contains("targetLanguage"));
    EXPECT_EQ(Json::parse(requests[1].body)["dictionaryHints"], Json::array());
    EXPECT_EQ(Json::parse(requests[2].body)["targetLanguage"], "en");

    server.answer(200, R"({"text":"こんにちは","language":"ja","duration":3.25})");
    EXPECT_EQ(worker.transcribe(audioFile("a.wav"), "m", "ja", std::nullopt, 1.0),
              (TranscribeResponse{"こんにちは", "ja", 3.25}));
    server.answer(201, R"({"text":"t"})");
    EXPECT_EQ(worker.transcribe(audioFile("a.wav"), "m", "ja", std::nullopt, 1.0),
              (TranscribeResponse{"t", std::nullopt, std::nullopt}));
}

// Any other answer fails both calls with a text for people: shortened, escaped, never showing the
// token; a redirect names its target and is never followed.
TEST_F(WorkerAPIClientTest, AnswersThatAreNoRecordFailWithATextForPeople) {
    LoopbackHttpServer elsewhere;
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url(), "secret-token");
    const std::string moved = "redirect to " + elsewhere.url("/steal") + " not followed";
    const struct {
        int status;
        std::string body;
        std::string shown;  // the start of the error's text
    } cases[] = {
        {401, "unauthorized", "API error (401): unauthorized"},
        {429, "混雑", "API error (429): 混雑"},
        {404, "", "API error (404): "},
        {502, "ok\xff\xfe", "API error (502): Unknown error"},
        {503, "\xed\xa0\x80", "API error (503): Unknown error"},  // an encoded surrogate
        {401, "bad token secret-token\x1b[2J\r\n" + std::string(5000, 'x'),
         "API error (401): bad token [token hidden]\\x1B[2J\\r\\nxxx"},
        {301, "", "API error (301): " + moved},
        {307, "", "API error (307): " + moved},
        {200, "not json", "the worker's answer: invalid JSON: "},
        {200, R"({"language":"ja"})", "missing required member \"text\""},
        {200, R"({"text":42})", "member \"text\": expected a string, found number"},
        {200, R"({"text":")" + std::string(WorkerAPIClient::maximumAnswerBytes, 'a') + R"("})",
         "The worker's answer is larger than "},
    };
    for (const auto& c : cases) {
        server.answer(c.status, c.body, {{"Location", elsewhere.url("/steal")}});
        for (const bool transcribe : {false, true}) {
            SCOPED_TRACE(c.shown + (transcribe ? " (transcribe)" : " (process)"));
            const auto call = [&] {
                transcribe ? (void)worker.transcribe(audioFile("a.wav"), "m", "ja", {}, 1.0)
                           : processX(worker);
            };
            std::string shown = "<no error>";
            try {
                call();
            } catch (const APIError& error) {
                EXPECT_EQ(error.statusCode(), c.status);
                EXPECT_EQ(error.body().find("secret-token"), std::string::npos);
                shown = error.what();
            } catch (const DecodingError& error) {
                shown = error.what();
            }
            EXPECT_TRUE(shown.starts_with(c.shown)) << shown;
            EXPECT_EQ(shown.find("secret-token"), std::string::npos);
            EXPECT_EQ(shown.find_first_of("\x1b\r\n"), std::string::npos);
            EXPECT_LT(shown.size(), 600u);
        }
    }
    EXPECT_TRUE(elsewhere.requests().empty());
}

// An answer that comes too late is a time-out; a connection closed without one is not.
TEST_F(WorkerAPIClientTest, LateOrMissingAnswersAreTransportErrorsOfTheirKind) {
    LoopbackHttpServer server;
    server.holdAnswers();
    // Rounded to zero milliseconds this would be curl's "no limit" and hang on the held answer.
    const WorkerAPIClient worker = client(server.url(), "t", std::nullopt, 0.0004);
    for (const bool transcribe : {false, true}) {
        const auto error = thrown<TransportError>([&] {
            transcribe ? (void)worker.transcribe(audioFile("a.wav"), "m", "ja", {}, 1.0)
                       : processX(worker);
        });
        ASSERT_TRUE(error);
        EXPECT_TRUE(error->timedOut()) << error->what();
    }
    server.releaseAnswers();

    server.behave(LoopbackHttpServer::Mode::hangUp);
    const auto error = thrown<TransportError>([&] { processX(client(server.url())); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), TransportError::Kind::connectionLost) << error->what();
}

TEST_F(WorkerAPIClientTest, UnreadableAudioOrUnencodableTextFailsBeforeAnythingIsSent) {
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url());
    const auto error = thrown<FileError>(
        [&] { worker.transcribe(folder_.path() / "missing.wav", "m", "ja", std::nullopt); });
    ASSERT_TRUE(error);
    EXPECT_NE(std::string(error->what()).find("missing.wav"), std::string::npos);
    EXPECT_THROW(worker.transcribe(folder_.path(), "m", "ja", std::nullopt, 1.0), FileError);
    EXPECT_THROW(worker.process("bad \xff text", "verbatim", "voiceInput", {}, std::nullopt),
                 EncodingError);
    // A token pasted with its line break must not smuggle in a header of its own.
    EXPECT_THROW(processX(client(server.url(), "t\r\nX-Admin: 1")), EncodingError);
    EXPECT_THROW(worker.process("x", "verbatim", "voiceInput", {}, std::nullopt, "id\nX: y"),
                 EncodingError);
    EXPECT_TRUE(server.requests().empty());
}

}  // namespace
}  // namespace kelvo
