#include "tests/support/scripted_server.h"

#include <winsock2.h>

#include <gtest/gtest.h>
#include <thread>

#include "net/transfer.h"

namespace kvx::test {
namespace {

class ScriptedServerTest : public testing::Test {
 protected:
  ScriptedServerTest() { EXPECT_TRUE(session_.open(L"test", error_)) << error_; }

  int32_t fetch(const std::string& path) { return fetch_to_memory(session_, server_.url(path), body_, 100, error_); }

  ScriptedServer server_;
  HttpSession session_;
  std::string body_;
  std::string error_;
};

TEST_F(ScriptedServerTest, AnswersFromTheScriptThenAlwaysTheSameThenTheFileThenNothing) {
  EXPECT_EQ(fetch("a/b?c=1"), 404);
  server_.serve("/a/b?c=1", "file");
  EXPECT_EQ(fetch("a/b?c=1"), 200);
  EXPECT_EQ(body_, "file");
  server_.always("a/b?c=1", answer(500));
  server_.script("a/b?c=1", {answer(501), answer(200, "scripted")});
  EXPECT_EQ(fetch("a/b?c=1"), 501);
  EXPECT_EQ(fetch("a/b?c=1"), 200);
  EXPECT_EQ(body_, "scripted");
  EXPECT_EQ(fetch("a/b?c=1"), 500);
  EXPECT_EQ(fetch("a/b"), 404);
  EXPECT_EQ(server_.requests_for("a/b?c=1").size(), 5U);
  EXPECT_EQ(server_.requests().back().target, "/a/b");
}

TEST_F(ScriptedServerTest, CallsTheHookBeforeItAnswers) {
  std::string seen;
  server_.serve("x", "body");
  server_.on_request("x", [&](const RecordedRequest& request) {
    seen = request.method + " " + request.target;
    server_.serve("y", "made by the hook");
  });
  EXPECT_EQ(fetch("x"), 200);
  EXPECT_EQ(seen, "GET /x");
  EXPECT_EQ(fetch("y"), 200);
}

TEST_F(ScriptedServerTest, StopsAtAGateUntilItOpens) {
  const Gate gate;
  server_.script("x", {answer_without_length(200, "before ").wait_for(gate).then("after")});
  EXPECT_FALSE(gate.wait_until_reached(0));
  {
    const std::jthread fetching([this] { EXPECT_EQ(fetch("x"), 200); });
    EXPECT_TRUE(gate.wait_until_reached());
    gate.open();
  }
  EXPECT_EQ(body_, "before after");
}

TEST_F(ScriptedServerTest, StopEndsWhatIsHeldAndRefusesWhatComes) {
  const Gate never;
  for (const char* path : {"hold", "gate"}) {
    ScriptedServer server;
    server.always(path, path == std::string("gate") ? ScriptedResponse().wait_for(never) : ScriptedResponse().hold());
    int32_t status = 99;
    {
      const std::jthread fetching([&] { status = fetch_to_memory(session_, server.url(path), body_, 100, error_); });
      EXPECT_TRUE(server.wait_for_requests(1));
      server.stop();
    }
    EXPECT_EQ(status, 0) << path;
    EXPECT_EQ(fetch_to_memory(session_, server.url(path), body_, 100, error_), 0);
    EXPECT_EQ(error_, "send: could not connect to the server");
    EXPECT_EQ(server.requests().size(), 1U);
  }
}

// A server of another test in its place would answer what ought to be refused.
TEST_F(ScriptedServerTest, KeepsItsPortFromOthersAfterAStop) {
  server_.serve("x", "body");
  EXPECT_EQ(fetch("x"), 200);
  server_.stop();
  const SOCKET other = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(server_.port());
  EXPECT_NE(bind(other, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  EXPECT_EQ(WSAGetLastError(), WSAEADDRINUSE);
  closesocket(other);
}

TEST_F(ScriptedServerTest, ServesManyRequestsOneAfterAnother) {
  server_.serve("x", "body");
  for (int i = 0; i < 100; ++i) ASSERT_EQ(fetch("x"), 200) << i << ": " << error_;
  EXPECT_EQ(server_.requests().size(), 100U);
}

}  // namespace
}  // namespace kvx::test
