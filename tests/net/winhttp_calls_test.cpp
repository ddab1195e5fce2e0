// How the network code uses WinHTTP, call by call, including failures that no server can bring about. This program has
// a WinHTTP of its own: it defines the symbols that calls into the DLL go through, so the DLL is not even imported.
#include <windows.h>
#include <winhttp.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "foundations/error_text.h"
#include "foundations/text.h"
#include "net/http_request.h"
#include "net/http_session.h"
#include "net/transfer.h"
#include "net/url.h"

namespace kvx {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

struct FakeWinHttp {
  std::vector<std::string> calls;
  std::map<std::string, std::deque<DWORD>> errors;  // of the next calls of a function; 0 lets one succeed
  URL_COMPONENTS split{};                           // what the splitter returns
  DWORD status = 200;
  std::map<DWORD, std::wstring> headers;
  std::deque<std::string> chunks;  // one per read, then the end of the body
  std::vector<const void*> read_buffers;
  std::vector<DWORD> read_sizes;
  std::function<void()> on_read;

  bool succeeds(const std::string& function) {
    std::deque<DWORD>& next = errors[function];
    if (next.empty()) return true;
    const DWORD error = next.front();
    next.pop_front();
    if (error != 0) SetLastError(error);
    return error == 0;
  }
};

FakeWinHttp* fake = nullptr;

// NOLINTNEXTLINE(performance-no-int-to-ptr): handles that only this program looks at
HINTERNET handle(uintptr_t number) { return reinterpret_cast<HINTERNET>(number); }
const HINTERNET session_handle = handle(0x100);
const HINTERNET connection_handle = handle(0x200);
const HINTERNET request_handle = handle(0x300);

std::string name_of(HINTERNET value) {
  if (value == session_handle) return "session";
  if (value == connection_handle) return "connection";
  return value == request_handle ? "request" : "?";
}

std::string shown(const wchar_t* text) { return text == nullptr ? "none" : to_utf8(text); }

}  // namespace

// With C linkage these are the very functions that the program calls.
extern "C" {

HINTERNET WINAPI WinHttpOpen(LPCWSTR agent, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
  fake->calls.push_back("open " + shown(agent) + " access " + std::to_string(access) + " proxy " + shown(proxy) +
                        " bypass " + shown(bypass) + " flags " + std::to_string(flags));
  return fake->succeeds("open") ? session_handle : nullptr;
}

WINBOOL WINAPI WinHttpSetTimeouts(HINTERNET target, int resolve, int connect, int send, int receive) {
  fake->calls.push_back("timeouts of " + name_of(target) + " " + std::to_string(resolve) + " " +
                        std::to_string(connect) + " " + std::to_string(send) + " " + std::to_string(receive));
  return fake->succeeds("timeouts") ? TRUE : FALSE;
}

WINBOOL WINAPI WinHttpSetOption(HINTERNET target, DWORD option, LPVOID value, DWORD size) {
  EXPECT_EQ(size, sizeof(DWORD));
  fake->calls.push_back("option " + std::to_string(option) + " of " + name_of(target) + " " +
                        std::to_string(*static_cast<const DWORD*>(value)));
  return fake->succeeds("option") ? TRUE : FALSE;
}

WINBOOL WINAPI WinHttpCloseHandle(HINTERNET target) {
  fake->calls.push_back("close " + name_of(target));
  SetLastError(ERROR_GEN_FAILURE);  // closing must not hide an earlier error
  return TRUE;
}

HINTERNET WINAPI WinHttpConnect(HINTERNET target, LPCWSTR host, INTERNET_PORT port, DWORD reserved) {
  fake->calls.push_back("connect " + name_of(target) + " " + shown(host) + " " + std::to_string(port) + " " +
                        std::to_string(reserved));
  return fake->succeeds("connect") ? connection_handle : nullptr;
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET target, LPCWSTR verb, LPCWSTR path, LPCWSTR version, LPCWSTR referrer,
                                    LPCWSTR* types, DWORD flags) {
  fake->calls.push_back("open request on " + name_of(target) + " " + shown(verb) + " " + shown(path) + " version " +
                        shown(version) + " referrer " + shown(referrer) + " types " +
                        (types == nullptr ? "none" : "some") + " flags " + std::to_string(flags));
  return fake->succeeds("open request") ? request_handle : nullptr;
}

WINBOOL WINAPI WinHttpSendRequest(HINTERNET target, LPCWSTR headers, DWORD length, LPVOID body, DWORD body_length,
                                  DWORD total, DWORD_PTR context) {
  EXPECT_EQ(body, nullptr);
  EXPECT_EQ(context, 0U);
  fake->calls.push_back("send " + name_of(target) + " headers " + shown(headers) + " length " +
                        std::to_string(static_cast<int>(length)) + " body " + std::to_string(body_length) + " " +
                        std::to_string(total));
  return fake->succeeds("send") ? TRUE : FALSE;
}

WINBOOL WINAPI WinHttpReceiveResponse(HINTERNET target, LPVOID reserved) {
  EXPECT_EQ(reserved, nullptr);
  fake->calls.push_back("receive " + name_of(target));
  return fake->succeeds("receive") ? TRUE : FALSE;
}

WINBOOL WINAPI WinHttpQueryHeaders(HINTERNET target, DWORD info, LPCWSTR name, LPVOID buffer, LPDWORD size,
                                   LPDWORD index) {
  EXPECT_EQ(name, nullptr);
  EXPECT_EQ(index, nullptr);
  const std::string function = info == (WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER)
                                   ? "status"
                                   : "header " + std::to_string(info) + (buffer == nullptr ? " size" : "");
  fake->calls.push_back(function + " of " + name_of(target));
  if (!fake->succeeds(function)) return FALSE;
  if (function == "status") {
    EXPECT_EQ(*size, sizeof(DWORD));
    *static_cast<DWORD*>(buffer) = fake->status;
    return TRUE;
  }
  const auto found = fake->headers.find(info);
  if (found == fake->headers.end()) {
    SetLastError(ERROR_WINHTTP_HEADER_NOT_FOUND);
    return FALSE;
  }
  const auto text_bytes = static_cast<DWORD>(found->second.size() * sizeof(wchar_t));
  const DWORD needed = text_bytes + static_cast<DWORD>(sizeof(wchar_t));
  if (buffer == nullptr || *size < needed) {
    *size = needed;
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  memcpy(buffer, found->second.c_str(), needed);
  *size = text_bytes;
  return TRUE;
}

WINBOOL WINAPI WinHttpQueryDataAvailable(HINTERNET target, LPDWORD available) {
  EXPECT_EQ(target, request_handle);
  if (!fake->succeeds("available")) return FALSE;
  *available = fake->chunks.empty() ? 0 : static_cast<DWORD>(fake->chunks.front().size());
  return TRUE;
}

WINBOOL WINAPI WinHttpReadData(HINTERNET target, LPVOID buffer, DWORD size, LPDWORD got) {
  fake->calls.push_back("read " + name_of(target));
  fake->read_buffers.push_back(buffer);
  fake->read_sizes.push_back(size);
  if (fake->on_read) fake->on_read();
  if (!fake->succeeds("read")) return FALSE;
  *got = 0;
  if (fake->chunks.empty()) return TRUE;
  const std::string chunk = fake->chunks.front();
  fake->chunks.pop_front();
  memcpy(buffer, chunk.data(), chunk.size());
  *got = static_cast<DWORD>(chunk.size());
  return TRUE;
}

WINBOOL WINAPI WinHttpCrackUrl(LPCWSTR url, DWORD length, DWORD flags, LPURL_COMPONENTS parts) {
  constexpr auto measured = static_cast<DWORD>(-1);
  EXPECT_EQ(parts->dwStructSize, sizeof(URL_COMPONENTS));
  for (const DWORD asked :
       {parts->dwSchemeLength, parts->dwHostNameLength, parts->dwUrlPathLength, parts->dwExtraInfoLength}) {
    EXPECT_EQ(asked, measured);
  }
  EXPECT_EQ(parts->dwUserNameLength, 0U);
  EXPECT_EQ(parts->dwPasswordLength, 0U);
  EXPECT_THAT(length, testing::AnyOf(0U, wcslen(url)));
  fake->calls.push_back("split " + shown(url) + " flags " + std::to_string(flags));
  if (!fake->succeeds("split")) return FALSE;
  *parts = fake->split;
  return TRUE;
}

}  // extern "C"

namespace {

class WinHttpCalls : public testing::Test {
 protected:
  WinHttpCalls() {
    fake = &fake_;
    split(INTERNET_SCHEME_HTTPS, L"host", 443, L"/file", L"");
  }

  void split(INTERNET_SCHEME scheme, const wchar_t* host, INTERNET_PORT port, const wchar_t* path,
             const wchar_t* extra) {
    texts_ = {host, path, extra};
    fake_.split = {};
    fake_.split.nScheme = scheme;
    fake_.split.nPort = port;
    fake_.split.lpszHostName = texts_[0].data();
    fake_.split.dwHostNameLength = static_cast<DWORD>(texts_[0].size());
    fake_.split.lpszUrlPath = texts_[1].data();
    fake_.split.dwUrlPathLength = static_cast<DWORD>(texts_[1].size());
    fake_.split.lpszExtraInfo = texts_[2].data();
    fake_.split.dwExtraInfoLength = static_cast<DWORD>(texts_[2].size());
  }

  // An open session, whose own calls are forgotten.
  HttpSession& open_session() {
    EXPECT_TRUE(session_.open(L"agent", error_)) << error_;
    fake_.calls.clear();
    return session_;
  }

  TransferResult download(uint64_t offset, uint64_t total_size, const StopSignal* stop = nullptr) {
    return download_range(session_, L"url", offset, total_size, sink_, stop, buffer_, http_status_, error_);
  }

  FakeWinHttp fake_;
  ReceiveBuffer buffer_;
  std::vector<std::wstring> texts_;
  HttpSession session_;
  std::string error_;
  std::string received_;
  std::vector<const void*> sink_buffers_;
  TransferSink sink_ = [this](const uint8_t* bytes, size_t count) {
    sink_buffers_.push_back(bytes);
    received_.append(bytes, bytes + count);
    return true;
  };
  uint32_t http_status_ = 99;
};

constexpr const char* open_automatic = "open KVXLauncher/1.0.0 access 4 proxy none bypass none flags 0";
constexpr const char* open_default = "open KVXLauncher/1.0.0 access 0 proxy none bypass none flags 0";
constexpr const char* timeouts = "timeouts of session 10000 10000 30000 60000";
constexpr const char* response_timeout = "option 7 of session 60000";
constexpr const char* tls_1_2_and_1_3 = "option 84 of session 10240";
constexpr const char* tls_1_2 = "option 84 of session 2048";

TEST_F(WinHttpCalls, SessionOpensWithWhatTheSystemKnows) {
  struct Case {
    const char* what;
    std::deque<DWORD> open_errors;
    std::deque<DWORD> timeouts_errors;
    std::deque<DWORD> option_errors;
    std::vector<std::string> calls;
  };
  constexpr DWORD refused = ERROR_INVALID_PARAMETER;
  for (const Case& c : {
           Case{"all is known", {}, {}, {}, {open_automatic, timeouts, response_timeout, tls_1_2_and_1_3}},
           {"no automatic proxy",
            {refused},
            {},
            {},
            {open_automatic, open_default, timeouts, response_timeout, tls_1_2_and_1_3}},
           {"no TLS 1.3", {}, {}, {0, refused}, {open_automatic, timeouts, response_timeout, tls_1_2_and_1_3, tls_1_2}},
           {"no TLS option",
            {},
            {},
            {0, refused, refused},
            {open_automatic, timeouts, response_timeout, tls_1_2_and_1_3, tls_1_2}},
           {"no timeouts", {}, {refused}, {}, {open_automatic, timeouts, response_timeout, tls_1_2_and_1_3}},
           {"an old system",
            {refused},
            {refused},
            {refused, refused, refused},
            {open_automatic, open_default, timeouts, response_timeout, tls_1_2_and_1_3, tls_1_2}},
       }) {
    fake_.calls.clear();
    fake_.errors = {{"open", c.open_errors}, {"timeouts", c.timeouts_errors}, {"option", c.option_errors}};
    {
      HttpSession session;
      std::string error = "untouched";
      EXPECT_TRUE(session.open(L"KVXLauncher/1.0.0", error)) << c.what;
      EXPECT_EQ(session.handle().get(), session_handle) << c.what;
      EXPECT_EQ(error, "untouched") << c.what;
      EXPECT_THAT(fake_.calls, ElementsAreArray(c.calls)) << c.what;
      fake_.calls.clear();
    }
    EXPECT_THAT(fake_.calls, ElementsAre("close session")) << c.what;
  }
}

TEST_F(WinHttpCalls, SessionStaysClosedWhenBothProxyKindsAreRefused) {
  for (const DWORD code : {DWORD{ERROR_NOT_ENOUGH_MEMORY}, DWORD{ERROR_ACCESS_DENIED}, DWORD{12176}}) {
    fake_.calls.clear();
    fake_.errors["open"] = {ERROR_INVALID_PARAMETER, code};
    {
      HttpSession session;
      EXPECT_FALSE(session.open(L"KVXLauncher/1.0.0", error_));
      EXPECT_FALSE(session.handle());
      EXPECT_EQ(error_, "WinHttpOpen: " + error_text(code));
    }
    EXPECT_THAT(fake_.calls, ElementsAre(open_automatic, open_default));
  }
}

TEST_F(WinHttpCalls, RequestIsOneGetWithDefaults) {
  struct Case {
    bool secure;
    const wchar_t* extra_headers;
    const char* open_request;
    const char* send;
  };
  for (const Case& c : {
           Case{true, L"", "open request on connection GET /a?b=1 version none referrer none types none flags 8388608",
                "send request headers none length 0 body 0 0"},
           {false, L"X: 1\r\n", "open request on connection GET /a?b=1 version none referrer none types none flags 0",
            "send request headers X: 1\r\n length -1 body 0 0"},
       }) {
    open_session();
    uint32_t status = 0;
    {
      HttpRequest request;
      EXPECT_TRUE(send_request(session_, UrlParts{c.secure, L"host", 8443, L"/a?b=1"}, c.extra_headers, request, status,
                               error_));
      EXPECT_THAT(fake_.calls, ElementsAre("connect session host 8443 0", c.open_request, c.send, "receive request",
                                           "status of request"));
      fake_.calls.clear();
    }
    EXPECT_EQ(status, 200U);
    EXPECT_THAT(fake_.calls, ElementsAre("close request", "close connection"));
  }
}

TEST_F(WinHttpCalls, EveryFailingStepIsNamedAndWhatWasOpenedIsClosed) {
  struct Code {
    DWORD code;
    std::string text;
  };
  struct Step {
    const char* name;
    std::vector<std::string> closed;
  };
  for (const Code& code : {Code{12002, "the connection timed out"},
                           {12007, "the server name could not be resolved"},
                           {12029, "could not connect to the server"},
                           {12030, "the connection was reset"},
                           {12175, "the secure (TLS) connection failed"},
                           {12152, error_text(12152)},
                           {ERROR_NOT_ENOUGH_MEMORY, error_text(ERROR_NOT_ENOUGH_MEMORY)}}) {
    for (const Step& step : {Step{"connect", {}},
                             {"open request", {"close connection"}},
                             {"send", {"close request", "close connection"}},
                             {"receive", {"close request", "close connection"}},
                             {"status", {"close request", "close connection"}}}) {
      const std::string expected = std::string(step.name) + ": " + code.text;
      open_session();
      fake_.errors[step.name] = {code.code};
      {
        HttpRequest request;
        uint32_t status = 0;
        EXPECT_FALSE(send_request(session_, UrlParts{true, L"h", 1, L"/"}, L"", request, status, error_)) << expected;
        EXPECT_EQ(error_, expected);
        EXPECT_EQ(status, 0U);
        fake_.calls.clear();
      }
      EXPECT_THAT(fake_.calls, ElementsAreArray(step.closed)) << expected;

      // Both transfers pass it on.
      fake_.errors[step.name] = {code.code};
      std::string body = "old";
      EXPECT_EQ(fetch_to_memory(session_, L"url", body, 10, error_), 0);
      EXPECT_EQ(error_, expected);
      EXPECT_EQ(body, "");
      fake_.errors[step.name] = {code.code};
      http_status_ = 99;
      EXPECT_EQ(download(0, 1), TransferResult::network);
      EXPECT_EQ(error_, expected);
      EXPECT_EQ(http_status_, 0U);
    }
  }
}

TEST_F(WinHttpCalls, AHeaderIsMeasuredBeforeItIsRead) {
  HttpSession& session = open_session();
  HttpRequest request;
  uint32_t status = 0;
  ASSERT_TRUE(send_request(session, UrlParts{}, L"", request, status, error_));
  fake_.calls.clear();
  struct Case {
    const char* what;
    std::map<DWORD, std::wstring> headers;
    DWORD read_error;
    bool found;
    const wchar_t* text;
    std::vector<std::string> calls;
  };
  const std::vector<std::string> measured = {"header 5 size of request"};
  const std::vector<std::string> measured_and_read = {"header 5 size of request", "header 5 of request"};
  for (const Case& c : {
           Case{"there", {{5, L"1000"}}, 0, true, L"1000", measured_and_read},
           {"one character", {{5, L"1"}}, 0, true, L"1", measured_and_read},
           {"absent", {}, 0, false, L"", measured},
           {"another", {{6, L"x"}}, 0, false, L"", measured},
           {"empty", {{5, L""}}, 0, false, L"", measured_and_read},
           {"unreadable", {{5, L"1000"}}, ERROR_GEN_FAILURE, false, L"", measured_and_read},
       }) {
    fake_.calls.clear();
    fake_.headers = c.headers;
    fake_.errors["header 5"] = {c.read_error};
    std::wstring text = L"old";
    EXPECT_EQ(query_header_text(request.request, WINHTTP_QUERY_CONTENT_LENGTH, text), c.found) << c.what;
    EXPECT_EQ(to_utf8(text), to_utf8(c.text)) << c.what;
    EXPECT_THAT(fake_.calls, ElementsAreArray(c.calls)) << c.what;
  }
}

TEST_F(WinHttpCalls, FetchReadsInChunksOf256KiBUntilAReadBringsNothing) {
  open_session();
  fake_.chunks = {std::string(262144, 'a'), std::string(5, 'b'), std::string(262144, 'c')};
  std::string body;
  EXPECT_EQ(fetch_to_memory(session_, L"url", body, 524293, error_), 200) << error_;
  EXPECT_EQ(body, std::string(262144, 'a') + "bbbbb" + std::string(262144, 'c'));
  EXPECT_THAT(fake_.read_sizes, ElementsAre(262144, 5, 262144, 262144));
  EXPECT_THAT(fake_.read_buffers, testing::Each(fake_.read_buffers[0]));
  EXPECT_THAT(fake_.calls,
              ElementsAre("split url flags 0", "connect session host 443 0",
                          "open request on connection GET /file version none referrer none types none flags 8388608",
                          "send request headers Cache-Control: no-cache\r\nPragma: no-cache\r\n length -1 body 0 0",
                          "receive request", "status of request", "read request", "read request", "read request",
                          "read request", "close request", "close connection"));
}

TEST_F(WinHttpCalls, FetchReadsNoBodyOfAnotherStatusAndClosesTheHandles) {
  open_session();
  fake_.chunks = {"an error page"};
  for (const DWORD status : {201UL, 206UL, 304UL, 404UL, 503UL}) {
    fake_.status = status;
    fake_.calls.clear();
    std::string body = "old";
    error_ = "untouched";
    EXPECT_EQ(fetch_to_memory(session_, L"url", body, 100, error_), static_cast<int32_t>(status));
    EXPECT_EQ(body, "");
    EXPECT_EQ(error_, "untouched");
    EXPECT_THAT(fake_.read_sizes, testing::IsEmpty());
    ASSERT_GE(fake_.calls.size(), 2U);
    EXPECT_EQ(fake_.calls.end()[-2], "close request");
    EXPECT_EQ(fake_.calls.end()[-1], "close connection");
  }
}

TEST_F(WinHttpCalls, FetchHandsBackAStatusBeyondTheSignedRange) {
  open_session();
  fake_.status = 4294967295;
  std::string body;
  EXPECT_EQ(fetch_to_memory(session_, L"url", body, 100, error_), -1);
}

// A status line of 000, for example.
TEST_F(WinHttpCalls, NoStatusIsAFailureWithAReason) {
  constexpr const char* reason = "status: the server sent no valid status";
  open_session();
  fake_.status = 0;
  fake_.chunks = {"a body"};
  std::string body = "old";
  EXPECT_EQ(fetch_to_memory(session_, L"url", body, 10, error_), 0);
  EXPECT_EQ(error_, reason);
  EXPECT_EQ(body, "");
  error_.clear();
  EXPECT_EQ(download(0, 6), TransferResult::network);
  EXPECT_EQ(error_, reason);
  EXPECT_EQ(received_, "");
  EXPECT_EQ(http_status_, 0U);
  EXPECT_THAT(fake_.read_sizes, testing::IsEmpty());
}

TEST_F(WinHttpCalls, ALengthIsComparedHoweverManyDigitsItHas) {
  struct Case {
    std::wstring header;
    std::string other;  // the size that is refused, empty where the length is right
  };
  for (const Case& c :
       {Case{L"4", ""}, Case{L"0004", ""}, Case{std::wstring(100, L'0') + L"4", ""},
        Case{L"18446744073709551620", "18446744073709551620"},  // 4 more than fit into 64 bits
        Case{L"018446744073709551620", "18446744073709551620"}, Case{L"18446744073709551615", "18446744073709551615"},
        Case{L"4" + std::wstring(19, L'0'), "4" + std::string(19, '0')},
        Case{L"4" + std::wstring(20, L'0'), "4" + std::string(19, '0') + "..."},
        Case{L"4" + std::wstring(30000, L'0'), "4" + std::string(19, '0') + "..."}, Case{L"0", "0"}, Case{L"000", "0"},
        Case{L"40", "40"}, Case{L"5, 4", "5"}, Case{L"4 bytes", ""}, Case{L"-4", ""},
        Case{L"four", ""}}) {  // no number says nothing
    SCOPED_TRACE(to_utf8(c.header.substr(0, 100)));
    open_session();
    fake_.headers = {{5, c.header}};
    fake_.chunks = {"abcd"};
    received_.clear();
    error_ = "untouched";
    EXPECT_EQ(download(0, 4), c.other.empty() ? TransferResult::ok : TransferResult::protocol);
    EXPECT_EQ(error_, c.other.empty()
                          ? "untouched"
                          : "the server reports a different file size (" + c.other + " instead of 4 bytes)");
    EXPECT_EQ(received_, c.other.empty() ? "abcd" : "");
  }
}

TEST_F(WinHttpCalls, FetchForgetsTheBodyWhenAReadFailsOrItGrowsTooLarge) {
  struct Case {
    std::deque<DWORD> read_errors;
    std::deque<std::string> chunks;
    const char* error;
    size_t reads;
  };
  for (const Case& c : {Case{{0, 12030}, {"abc"}, "read: the connection was reset", 2},
                        {{12002}, {}, "read: the connection timed out", 1},
                        {{}, {"0123456789", "x"}, "response is larger than expected", 2},
                        {{}, {"0123456789x"}, "response is larger than expected", 1}}) {
    open_session();
    fake_.errors["read"] = c.read_errors;
    fake_.chunks = c.chunks;
    fake_.read_sizes.clear();
    std::string body;
    EXPECT_EQ(fetch_to_memory(session_, L"url", body, 10, error_), 0);
    EXPECT_EQ(error_, c.error);
    EXPECT_EQ(body, "");
    EXPECT_EQ(fake_.read_sizes.size(), c.reads);
    EXPECT_EQ(fake_.calls.end()[-2], "close request");
    EXPECT_EQ(fake_.calls.end()[-1], "close connection");
  }
}

// Wine's WinHTTP crashes in a read after it has told of a broken connection.
TEST_F(WinHttpCalls, NothingIsReadFromAConnectionThatIsKnownToBeBroken) {
  open_session();
  fake_.chunks = {"abc"};
  fake_.errors["available"] = {0, 12030};
  std::string body;
  EXPECT_EQ(fetch_to_memory(session_, L"url", body, 10, error_), 0);
  EXPECT_EQ(error_, "read: the connection was reset");
  EXPECT_THAT(fake_.read_sizes, ElementsAre(3));

  open_session();
  fake_.chunks = {"abc"};
  fake_.errors["available"] = {0, 12030};
  fake_.read_sizes.clear();
  EXPECT_EQ(download(0, 10), TransferResult::network);
  EXPECT_EQ(error_, "download: the connection was reset");
  EXPECT_EQ(received_, "abc");
  EXPECT_THAT(fake_.read_sizes, ElementsAre(3));
}

TEST_F(WinHttpCalls, DownloadPassesItsOneBufferOf1MiBToTheSinkWithoutACopy) {
  open_session();
  fake_.chunks = {std::string(1048576, 'a'), "b", std::string(1048576, 'c')};
  EXPECT_EQ(download(0, 2097153), TransferResult::ok) << error_;
  EXPECT_EQ(received_, std::string(1048576, 'a') + "b" + std::string(1048576, 'c'));
  EXPECT_THAT(fake_.read_sizes, ElementsAre(1048576, 1, 1048576, 1));  // the last only finds the end
  EXPECT_THAT(fake_.read_buffers, testing::Each(fake_.read_buffers[0]));
  EXPECT_THAT(sink_buffers_, ElementsAre(fake_.read_buffers[0], fake_.read_buffers[0], fake_.read_buffers[0]));
  EXPECT_EQ(http_status_, 200U);
  EXPECT_THAT(fake_.calls,
              ElementsAre("split url flags 0", "connect session host 443 0",
                          "open request on connection GET /file version none referrer none types none flags 8388608",
                          "send request headers none length 0 body 0 0", "receive request", "status of request",
                          "header 5 size of request", "read request", "read request", "read request", "read request",
                          "close request", "close connection"));
}

TEST_F(WinHttpCalls, DownloadAsksForTheOpenEndedRestAndForNothingElse) {
  for (const uint64_t offset : {uint64_t{1}, uint64_t{500}, uint64_t{4294967296}, UINT64_MAX - 1}) {
    open_session();
    fake_.status = 416;
    EXPECT_EQ(download(offset, UINT64_MAX), TransferResult::range_rejected);
    EXPECT_EQ(fake_.calls[3],
              "send request headers Range: bytes=" + std::to_string(offset) + "-\r\n length -1 body 0 0");
  }
}

TEST_F(WinHttpCalls, DownloadClosesTheRequestAndThenTheConnectionHoweverItEnds) {
  struct Case {
    TransferResult result;
    DWORD status;
    uint64_t offset;
    std::deque<std::string> chunks;
    std::deque<DWORD> read_errors;
    const char* error;
    const char* received;
  };
  const std::atomic<bool> no_cancel{false};
  const StopSignal stop(no_cancel);
  for (const Case& c : {
           Case{TransferResult::ok, 200, 0, {"abcd"}, {}, "untouched", "abcd"},
           {TransferResult::network, 200, 0, {"ab"}, {}, "the connection closed before the download finished", "ab"},
           {TransferResult::network, 200, 0, {"ab"}, {0, 12030}, "download: the connection was reset", "ab"},
           {TransferResult::network, 200, 0, {}, {12002}, "download: the connection timed out", ""},
           {TransferResult::http_status, 503, 0, {}, {}, "the server answered HTTP 503", ""},
           {TransferResult::range_ignored, 200, 2, {"abcd"}, {}, "untouched", ""},
           {TransferResult::range_rejected, 416, 2, {}, {}, "the server rejected the resume position (HTTP 416)", ""},
           {TransferResult::protocol, 206, 0, {"abcd"}, {}, "unexpected partial response", ""},
           {TransferResult::protocol, 206, 2, {"cd"}, {}, "partial response without Content-Range", ""},
           {TransferResult::protocol, 200, 0, {"ab", "cde"}, {}, "the server sent more data than expected", "ab"},
       }) {
    open_session();
    fake_.status = c.status;
    fake_.chunks = c.chunks;
    fake_.errors["read"] = c.read_errors;
    error_ = "untouched";
    received_.clear();
    EXPECT_EQ(download(c.offset, 4, &stop), c.result) << c.error;
    EXPECT_EQ(error_, c.error);
    EXPECT_EQ(received_, c.received);
    EXPECT_EQ(http_status_, c.status);
    EXPECT_EQ(fake_.calls.end()[-2], "close request") << c.error;
    EXPECT_EQ(fake_.calls.end()[-1], "close connection") << c.error;
  }
}

TEST_F(WinHttpCalls, DownloadLooksForAStopBeforeEveryRead) {
  for (size_t reads_before_cancel = 0; reads_before_cancel < 4; ++reads_before_cancel) {
    open_session();
    std::atomic<bool> cancel{reads_before_cancel == 0};
    const StopSignal stop(cancel);
    fake_.chunks = {"a", "b", "c"};
    fake_.read_sizes.clear();
    fake_.on_read = [&] { cancel = fake_.read_sizes.size() >= reads_before_cancel; };
    received_.clear();
    // Even when only the empty read at the end is missing.
    EXPECT_EQ(download(0, 3, &stop), TransferResult::cancelled);
    EXPECT_EQ(error_, "cancelled");
    EXPECT_EQ(fake_.read_sizes.size(), reads_before_cancel);
    EXPECT_EQ(received_, std::string("abc").substr(0, reads_before_cancel));
  }
}

TEST_F(WinHttpCalls, FetchLooksForAStopBeforeEveryRead) {
  for (size_t reads_before_stop = 0; reads_before_stop < 4; ++reads_before_stop) {
    open_session();
    std::atomic<bool> cancel{reads_before_stop == 0};
    const StopSignal stop(cancel);
    fake_.chunks = {"a", "b", "c"};
    fake_.read_sizes.clear();
    fake_.on_read = [&] { cancel = fake_.read_sizes.size() >= reads_before_stop; };
    std::string body = "old";
    EXPECT_EQ(fetch_to_memory(session_, L"url", body, 3, error_, &stop), 0);
    EXPECT_EQ(error_, "cancelled");
    EXPECT_EQ(body, "");
    EXPECT_EQ(fake_.read_sizes.size(), reads_before_stop);
  }
}

TEST_F(WinHttpCalls, ARefusedUrlReachesNoServer) {
  open_session();
  fake_.errors["split"] = {12005, 12005};
  std::string body = "old";
  EXPECT_EQ(fetch_to_memory(session_, L"url", body, 10, error_), 0);
  EXPECT_EQ(error_, "invalid URL");
  EXPECT_EQ(body, "");
  error_.clear();
  EXPECT_EQ(download(0, 1), TransferResult::protocol);
  EXPECT_EQ(error_, "invalid URL");
  EXPECT_EQ(http_status_, 0U);
  EXPECT_THAT(fake_.calls, ElementsAre("split url flags 0", "split url flags 0"));
}

// What Windows' splitter returns and Wine's does not: IPv6 hosts, and schemes other than the two.
TEST_F(WinHttpCalls, UrlRulesJudgeWhatTheSplitterReturns) {
  constexpr const char* plain_http = "plain HTTP is only allowed for a local test server (127.0.0.1 / localhost)";
  constexpr const char* no_host = "URL has no host";
  constexpr const char* no_scheme = "unsupported URL scheme";
  struct Case {
    INTERNET_SCHEME scheme;
    const wchar_t* host;
    const wchar_t* path;
    const wchar_t* extra;
    const char* error;             // null when accepted
    const wchar_t* expected_path;  // when accepted
  };
  for (const Case& c : {
           Case{INTERNET_SCHEME_HTTP, L"[::1]", L"/", L"", nullptr, L"/"},
           {INTERNET_SCHEME_HTTP, L"::1", L"/x", L"", nullptr, L"/x"},
           {INTERNET_SCHEME_HTTP, L"127.0.0.1", L"", L"", nullptr, L"/"},
           {INTERNET_SCHEME_HTTP, L"lOcAlHoSt", L"", L"?q", nullptr, L"?q"},
           {INTERNET_SCHEME_HTTPS, L"[2001:db8::1]", L"/a", L"?b=1#c", nullptr, L"/a?b=1#c"},
           {INTERNET_SCHEME_HTTPS, L"127.0.0.2", L"/", L"#c", nullptr, L"/#c"},
           {INTERNET_SCHEME_HTTP, L"[::2]", L"/", L"", plain_http, L"/"},
           {INTERNET_SCHEME_HTTP, L"[::01]", L"/", L"", plain_http, L"/"},
           {INTERNET_SCHEME_HTTP, L"[0:0:0:0:0:0:0:1]", L"/", L"", plain_http, L"/"},
           {INTERNET_SCHEME_HTTP, L"[::1", L"/", L"", plain_http, L"/"},
           {INTERNET_SCHEME_HTTP, L"::1 ", L"/", L"", plain_http, L"/"},
           {INTERNET_SCHEME_HTTP, L"127.0.0.2", L"/", L"", plain_http, L"/"},
           {INTERNET_SCHEME_HTTP, L"localhost ", L"/", L"", plain_http, L"/"},
           {INTERNET_SCHEME_HTTP, L"", L"/", L"", no_host, L"/"},
           {INTERNET_SCHEME_HTTPS, L"", L"/", L"", no_host, L"/"},
           {INTERNET_SCHEME_FTP, L"localhost", L"/", L"", no_scheme, nullptr},
           {INTERNET_SCHEME_FTP, L"", L"/", L"", no_scheme, nullptr},
           {INTERNET_SCHEME_SOCKS, L"127.0.0.1", L"/", L"", no_scheme, nullptr},
       }) {
    SCOPED_TRACE(to_utf8(c.host) + " scheme " + std::to_string(c.scheme));
    split(c.scheme, c.host, 9000, c.path, c.extra);
    UrlParts parts;
    std::string error = "untouched";
    EXPECT_EQ(parse_url(L"url", parts, error), c.error == nullptr);
    EXPECT_EQ(error, c.error == nullptr ? "untouched" : c.error);
    if (c.error != nullptr) continue;
    EXPECT_EQ(parts.secure, c.scheme == INTERNET_SCHEME_HTTPS);
    EXPECT_EQ(to_utf8(parts.host), to_utf8(c.host));
    EXPECT_EQ(parts.port, 9000);
    EXPECT_EQ(to_utf8(parts.path), to_utf8(c.expected_path));
  }
}

}  // namespace
}  // namespace kvx
