#include "net/http_request.h"

#include <windows.h>
#include <winhttp.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundations/error_text.h"
#include "tests/support/scripted_server.h"

namespace kvx {
namespace {

using test::answer;
using test::ScriptedServer;

TEST(DescribeHttpError, HasWordsOfItsOwnForTheCommonCodes) {
  struct Case {
    uint32_t code;
    const char* text;
  };
  for (const Case& c : {Case{12002, "connect: the connection timed out"},
                        {12007, "connect: the server name could not be resolved"},
                        {12029, "connect: could not connect to the server"},
                        {12030, "connect: the connection was reset"},
                        {12175, "connect: the secure (TLS) connection failed"}}) {
    EXPECT_EQ(describe_http_error("connect", c.code), c.text);
  }
}

TEST(DescribeHttpError, TakesTheSystemsWordsForOtherCodes) {
  for (const uint32_t code :
       {0U, 5U, 6U, 12001U, 12005U, 12006U, 12028U, 12031U, 12152U, 12157U, 12174U, 12176U, 99999U}) {
    const std::string text = describe_http_error("receive", code);
    EXPECT_EQ(text, "receive: " + error_text(code));
    EXPECT_THAT(text, testing::HasSubstr("error " + std::to_string(code)));
  }
}

TEST(DescribeHttpError, PutsTheNameOfEveryStepBeforeTheText) {
  for (const char* step : {"connect", "open request", "send", "receive", "status", "read", "download"}) {
    EXPECT_EQ(describe_http_error(step, 12030), std::string(step) + ": the connection was reset");
  }
}

class SendRequest : public testing::Test {
 protected:
  SendRequest() { EXPECT_TRUE(session_.open(L"KVXLauncher/1.0.0", error_)) << error_; }

  bool send(const std::wstring& url, const std::wstring& extra_headers = L"") {
    UrlParts parts;
    EXPECT_TRUE(parse_url(url, parts, error_)) << error_;
    return send_request(session_, parts, extra_headers, request_, status_, error_);
  }

  ScriptedServer server_;
  HttpSession session_;
  HttpRequest request_;
  uint32_t status_ = 0;
  std::string error_;
};

TEST_F(SendRequest, GetsThePathWithItsQueryUnderTheSessionsUserAgent) {
  server_.serve("a/b.json?x=1&y=2", "{}");
  ASSERT_TRUE(send(server_.url("a/b.json?x=1&y=2"))) << error_;
  EXPECT_EQ(status_, 200U);
  const auto requests = server_.requests();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].target, "/a/b.json?x=1&y=2");
  EXPECT_EQ(requests[0].header("User-Agent"), "KVXLauncher/1.0.0");
  EXPECT_EQ(requests[0].header("Host"), "127.0.0.1:" + std::to_string(server_.port()));
  for (const char* absent :
       {"Range", "Cache-Control", "Pragma", "Authorization", "Cookie", "Referer", "Content-Length"}) {
    EXPECT_EQ(requests[0].header(absent), std::nullopt) << absent;
  }
}

TEST_F(SendRequest, SendsTheExtraHeaderLinesAsGiven) {
  ASSERT_TRUE(send(server_.url("x"), L"X-One: 1\r\nX-Two: two words\r\n")) << error_;
  const auto requests = server_.requests();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests[0].header("X-One"), "1");
  EXPECT_EQ(requests[0].header("X-Two"), "two words");
}

TEST_F(SendRequest, ReportsWhateverStatusTheServerAnswers) {
  for (const int status : {200, 204, 206, 304, 400, 403, 404, 410, 416, 429, 500, 503, 599}) {
    server_.script("x", {answer(status)});
    HttpRequest request;
    UrlParts parts;
    ASSERT_TRUE(parse_url(server_.url("x"), parts, error_));
    uint32_t reported = 0;
    EXPECT_TRUE(send_request(session_, parts, L"", request, reported, error_)) << status << ": " << error_;
    EXPECT_EQ(reported, static_cast<uint32_t>(status));
  }
}

TEST_F(SendRequest, SaysThatNothingListens) {
  const test::DeadPort port;
  EXPECT_FALSE(send(L"http://127.0.0.1:" + std::to_wstring(port.number()) + L"/"));
  EXPECT_EQ(error_, "send: could not connect to the server");
}

TEST_F(SendRequest, SaysThatAStoppedServerRefuses) {
  server_.stop();
  EXPECT_FALSE(send(server_.url("x")));
  EXPECT_EQ(error_, "send: could not connect to the server");
}

TEST_F(SendRequest, NamesTheConnectStepWhenTheSessionIsClosed) {
  const HttpSession closed;
  UrlParts parts;
  ASSERT_TRUE(parse_url(server_.url("x"), parts, error_));
  EXPECT_FALSE(send_request(closed, parts, L"", request_, status_, error_));
  EXPECT_THAT(error_, testing::StartsWith("connect: "));
  EXPECT_EQ(server_.requests().size(), 0U);
}

TEST_F(SendRequest, NamesTheReceiveStepWhenTheServerClosesWithoutAnAnswer) {
  for (const bool reset : {false, true}) {
    test::ScriptedResponse nothing;
    if (reset) nothing.reset();
    server_.always("x", nothing);
    EXPECT_FALSE(send(server_.url("x")));
    EXPECT_THAT(error_, testing::StartsWith("receive: ")) << reset;
  }
}

TEST_F(SendRequest, ReadsAHeaderByItsNumber) {
  server_.script("x", {answer(200, "12345", "Content-Range: bytes 5-9/10\r\n")});
  ASSERT_TRUE(send(server_.url("x"))) << error_;
  std::wstring text;
  EXPECT_TRUE(query_header_text(request_.request, WINHTTP_QUERY_CONTENT_LENGTH, text));
  EXPECT_EQ(text, L"5");
  EXPECT_TRUE(query_header_text(request_.request, WINHTTP_QUERY_CONTENT_RANGE, text));
  EXPECT_EQ(text, L"bytes 5-9/10");
}

TEST_F(SendRequest, HasNoTextForAHeaderThatIsAbsentOrEmpty) {
  server_.script("x", {answer(200, "", "ETag:\r\n")});
  ASSERT_TRUE(send(server_.url("x"))) << error_;
  for (const uint32_t header : {uint32_t{WINHTTP_QUERY_CONTENT_RANGE}, uint32_t{WINHTTP_QUERY_ETAG}}) {
    std::wstring text = L"old";
    EXPECT_FALSE(query_header_text(request_.request, header, text)) << header;
    EXPECT_EQ(text, L"") << header;
  }
}

// Redirects are left to WinHTTP, which follows them, but not from https to http.
TEST_F(SendRequest, FollowsARedirect) {
  server_.script("old", {answer(302, "", "Location: /new\r\n")});
  server_.serve("new", "found");
  ASSERT_TRUE(send(server_.url("old"))) << error_;
  EXPECT_EQ(status_, 200U);
  EXPECT_EQ(server_.requests_for("new").size(), 1U);
}

}  // namespace
}  // namespace kvx
