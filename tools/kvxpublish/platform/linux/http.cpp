#include "tools/kvxpublish/platform/http.h"

#include <cstdlib>
#include <curl/curl.h>
#include <string_view>

#include "foundations/text.h"

namespace kvx::publish {
namespace {

constexpr long connect_timeout_ms = 10000;
constexpr long silence_limit_s = 60;
constexpr long most_redirects = 10;
constexpr const char* never_through_a_proxy = "localhost,127.0.0.1,::1";

template <auto release>
struct Release {
  template <typename T>
  void operator()(T* value) const {
    release(value);
  }
};

using Handle = std::unique_ptr<CURL, Release<curl_easy_cleanup>>;
using HeaderList = std::unique_ptr<curl_slist, Release<curl_slist_free_all>>;
using Url = std::unique_ptr<CURLU, Release<curl_url_cleanup>>;
using CurlText = std::unique_ptr<char, Release<curl_free>>;

std::string part_of(const Url& url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return {};
  const CurlText owner(text);
  return text;
}

bool is_local_test_server(const std::string& host) {
  return to_lower_ascii(host) == "localhost" || host == "127.0.0.1" || host == "[::1]";
}

bool refuse(const char* rule, std::string& reason) {
  reason = rule;
  return false;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

// One request while it runs.
struct Transfer {
  CURL* handle = nullptr;
  HttpAnswer& answer;
  const HttpSink& sink;
  bool stopped = false;
};

// Several headers of one name are one list (RFC 9110, 5.3).
void add_header(const std::string& name, std::string_view value, HttpAnswer& answer) {
  std::string& known = answer.headers[name];
  known += (known.empty() ? "" : ", ") + std::string(value);
}

size_t take_header(char* bytes, size_t size, size_t count, void* context) {
  auto& transfer = *static_cast<Transfer*>(context);
  const std::string_view line(bytes, size * count);
  if (line.starts_with("HTTP/")) transfer.answer.headers.clear();  // those of a redirect do not count
  const size_t colon = line.find(':');
  if (colon != std::string_view::npos) {
    add_header(to_lower_ascii(trimmed(line.substr(0, colon))), trimmed(line.substr(colon + 1)), transfer.answer);
  }
  return line.size();
}

uint32_t status_of(CURL* handle) {
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  return static_cast<uint32_t>(status);
}

size_t take_body(char* bytes, size_t size, size_t count, void* context) {
  auto& transfer = *static_cast<Transfer*>(context);
  transfer.answer.status = status_of(transfer.handle);
  if (transfer.sink(reinterpret_cast<const uint8_t*>(bytes), size * count)) return size * count;
  transfer.stopped = true;
  return CURL_WRITEFUNC_ERROR;
}

// The same words as launchers have, where they have some.
std::string error_of(CURLcode code, const char* detail) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT: return "the connection timed out";
    case CURLE_COULDNT_RESOLVE_HOST: return "the server name could not be resolved";
    case CURLE_COULDNT_CONNECT: return "could not connect to the server";
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING: return "the connection was reset";
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
      return "the secure (TLS) connection failed: " + std::string(*detail != '\0' ? detail : curl_easy_strerror(code));
    default: return *detail != '\0' ? detail : curl_easy_strerror(code);
  }
}

template <typename Value>
void set(CURL* handle, CURLoption option, Value value) {
  static_cast<void>(curl_easy_setopt(handle, option, value));
}

}  // namespace

bool check_url(const std::string& url, std::string& reason) {
  const Url parts(curl_url());
  const CURLUcode code = curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME);
  if (code == CURLUE_NO_HOST) return refuse("URL has no host", reason);
  if (code != CURLUE_OK) return refuse("invalid URL", reason);
  const std::string scheme = part_of(parts, CURLUPART_SCHEME);
  if (scheme != "https" && scheme != "http") return refuse("unsupported URL scheme", reason);
  if (part_of(parts, CURLUPART_HOST).empty()) return refuse("URL has no host", reason);
  return scheme == "https" || is_local_test_server(part_of(parts, CURLUPART_HOST)) ||
         refuse("plain HTTP is only allowed for a local test server (127.0.0.1 / localhost)", reason);
}

struct HttpClient::Session {
  Handle handle;
  char detail[CURL_ERROR_SIZE] = "";
};

HttpClient::HttpClient() : session_(std::make_unique<Session>()) {}
HttpClient::~HttpClient() = default;

bool HttpClient::open(std::string& reason) {
  static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (ready == CURLE_OK) session_->handle.reset(curl_easy_init());
  CURL* handle = session_->handle.get();
  if (handle == nullptr) return refuse("libcurl cannot be initialised", reason);
  set(handle, CURLOPT_USERAGENT, "kvxpublish");
  set(handle, CURLOPT_NOSIGNAL, 1L);
  if (std::getenv("no_proxy") == nullptr) set(handle, CURLOPT_NOPROXY, never_through_a_proxy);
  set(handle, CURLOPT_FOLLOWLOCATION, 1L);
  set(handle, CURLOPT_MAXREDIRS, most_redirects);
  set(handle, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
  set(handle, CURLOPT_CONNECTTIMEOUT_MS, connect_timeout_ms);
  set(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
  set(handle, CURLOPT_LOW_SPEED_TIME, silence_limit_s);
  set(handle, CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  set(handle, CURLOPT_ERRORBUFFER, session_->detail);
  if (const char* authorities = std::getenv("SSL_CERT_FILE"); authorities != nullptr && *authorities != '\0') {
    set(handle, CURLOPT_CAINFO, authorities);
  }
  return true;
}

HttpResult HttpClient::get(const std::string& url, const std::vector<std::string>& headers, HttpAnswer& answer,
                           const HttpSink& sink, std::string& reason) {
  answer = {};
  if (!check_url(url, reason)) return HttpResult::failed;
  CURL* handle = session_->handle.get();
  HeaderList list;
  for (const std::string& line : headers) {
    curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
    static_cast<void>(list.release());
    list.reset(longer);
  }
  Transfer transfer{handle, answer, sink};
  session_->detail[0] = '\0';
  set(handle, CURLOPT_URL, url.c_str());
  set(handle, CURLOPT_REDIR_PROTOCOLS_STR, to_lower_ascii(url).starts_with("https:") ? "https" : "http,https");
  set(handle, CURLOPT_HTTPHEADER, list.get());
  set(handle, CURLOPT_HEADERFUNCTION, take_header);
  set(handle, CURLOPT_HEADERDATA, &transfer);
  set(handle, CURLOPT_WRITEFUNCTION, take_body);
  set(handle, CURLOPT_WRITEDATA, &transfer);
  const CURLcode code = curl_easy_perform(handle);
  answer.status = status_of(handle);
  if (transfer.stopped) return HttpResult::stopped;
  if (code == CURLE_OK) return HttpResult::done;
  reason = error_of(code, session_->detail);
  return HttpResult::failed;
}

}  // namespace kvx::publish
