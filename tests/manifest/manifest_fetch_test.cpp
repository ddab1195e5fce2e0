#include "manifest/manifest_fetch.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "manifest/manifest_limits.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_server.h"
#include "tests/support/signing_keys.h"
#include "tests/support/test_clock.h"

namespace kvx {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using test::answer;
using test::ScriptedResponse;
using test::sign_manifest;
using test::SigningKey;

using Status = ManifestFetchStatus;

// Kept byte for byte: a byte-order mark, line ends and a zero byte are part of what is signed.
const std::string manifest = std::string("\xEF\xBB\xBF{\"product\": \"kvx\"}\r\n") + '\0' + "\n ";
const std::string other_manifest = "{\"product\": \"another\"}";

constexpr const char* no_connection = "receive: could not connect to the server";
constexpr const char* no_match = "signature does not match the manifest";
constexpr const char* too_large = "response is larger than expected";

std::string signature_of_an_unknown_key() {
  std::string signature = sign_manifest(manifest);
  signature[8] = static_cast<char>(signature[8] ^ 1);
  return signature;
}

class FetchManifest : public testing::Test {
 protected:
  FetchManifest() {
    EXPECT_TRUE(session_.open(L"KVXLauncher/1.0.0", error_)) << error_;
    server_.on_request("manifest.json", [this](const auto&) { attempts_at_ms_.push_back(clock_.total_slept_ms()); });
  }

  Status fetch() {
    error_ = "untouched";
    const auto wait_or_stop = [this](uint32_t milliseconds) { return stop_.wait_or_stop(milliseconds); };
    return fetch_manifest({threads_, wait_or_stop, base_url_, channel_, built_in_keys()}, manifest_, signature_,
                          error_);
  }

  // A redirect to where nobody listens fails as a connection does, and the server stays for the other requests.
  ScriptedResponse unreachable() const {
    return answer(302, {}, "Location: http://127.0.0.1:" + std::to_string(dead_port_.number()) + "/\r\n");
  }

  test::TestClock clock_;
  test::LogCapture log_;
  std::vector<uint32_t> attempts_at_ms_;  // of each request for the manifest, before the server that fills it
  const test::DeadPort dead_port_;
  test::ScriptedServer server_;
  std::atomic<bool> cancel_requested_{false};
  std::atomic<bool> stop_workers_{false};
  const StopSignal stop_{cancel_requested_, stop_workers_};
  HttpSession session_;
  TransferThreads threads_{session_, stop_};
  std::wstring base_url_ = server_.base_url();
  std::string channel_ = "live";
  std::string manifest_;
  std::string signature_;
  std::string error_;
};

TEST_F(FetchManifest, HandsBackBothFilesUnchangedAndLogsTheKey) {
  for (const auto& [key, name] : {std::pair{SigningKey::primary, "primary"}, std::pair{SigningKey::backup, "backup"}}) {
    const std::string signature = sign_manifest(manifest, key);
    server_.serve("manifest.json", manifest);
    server_.serve("manifest.sig", signature);
    EXPECT_EQ(fetch(), Status::ok) << error_;
    EXPECT_TRUE(manifest_ == manifest);
    EXPECT_TRUE(signature_ == signature);
    EXPECT_EQ(log_.messages().back(),
              "manifest: " + std::to_string(manifest.size()) + " bytes, signature OK (key " + name + ")");
  }
  EXPECT_EQ(log_.messages().size(), 2U);
  EXPECT_EQ(clock_.total_slept_ms(), 0U);
}

TEST_F(FetchManifest, AsksForBothFilesOfTheChannelWithoutCaches) {
  struct Case {
    const char* channel;
    const char* folder;
    const char* prefix;
  };
  for (const Case& c : {Case{"live", "", ""},
                        {"live", "patch/", ""},
                        {"beta", "", "beta/"},
                        {"beta", "patch/", "beta/"},
                        {"Live", "", "Live/"},
                        {"LIVE", "", "LIVE/"},
                        {"live2", "", "live2/"},
                        {"liv", "", "liv/"},
                        {"test", "a/b/", "test/"},
                        {"a-b_9", "", "a-b_9/"}}) {
    const std::string folder = std::string(c.folder) + c.prefix;
    server_.script(folder + "manifest.json", {answer(200, manifest)});
    server_.script(folder + "manifest.sig", {answer(200, sign_manifest(manifest))});
    const size_t before = server_.requests().size();
    base_url_ = server_.url(c.folder);
    channel_ = c.channel;
    EXPECT_EQ(fetch(), Status::ok) << folder << ": " << error_;
    const auto requests = server_.requests();
    ASSERT_EQ(requests.size(), before + 2) << folder;
    EXPECT_EQ(requests[before].target, "/" + folder + "manifest.json");
    EXPECT_EQ(requests[before + 1].target, "/" + folder + "manifest.sig");
    for (size_t i = before; i < requests.size(); ++i) {
      EXPECT_EQ(requests[i].header("Cache-Control"), "no-cache");
      EXPECT_EQ(requests[i].header("Range"), std::nullopt);
    }
  }
}

// One row is one fetch: what the server answers to each attempt, and what comes of it.
TEST_F(FetchManifest, RetriesByTheRulesAndReportsTheLastCause) {
  struct Case {
    const char* what;
    std::vector<ScriptedResponse> manifests;
    std::vector<ScriptedResponse> signatures;
    Status status;
    const char* error;
    std::vector<uint32_t> attempts_at_ms;
    std::vector<std::string> log;
  };
  const ScriptedResponse good = answer(200, manifest);
  const std::string good_signature = sign_manifest(manifest);
  const ScriptedResponse signed_well = answer(200, good_signature);
  const ScriptedResponse signed_badly = answer(200, sign_manifest(other_manifest));
  const ScriptedResponse busy = answer(503, "busy");
  const ScriptedResponse none = answer(404, "none");
  const std::string fine = "manifest: " + std::to_string(manifest.size()) + " bytes, signature OK (key primary)";
  const auto unreached = [](int attempt) {
    return "manifest fetch failed (attempt " + std::to_string(attempt) + "): " + no_connection;
  };
  const auto no_signature = [](int attempt, const std::string& text) {
    return "signature fetch failed (attempt " + std::to_string(attempt) + "): " + text;
  };
  const auto unverified = [](int attempt, const std::string& text) {
    return "manifest signature check FAILED (attempt " + std::to_string(attempt) + "): " + text;
  };
  const std::string is_busy = "manifest fetch: HTTP 503";
  const ScriptedResponse lost = unreachable();
  const std::vector<uint32_t> one = {0};
  const std::vector<uint32_t> two = {0, 1500};
  const std::vector<uint32_t> three = {0, 1500, 4500};

  for (const Case& c : {
           Case{"nothing published", {none}, {}, Status::not_published, "HTTP 404", one, {}},
           {"nothing published any more", {busy, none}, {}, Status::not_published, "HTTP 404", two, {is_busy}},
           {"nothing published after a bad signature",
            {good, none},
            {signed_badly},
            Status::not_published,
            "HTTP 404",
            two,
            {unverified(1, no_match)}},
           {"always busy", {busy, busy, busy}, {}, Status::failed, "HTTP 503", three, {is_busy, is_busy, is_busy}},
           {"busy once", {busy, good}, {signed_well}, Status::ok, nullptr, two, {is_busy, fine}},
           {"busy twice", {busy, busy, good}, {signed_well}, Status::ok, nullptr, three, {is_busy, is_busy, fine}},
           {"two lost connections", {lost, lost}, {}, Status::failed, no_connection, two, {unreached(1), unreached(2)}},
           {"one lost connection", {lost, good}, {signed_well}, Status::ok, nullptr, two, {unreached(1), fine}},
           {"a second lost connection on the last attempt",
            {lost, busy, lost},
            {},
            Status::failed,
            no_connection,
            three,
            {unreached(1), is_busy, unreached(3)}},
           {"lost, busy and good",
            {lost, busy, good},
            {signed_well},
            Status::ok,
            nullptr,
            three,
            {unreached(1), is_busy, fine}},
           {"no signature",
            {good, good, good},
            {none, none, none},
            Status::failed,
            "manifest.sig: HTTP 404",
            three,
            {no_signature(1, "manifest.sig: HTTP 404"), no_signature(2, "manifest.sig: HTTP 404"),
             no_signature(3, "manifest.sig: HTTP 404")}},
           {"the signature comes late",
            {good, good},
            {busy, signed_well},
            Status::ok,
            nullptr,
            two,
            {no_signature(1, "manifest.sig: HTTP 503"), fine}},
           {"lost connections for the signature do not end it early",
            {good, good, good},
            {lost, lost, lost},
            Status::failed,
            no_connection,
            three,
            {no_signature(1, no_connection), no_signature(2, no_connection), no_signature(3, no_connection)}},
           {"lost connections for the signature are not counted with the manifest's",
            {good, lost, good},
            {lost, signed_well},
            Status::ok,
            nullptr,
            three,
            {no_signature(1, no_connection), unreached(2), fine}},
           {"always signed badly",
            {good, good, good},
            {signed_badly, signed_badly, signed_badly},
            Status::untrusted,
            no_match,
            three,
            {unverified(1, no_match), unverified(2, no_match), unverified(3, no_match)}},
           {"signed badly once",
            {good, good},
            {signed_badly, signed_well},
            Status::ok,
            nullptr,
            two,
            {unverified(1, no_match), fine}},
           {"signed badly, then two lost connections",
            {good, lost, lost},
            {signed_badly},
            Status::untrusted,
            no_connection,
            three,
            {unverified(1, no_match), unreached(2), unreached(3)}},
           {"signed badly between two lost connections",
            {lost, good, lost},
            {signed_badly},
            Status::untrusted,
            no_connection,
            three,
            {unreached(1), unverified(2, no_match), unreached(3)}},
           {"signed badly, then busy",
            {good, busy, busy},
            {signed_badly},
            Status::untrusted,
            "HTTP 503",
            three,
            {unverified(1, no_match), is_busy, is_busy}},
           {"signed badly, then without a signature",
            {good, good, good},
            {signed_badly, none, lost},
            Status::untrusted,
            no_connection,
            three,
            {unverified(1, no_match), no_signature(2, "manifest.sig: HTTP 404"), no_signature(3, no_connection)}},
           {"signed badly on the last attempt",
            {busy, busy, good},
            {signed_badly},
            Status::untrusted,
            no_match,
            three,
            {is_busy, is_busy, unverified(3, no_match)}},
           {"a signature of one attempt does not serve another",
            {good, answer(200, other_manifest), good},
            {signed_badly, signed_well, signed_badly},
            Status::untrusted,
            no_match,
            three,
            {unverified(1, no_match), unverified(2, no_match), unverified(3, no_match)}},
           {"one byte changed at the end",
            {answer(200, manifest + " "), good},
            {signed_well, signed_well},
            Status::ok,
            nullptr,
            two,
            {unverified(1, no_match), fine}},
           {"an unknown key",
            {good, good},
            {answer(200, signature_of_an_unknown_key()), signed_well},
            Status::ok,
            nullptr,
            two,
            {unverified(1, "manifest is signed with an unknown key"), fine}},
           {"a signature of 79 bytes",
            {good, good},
            {answer(200, sign_manifest(manifest).substr(0, 79)), signed_well},
            Status::ok,
            nullptr,
            two,
            {unverified(1, "signature file has an unknown format"), fine}},
           {"a signature as large as is read",
            {good, good, good},
            {answer(200, std::string(4096, 'x')), lost, lost},
            Status::untrusted,
            no_connection,
            three,
            {unverified(1, "signature file has an unknown format"), no_signature(2, no_connection),
             no_signature(3, no_connection)}},
           {"a signature one byte larger",
            {good, good, good},
            {answer(200, std::string(4097, 'x')), answer(200, std::string(4097, 'x')),
             answer(200, std::string(4097, 'x'))},
            Status::failed,
            too_large,
            three,
            {no_signature(1, too_large), no_signature(2, too_large), no_signature(3, too_large)}},
       }) {
    SCOPED_TRACE(c.what);
    const test::TestClock from_zero;
    attempts_at_ms_.clear();
    const size_t requests_before = server_.requests().size();
    const size_t log_before = log_.messages().size();
    server_.script("manifest.json", c.manifests);
    server_.script("manifest.sig", c.signatures);
    EXPECT_EQ(fetch(), c.status);
    if (c.error != nullptr) {
      EXPECT_EQ(error_, c.error);
    } else {
      EXPECT_TRUE(manifest_ == manifest);
      EXPECT_TRUE(signature_ == good_signature);
    }
    EXPECT_THAT(attempts_at_ms_, ElementsAreArray(c.attempts_at_ms));
    EXPECT_EQ(from_zero.total_slept_ms(), c.attempts_at_ms.back());
    EXPECT_EQ(server_.requests().size() - requests_before, c.manifests.size() + c.signatures.size());
    const std::vector<std::string> log = log_.messages();
    EXPECT_THAT(std::vector(log.begin() + static_cast<std::ptrdiff_t>(log_before), log.end()), ElementsAreArray(c.log));
  }
}

TEST_F(FetchManifest, RetriesAfterEveryStatusBut200And404) {
  server_.serve("manifest.json", manifest);
  server_.serve("manifest.sig", sign_manifest(manifest));
  for (const int status : {201, 204, 206, 304, 400, 403, 405, 410, 416, 429, 500, 502, 503, 504, 599}) {
    const test::TestClock from_zero;
    server_.script("manifest.json", {answer(status)});
    server_.script("manifest.sig", {answer(status)});
    EXPECT_EQ(fetch(), Status::ok) << status << ": " << error_;
    const std::string text = "HTTP " + std::to_string(status);
    std::vector<std::string> log = log_.messages();
    log.erase(log.begin(), log.end() - 3);
    EXPECT_THAT(log, ElementsAre("manifest fetch: " + text, "signature fetch failed (attempt 2): manifest.sig: " + text,
                                 testing::StartsWith("manifest: ")));
    EXPECT_EQ(from_zero.total_slept_ms(), 4500U);
  }
}

TEST_F(FetchManifest, GivesUpAfterTwoRefusedConnectionsAndOneWait) {
  server_.stop();
  EXPECT_EQ(fetch(), Status::failed);
  EXPECT_EQ(error_, "send: could not connect to the server");
  EXPECT_EQ(clock_.total_slept_ms(), 1500U);
  EXPECT_THAT(log_.messages(), ElementsAre("manifest fetch failed (attempt 1): send: could not connect to the server",
                                           "manifest fetch failed (attempt 2): send: could not connect to the server"));
}

TEST_F(FetchManifest, AServerThatGoesAwayDoesNotHideABadSignature) {
  server_.serve("manifest.json", manifest);
  server_.serve("manifest.sig", sign_manifest(other_manifest));
  clock_.on_sleep([this](uint32_t) { server_.stop(); });
  EXPECT_EQ(fetch(), Status::untrusted);
  EXPECT_EQ(error_, "send: could not connect to the server");
  EXPECT_EQ(clock_.total_slept_ms(), 4500U);
  EXPECT_EQ(log_.messages().size(), 3U);
}

TEST_F(FetchManifest, AStopEndsTheWaitWithinOneStep) {
  struct Case {
    const char* what;
    std::atomic<bool>& flag;
    bool signed_badly;
    uint32_t at_ms;
    size_t attempts;
    Status status;
    const char* error;
  };
  for (const Case& c : {
           Case{"cancelled at once", cancel_requested_, false, 0, 1, Status::failed, "HTTP 503"},
           {"cancelled in the first wait", cancel_requested_, false, 700, 1, Status::failed, "HTTP 503"},
           {"cancelled at its end", cancel_requested_, false, 1400, 1, Status::failed, "HTTP 503"},
           {"cancelled in the second wait", cancel_requested_, false, 2000, 2, Status::failed, "HTTP 503"},
           {"stopped", stop_workers_, false, 700, 1, Status::failed, "HTTP 503"},
           {"cancelled after a bad signature", cancel_requested_, true, 700, 1, Status::untrusted, no_match},
           {"cancelled after two", cancel_requested_, true, 2000, 2, Status::untrusted, no_match},
       }) {
    SCOPED_TRACE(c.what);
    test::TestClock from_zero;
    cancel_requested_ = false;
    stop_workers_ = false;
    attempts_at_ms_.clear();
    server_.always("manifest.json", c.signed_badly ? answer(200, manifest) : answer(503));
    server_.always("manifest.sig", answer(200, sign_manifest(other_manifest)));
    from_zero.on_sleep([&c](uint32_t slept_ms) {
      if (slept_ms >= c.at_ms) c.flag = true;
    });
    EXPECT_EQ(fetch(), c.status);
    EXPECT_EQ(error_, c.error);
    EXPECT_EQ(attempts_at_ms_.size(), c.attempts);
    EXPECT_EQ(from_zero.total_slept_ms(), c.at_ms + 100);
  }
}

TEST_F(FetchManifest, AsksTheServerForNothingAfterACancel) {
  server_.serve("manifest.json", manifest);
  server_.serve("manifest.sig", sign_manifest(manifest));
  server_.on_request("manifest.json", [this](const auto&) { cancel_requested_ = true; });
  EXPECT_EQ(fetch(), Status::failed);
  EXPECT_EQ(error_, "cancelled");
  EXPECT_EQ(server_.requests().size(), 1U);

  EXPECT_EQ(fetch(), Status::failed);
  EXPECT_EQ(error_, "cancelled");
  EXPECT_EQ(server_.requests().size(), 1U);
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(FetchManifest, TakesAManifestOf64MiBAndNotOneByteMore) {
  EXPECT_EQ(largest_manifest_bytes, 67108864U);
  EXPECT_EQ(largest_signature_bytes, 4096U);
  std::string large;
  large.resize(67108864, ' ');
  server_.serve("manifest.json", large);
  server_.serve("manifest.sig", sign_manifest(large));
  EXPECT_EQ(fetch(), Status::ok) << error_;
  EXPECT_TRUE(manifest_ == large);
  EXPECT_EQ(log_.messages().back(), "manifest: 67108864 bytes, signature OK (key primary)");

  large += ' ';
  server_.serve("manifest.sig", sign_manifest(large));
  server_.serve("manifest.json", std::move(large));
  EXPECT_EQ(fetch(), Status::failed);
  EXPECT_EQ(error_, too_large);
  EXPECT_EQ(manifest_, "");
  EXPECT_EQ(log_.messages().back(), std::string("manifest fetch failed (attempt 2): ") + too_large);
  EXPECT_EQ(server_.requests_for("manifest.sig").size(), 1U);
}

TEST_F(FetchManifest, RefusesABaseUrlThatTheRulesRefuse) {
  base_url_ = L"http://127.0.0.2/";
  EXPECT_EQ(fetch(), Status::failed);
  EXPECT_EQ(error_, "plain HTTP is only allowed for a local test server (127.0.0.1 / localhost)");
}

TEST(ManifestFetchStatus, HasFixedNumbers) {
  EXPECT_EQ(static_cast<int>(Status::ok), 0);
  EXPECT_EQ(static_cast<int>(Status::failed), 1);
  EXPECT_EQ(static_cast<int>(Status::not_published), 2);
  EXPECT_EQ(static_cast<int>(Status::untrusted), 3);
}

}  // namespace
}  // namespace kvx
