// An HTTP/1.1 server on 127.0.0.1 inside the test process. It answers a path with a file, as a well-behaved server
// does, or with exactly the bytes that a test wrote, in the pieces and at the moments the test chose, and it remembers
// every request. It serves one request per connection. All functions may be called from any thread; only stop and the
// destructor may not be called from a hook.
//
// Paths are given without the leading slash ("beta/manifest.json"); a query is part of the path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kvx::test {

// A point that a server thread stops at until the test opens it. Copies are the same gate.
class Gate {
 public:
  Gate();

  void open() const;
  // True once a server thread has come to the gate; false after `limit_ms`.
  [[nodiscard]] bool wait_until_reached(uint32_t limit_ms = 60000) const;

 private:
  friend class ScriptedServer;
  struct Events;
  std::shared_ptr<Events> events_;
};

struct RecordedRequest {
  std::string method;
  std::string target;  // as in the request line, with the leading slash
  std::string raw;     // request line, headers and the blank line, as they came
  std::vector<std::pair<std::string, std::string>> headers;

  // The first header of this name, case ignored.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

// What goes out for one request: bytes, gates and calls in the order they were added, and how the connection ends.
class ScriptedResponse {
 public:
  ScriptedResponse() = default;
  // The first bytes: status line, headers, blank line and body, exactly as given. A response that names a length should
  // also say "Connection: close", or the client may try to use the connection again.
  explicit ScriptedResponse(std::string bytes);

  ScriptedResponse& then(std::string bytes);
  ScriptedResponse& wait_for(const Gate& gate);
  ScriptedResponse& call(std::function<void()> function);
  // Of the bytes so far only the first `count` go out.
  ScriptedResponse& drop_after(size_t count);
  // The connection ends with a reset instead of an orderly close.
  ScriptedResponse& reset();
  // The connection stays open until the client closes it or the server stops.
  ScriptedResponse& hold();

 private:
  friend class ScriptedServer;
  enum class Ending : uint8_t { close, reset, hold };
  std::vector<std::variant<std::string, Gate, std::function<void()>>> steps_;
  Ending ending_ = Ending::close;
};

// A complete answer with Content-Length and "Connection: close". `headers` is further complete header lines.
[[nodiscard]] ScriptedResponse answer(int status, std::string_view body = {}, std::string_view headers = {});
// The same without a Content-Length and with any headers: the body ends where the connection does.
[[nodiscard]] ScriptedResponse answer_without_length(int status, std::string_view body, std::string_view headers = {});
// The status line of such an answer, as bytes.
[[nodiscard]] std::string status_line(int status);

enum class Ranges : uint8_t { served, ignored };

class ScriptedServer {
 public:
  ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;
  ~ScriptedServer();

  [[nodiscard]] uint16_t port() const;
  [[nodiscard]] std::wstring base_url() const;  // "http://127.0.0.1:PORT/"
  [[nodiscard]] std::wstring url(std::string_view path) const;

  // A file: 200, or for a Range request 206 or 416. Replaces the file of that path.
  void serve(const std::string& path, std::string body, Ranges ranges = Ranges::served);
  // The path has no file any more: 404.
  void remove(const std::string& path);
  // Answers of the next requests for the path, in order, before its file is served again. Adds to those not yet used.
  void script(const std::string& path, const std::vector<ScriptedResponse>& responses);
  // The answer to every request for the path that has no scripted one; goes before its file.
  void always(const std::string& path, const ScriptedResponse& response);
  // Called on the server's thread for each request for the path, after it was recorded and before it is answered.
  void on_request(const std::string& path, std::function<void(const RecordedRequest&)> hook);

  // In the order they came.
  [[nodiscard]] std::vector<RecordedRequest> requests() const;
  [[nodiscard]] std::vector<RecordedRequest> requests_for(const std::string& path) const;
  // True once there were at least `count` requests; false after `limit_ms`.
  [[nodiscard]] bool wait_for_requests(size_t count, uint32_t limit_ms = 60000) const;

  // Ends every connection and refuses new ones from now on, also in the name of the port, which nobody else gets
  // before the object is gone. Gates are passed. What was recorded stays.
  void stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// A port of 127.0.0.1 that nothing listens on and nobody else gets while the object lives.
class DeadPort {
 public:
  DeadPort();
  DeadPort(const DeadPort&) = delete;
  DeadPort& operator=(const DeadPort&) = delete;
  ~DeadPort();

  [[nodiscard]] uint16_t number() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kvx::test
