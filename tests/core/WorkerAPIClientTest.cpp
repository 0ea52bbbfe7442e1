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
#include "tests/support/RawHttpListener.h"
#include "tests/support/Thrown.h"

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using test::LoopbackHttpServer;
using test::RawHttpListener;
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

std::string textField(const std::string& boundary, const std::string& name,
                      const std::string& value) {
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" +
           value + "\r\n";
}

TEST_F(WorkerAPIClientTest, TranscribeSendsTheMultipartBodyByteForByte) {
    std::string firstBoundary;
    {
        RawHttpListener listener(RawHttpListener::Behaviour::answerJson);
        const fs::path file = audioFile("take.wav");
        client(listener.url("/v1/")).transcribe(file, "whisper-x", "ja", "会議 notes", 2.5, "R-1");

        const std::string contentType = listener.header("content-type");
        const std::string prefix = "multipart/form-data; boundary=";
        ASSERT_EQ(contentType.substr(0, prefix.size()), prefix);
        const std::string boundary = contentType.substr(prefix.size());
        ASSERT_EQ(boundary.substr(0, 6), "Kelvo-");
        EXPECT_TRUE(isUpperCaseUuid(boundary.substr(6))) << boundary;
        firstBoundary = boundary;

        EXPECT_EQ(listener.rawRequest().substr(0, 32), "POST /v1/transcribe HTTP/1.1\r\nHo");
        EXPECT_EQ(listener.body(),
                  "--" + boundary +
                      "\r\nContent-Disposition: form-data; name=\"file\"; "
                      "filename=\"take.wav\"\r\nContent-Type: audio/wav\r\n\r\n" +
                      kAudioBytes + "\r\n" + textField(boundary, "model", "whisper-x") +
                      textField(boundary, "language", "ja") +
                      textField(boundary, "prompt", "会議 notes") + "--" + boundary + "--\r\n");
    }
    {
        // No language and no prompt: only the model field follows the file.
        RawHttpListener listener(RawHttpListener::Behaviour::answerJson);
        const fs::path file = audioFile("memo.m4a");
        client(listener.url("/v1")).transcribe(file, "m", "", std::nullopt, 1.0);

        const std::string boundary = listener.header("content-type").substr(30);
        EXPECT_NE(boundary, firstBoundary) << "every request has a fresh boundary";
        EXPECT_EQ(listener.rawRequest().substr(0, 20), "POST /v1/transcribe ");
        EXPECT_EQ(listener.body(), "--" + boundary +
                                       "\r\nContent-Disposition: form-data; name=\"file\"; "
                                       "filename=\"memo.m4a\"\r\nContent-Type: audio/m4a\r\n\r\n" +
                                       kAudioBytes + "\r\n" + textField(boundary, "model", "m") +
                                       "--" + boundary + "--\r\n");
    }
}

TEST_F(WorkerAPIClientTest, MultipartFormIsReadableByAnHttpServer) {
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url());
    const std::pair<const char*, const char*> typeByName[] = {{"take.wav", "audio/wav"},
                                                              {"take.WAV", "audio/m4a"},
                                                              {"take.caf", "audio/m4a"},
                                                              {"take", "audio/m4a"}};
    for (const auto& [name, type] : typeByName) {
        worker.transcribe(audioFile(name), "whisper-1", "", "", 1.0);
    }
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), std::size(typeByName));
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const auto& file = requests[i].files.find("file")->second;
        EXPECT_EQ(file.filename, typeByName[i].first);
        EXPECT_EQ(file.content_type, typeByName[i].second) << file.filename;
        EXPECT_EQ(file.content, kAudioBytes);
    }
    // An empty prompt that was given is still sent.
    ASSERT_EQ(requests[0].files.count("prompt"), 1u);
    EXPECT_EQ(requests[0].files.find("prompt")->second.content, "");
}

TEST_F(WorkerAPIClientTest, TokenAndRequestIdHeaders) {
    LoopbackHttpServer server;
    processX(client(server.url(), "t", "abc"));
    processX(client(server.url(), "t", ""));
    processX(client(server.url(), "", ""));
    client(server.url(), "t", "abc").transcribe(audioFile("a.wav"), "m", "ja", {}, 1.0);
    client(server.url()).process("x", "verbatim", "voiceInput", {}, std::nullopt, "my-id");
    client(server.url()).process("x", "verbatim", "voiceInput", {}, std::nullopt, "");

    const auto r = server.requests();
    ASSERT_EQ(r.size(), 6u);
    // The device token replaces the bearer token; empty tokens send neither.
    const std::pair<std::string, std::string> tokens[] = {
        {"", "abc"}, {"Bearer t", ""}, {"", ""}, {"", "abc"}};
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
    EXPECT_EQ(r[4].header("X-Request-Id"), "my-id");
    EXPECT_FALSE(r[5].hasHeader("X-Request-Id"));
}

TEST_F(WorkerAPIClientTest, DurationHeaderHasThreeDecimalsAndIsMeasuredWhenNotGiven) {
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url());
    const fs::path wav = folder_.path() / "take.wav";
    testing::writeWav(wav, 50000, std::vector<std::int16_t>(61728));  // 1.23456 s of silence

    worker.transcribe(wav, "m", "ja", {}, 2.5);
    worker.transcribe(wav, "m", "ja", {});
    worker.transcribe(audioFile("not-audio.m4a", "plain text, not audio"), "m", "ja", {});
    processX(worker);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[0].header("X-Audio-Duration-Seconds"), "2.500");
    EXPECT_EQ(requests[1].header("X-Audio-Duration-Seconds"), "1.235");
    EXPECT_FALSE(requests[2].hasHeader("X-Audio-Duration-Seconds"));
    EXPECT_FALSE(requests[3].hasHeader("X-Audio-Duration-Seconds"));
}

TEST_F(WorkerAPIClientTest, ProcessSendsCompactJsonAndTargetLanguageOnlyWhenNonEmpty) {
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
    EXPECT_EQ(requests[0].path, "/api/process");
    ASSERT_EQ(requests[0].params.count("key"), 1u);
    EXPECT_EQ(requests[0].params.find("key")->second, "abc");
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_EQ(Json::parse(requests[0].body),
              Json::parse(R"({"text":"生の文","summaryLevel":"concise",)"
                          R"("processingMode":"markdown","dictionaryHints":["東京","gRPC"]})"));
    EXPECT_FALSE(Json::parse(requests[1].body).contains("targetLanguage"));
    EXPECT_EQ(Json::parse(requests[1].body)["dictionaryHints"], Json::array());
    EXPECT_EQ(Json::parse(requests[2].body)["targetLanguage"], "en");
}

TEST_F(WorkerAPIClientTest, NonSuccessAnswersBecomeApiErrorsWithTheBodyText) {
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url());
    const struct {
        int status;
        std::string body;
        std::string description;
    } cases[] = {
        {401, "unauthorized", "API error (401): unauthorized"},
        {429, "混雑", "API error (429): 混雑"},
        {404, "", "API error (404): "},
        {502, "ok\xff\xfe", "API error (502): Unknown error"},
        {503, "\xed\xa0\x80", "API error (503): Unknown error"},  // an encoded surrogate
    };
    for (const auto& [status, body, description] : cases) {
        SCOPED_TRACE(status);
        server.answer(status, body);
        const auto error = thrown<APIError>([&] { processX(worker); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->what(), description);
        EXPECT_EQ(error->statusCode(), status);
    }
    server.answer(401, "unauthorized");
    const auto error = thrown<APIError>(
        [&] { worker.transcribe(audioFile("a.wav"), "m", "ja", std::nullopt, 1.0); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->body(), "unauthorized");
}

TEST_F(WorkerAPIClientTest, RedirectsAreErrorsNamingTheTargetAndAreNeverFollowed) {
    LoopbackHttpServer elsewhere;
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url(), "secret-token");
    for (const int status : {301, 302, 307, 308}) {
        server.answer(status, "moved", {{"Location", elsewhere.url("/steal")}});
        const auto error = thrown<APIError>([&] { processX(worker); });
        ASSERT_TRUE(error) << "a " << status << " answer was taken as success";
        EXPECT_EQ(error->statusCode(), status);
        EXPECT_NE(std::string(error->what()).find(elsewhere.url("/steal")), std::string::npos)
            << error->what();
    }
    EXPECT_TRUE(elsewhere.requests().empty());
}

TEST_F(WorkerAPIClientTest, ErrorBodiesAreShortenedEscapedAndNeverShowTheToken) {
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url(), "secret-token");
    server.answer(401, "bad token secret-token\x1b[2J\r\n" + std::string(5000, 'x'));
    const auto error = thrown<APIError>([&] { processX(worker); });
    ASSERT_TRUE(error);
    const std::string shown = error->what();
    EXPECT_EQ(shown.find("secret-token"), std::string::npos);
    EXPECT_EQ(shown.find('\x1b'), std::string::npos);
    EXPECT_EQ(shown.find('\n'), std::string::npos);
    EXPECT_NE(shown.find("\\x1B[2J\\r\\n"), std::string::npos) << shown;
    EXPECT_LT(shown.size(), 600u);
    EXPECT_EQ(error->body().find("secret-token"), std::string::npos);
}

TEST_F(WorkerAPIClientTest, AnAnswerOfSeveralMegabytesIsAnErrorNotARecord) {
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url());
    server.answer(200,
                  R"({"text":")" + std::string(WorkerAPIClient::maximumAnswerBytes, 'a') + R"("})");
    const auto error = thrown<DecodingError>([&] { processX(worker); });
    ASSERT_TRUE(error) << "an oversized answer was accepted";
    EXPECT_NE(std::string(error->what()).find("larger than"), std::string::npos) << error->what();
}

TEST_F(WorkerAPIClientTest, SuccessfulBodiesDecodeAndMissingTextIsADecodingError) {
    LoopbackHttpServer server;
    const WorkerAPIClient worker = client(server.url());
    const fs::path file = audioFile("a.wav");

    server.answer(200, R"({"text":"こんにちは","language":"ja","duration":3.25})");
    EXPECT_EQ(worker.transcribe(file, "m", "ja", std::nullopt, 1.0),
              (TranscribeResponse{"こんにちは", "ja", 3.25}));
    server.answer(201, R"({"text":"t"})");
    EXPECT_EQ(worker.transcribe(file, "m", "ja", std::nullopt, 1.0),
              (TranscribeResponse{"t", std::nullopt, std::nullopt}));

    server.answer(200, R"({"language":"ja"})");
    EXPECT_THROW(worker.transcribe(file, "m", "ja", std::nullopt, 1.0), DecodingError);
    EXPECT_THROW(processX(worker), DecodingError);
    server.answer(200, "not json");
    const auto notJson = thrown<DecodingError>([&] { processX(worker); });
    ASSERT_TRUE(notJson);
    EXPECT_TRUE(std::string(notJson->what()).starts_with("the worker's answer: invalid JSON: "))
        << notJson->what();
    server.answer(200, R"({"text":42})");
    EXPECT_THROW(processX(worker), DecodingError);
}

TEST_F(WorkerAPIClientTest, AnswerSlowerThanTheTimeLimitFailsAsATimeout) {
    LoopbackHttpServer server;
    server.holdAnswers();
    // Rounded to zero milliseconds this would be curl's "no limit" and hang on the held answer.
    const WorkerAPIClient worker = client(server.url(), "t", std::nullopt, 0.0004);
    const auto processError = thrown<TransportError>([&] { processX(worker); });
    ASSERT_TRUE(processError);
    EXPECT_TRUE(processError->timedOut()) << processError->what();
    const auto transcribeError = thrown<TransportError>(
        [&] { worker.transcribe(audioFile("a.wav"), "m", "ja", std::nullopt, 1.0); });
    ASSERT_TRUE(transcribeError);
    EXPECT_TRUE(transcribeError->timedOut()) << transcribeError->what();
    server.releaseAnswers();
}

TEST_F(WorkerAPIClientTest, ConnectionClosedWithoutAnswerIsATransportErrorNotATimeout) {
    RawHttpListener listener(RawHttpListener::Behaviour::closeWithoutAnswer);
    const auto error = thrown<TransportError>([&] { processX(client(listener.url())); });
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
