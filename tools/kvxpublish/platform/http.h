// HTTP GET as launchers send it: with TLS 1.2 or newer, through the system's proxy, and following redirects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kvx::publish {

// Whether launchers fetch from this URL: https, or http on this machine. `reason` is the rule that it breaks, in their
// words.
[[nodiscard]] bool check_url(const std::string& url, std::string& reason);

struct HttpAnswer {
  uint32_t status = 0;
  std::map<std::string, std::string> headers;  // by lower-case name

  // Empty when it is absent.
  [[nodiscard]] std::string header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
  }
};

enum class HttpResult : uint8_t {
  done,     // the whole body was taken
  stopped,  // the sink has stopped it
  failed,   // no answer, or one that broke off
};

// Takes the next piece of a body; false stops it, and costs the connection.
using HttpSink = std::function<bool(const uint8_t* bytes, size_t count)>;

// Keeps the connection from one request to the next. For one thread at a time.
class HttpClient {
 public:
  HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;
  ~HttpClient();

  [[nodiscard]] bool open(std::string& reason);

  // `headers` are lines such as "Range: bytes=0-0". `answer` is complete before the sink gets the first piece; `reason`
  // is filled for `failed`.
  [[nodiscard]] HttpResult get(const std::string& url, const std::vector<std::string>& headers, HttpAnswer& answer,
                               const HttpSink& sink, std::string& reason);

 private:
  struct Session;
  std::unique_ptr<Session> session_;
};

}  // namespace kvx::publish
