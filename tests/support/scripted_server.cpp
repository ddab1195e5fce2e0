#include "tests/support/scripted_server.h"

#include <windows.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <list>
#include <map>
#include <mutex>
#include <thread>

#include "foundations/text.h"
#include "foundations/unique_handle.h"

namespace kvx::test {
namespace {

struct EventTraits {
  using value_type = HANDLE;
  static value_type none() { return nullptr; }
  static void close(value_type value) { CloseHandle(value); }
};
using Event = UniqueHandle<EventTraits>;

struct SocketTraits {
  using value_type = SOCKET;
  static value_type none() { return INVALID_SOCKET; }
  static void close(value_type value) { closesocket(value); }
};
using Socket = UniqueHandle<SocketTraits>;

Event new_event() { return Event(CreateEventW(nullptr, TRUE, FALSE, nullptr)); }

class Winsock {
 public:
  Winsock() {
    WSADATA data;
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0) ADD_FAILURE() << "Winsock did not start";
  }
  Winsock(const Winsock&) = delete;
  Winsock& operator=(const Winsock&) = delete;
  ~Winsock() { WSACleanup(); }
};

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

// A socket bound to a free port of 127.0.0.1.
Socket bound_socket(uint16_t& port) {
  Socket bound(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in address = loopback(0);
  int size = sizeof(address);
  if (bind(bound.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      getsockname(bound.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    ADD_FAILURE() << "no free port: Winsock error " << WSAGetLastError();
  }
  port = ntohs(address.sin_port);
  return bound;
}

// Without blocking, because Wine does not wake a send that waits when the connection ends.
bool send_all(SOCKET to, std::string_view bytes, HANDLE stopped) {
  u_long non_blocking = 1;
  ioctlsocket(to, static_cast<long>(FIONBIO), &non_blocking);
  while (!bytes.empty()) {
    const int piece = static_cast<int>(std::min<size_t>(bytes.size(), 1U << 16U));
    const int sent = send(to, bytes.data(), piece, 0);
    if (sent > 0) {
      bytes.remove_prefix(static_cast<size_t>(sent));
      continue;
    }
    if (WSAGetLastError() != WSAEWOULDBLOCK || WaitForSingleObject(stopped, 0) == WAIT_OBJECT_0) return false;
    WSAPOLLFD writable{to, POLLOUT, 0};
    WSAPoll(&writable, 1, 20);
  }
  non_blocking = 0;
  ioctlsocket(to, static_cast<long>(FIONBIO), &non_blocking);
  return true;
}

std::string without_slash(std::string_view path) {
  if (path.starts_with('/')) path.remove_prefix(1);
  return std::string(path);
}

std::string_view trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

RecordedRequest parse_request(std::string raw) {
  RecordedRequest request;
  std::string_view rest = raw;
  const auto take_line = [&rest] {
    const std::string_view line = rest.substr(0, rest.find("\r\n"));
    rest.remove_prefix(std::min(rest.size(), line.size() + 2));
    return line;
  };
  const std::string_view first = take_line();
  const size_t method_end = std::min(first.find(' '), first.size());
  const size_t target_end = first.rfind(' ');
  request.method = first.substr(0, method_end);
  if (target_end != std::string_view::npos && target_end > method_end) {
    request.target = first.substr(method_end + 1, target_end - method_end - 1);
  }
  for (std::string_view line = take_line(); !line.empty(); line = take_line()) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    request.headers.emplace_back(line.substr(0, colon), trimmed(line.substr(colon + 1)));
  }
  request.raw = std::move(raw);
  return request;
}

struct ServedFile {
  std::string body;
  Ranges ranges = Ranges::served;
};

// "bytes=5-" and "bytes=5-9"; any other form counts as no range, as a server may do.
bool parse_range(const std::string& text, size_t& first, size_t& last) {
  constexpr std::string_view unit = "bytes=";
  if (!text.starts_with(unit) || text.size() == unit.size()) return false;
  char* end = nullptr;
  first = std::strtoull(text.c_str() + unit.size(), &end, 10);
  if (*end != '-') return false;
  if (end[1] != '\0') last = std::strtoull(end + 1, nullptr, 10);
  return true;
}

ScriptedResponse file_response(const ServedFile& file, const RecordedRequest& request) {
  const std::optional<std::string> range = request.header("Range");
  const size_t size = file.body.size();
  size_t first = 0;
  size_t last = std::string::npos;
  if (!range || file.ranges == Ranges::ignored || !parse_range(*range, first, last)) {
    return answer(200, file.body, file.ranges == Ranges::served ? "Accept-Ranges: bytes\r\n" : "");
  }
  if (first >= size || last < first) return answer(416, {}, "Content-Range: bytes */" + std::to_string(size) + "\r\n");
  last = std::min(last, size - 1);
  return answer(206, std::string_view(file.body).substr(first, last - first + 1),
                "Content-Range: bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
                    std::to_string(size) + "\r\n");
}

const char* reason(int status) {
  switch (status) {
    case 200: return "OK";
    case 206: return "Partial Content";
    case 404: return "Not Found";
    case 416: return "Range Not Satisfiable";
    default: return "Scripted";
  }
}

}  // namespace

struct Gate::Events {
  Event reached = new_event();
  Event opened = new_event();
};

Gate::Gate() : events_(std::make_shared<Events>()) {}

void Gate::open() const { SetEvent(events_->opened.get()); }

bool Gate::wait_until_reached(uint32_t limit_ms) const {
  return WaitForSingleObject(events_->reached.get(), limit_ms) == WAIT_OBJECT_0;
}

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  for (const auto& [found, value] : headers) {
    if (to_lower_ascii(found) == to_lower_ascii(name)) return value;
  }
  return std::nullopt;
}

ScriptedResponse::ScriptedResponse(std::string bytes) { then(std::move(bytes)); }

ScriptedResponse& ScriptedResponse::then(std::string bytes) {
  steps_.emplace_back(std::move(bytes));
  return *this;
}

ScriptedResponse& ScriptedResponse::wait_for(const Gate& gate) {
  steps_.emplace_back(gate);
  return *this;
}

ScriptedResponse& ScriptedResponse::call(std::function<void()> function) {
  steps_.emplace_back(std::move(function));
  return *this;
}

ScriptedResponse& ScriptedResponse::drop_after(size_t count) {
  for (auto& step : steps_) {
    std::string* bytes = std::get_if<std::string>(&step);
    if (bytes == nullptr) continue;
    bytes->resize(std::min(bytes->size(), count));
    count -= bytes->size();
  }
  return *this;
}

ScriptedResponse& ScriptedResponse::reset() {
  ending_ = Ending::reset;
  return *this;
}

ScriptedResponse& ScriptedResponse::hold() {
  ending_ = Ending::hold;
  return *this;
}

std::string status_line(int status) { return "HTTP/1.1 " + std::to_string(status) + " " + reason(status) + "\r\n"; }

ScriptedResponse answer(int status, std::string_view body, std::string_view headers) {
  return answer_without_length(status, body,
                               "Content-Length: " + std::to_string(body.size()) + "\r\n" + std::string(headers));
}

ScriptedResponse answer_without_length(int status, std::string_view body, std::string_view headers) {
  std::string bytes = status_line(status);
  bytes.append("Connection: close\r\n").append(headers).append("\r\n").append(body);
  return ScriptedResponse(std::move(bytes));
}

struct ScriptedServer::Impl {
  struct Connection {
    Socket socket;
    std::thread thread;
    std::atomic<bool> done{false};
  };

  // One path's answers, the first kind that there is: scripted, always, file.
  struct Path {
    std::deque<ScriptedResponse> scripted;
    std::optional<ScriptedResponse> always;
    std::optional<ServedFile> file;
    std::function<void(const RecordedRequest&)> hook;
  };

  Impl() : listener(bound_socket(port)) {
    if (listen(listener.get(), SOMAXCONN) != 0) ADD_FAILURE() << "cannot listen: Winsock error " << WSAGetLastError();
    acceptor = std::thread([this] { accept_connections(); });
  }

  void accept_connections() {
    for (;;) {
      Socket accepted(accept(listener.get(), nullptr, nullptr));
      const std::scoped_lock guard(lock);
      if (stopping) return;
      if (!accepted) continue;
      std::erase_if(connections, [](Connection& connection) {
        if (!connection.done) return false;
        connection.thread.join();
        return true;
      });
      Connection& connection = connections.emplace_back();
      connection.socket = std::move(accepted);
      connection.thread = std::thread([this, &connection] { converse(connection); });
    }
  }

  void converse(Connection& connection) {
    const SOCKET client = connection.socket.get();
    std::string raw;
    if (read_request(client, raw)) respond(client, parse_request(std::move(raw)));
    const std::scoped_lock guard(lock);  // stop may be looking at the socket
    connection.socket.reset();
    connection.done = true;
  }

  static bool read_request(SOCKET client, std::string& raw) {
    std::array<char, 4096> buffer{};
    while (raw.find("\r\n\r\n") == std::string::npos) {
      const int got = recv(client, buffer.data(), static_cast<int>(buffer.size()), 0);
      if (got <= 0) return false;
      raw.append(buffer.data(), static_cast<size_t>(got));
    }
    return true;
  }

  void respond(SOCKET client, const RecordedRequest& request) {
    std::function<void(const RecordedRequest&)> hook;
    ScriptedResponse response;
    {
      const std::scoped_lock guard(lock);
      requests.push_back(request);
      Path& path = paths[without_slash(request.target)];
      hook = path.hook;
      response = next_response(path, request);
    }
    request_came.notify_all();
    if (hook) hook(request);
    for (const auto& step : response.steps_) {
      if (!take_step(client, step)) break;
    }
    end(client, response.ending_);
  }

  static ScriptedResponse next_response(Path& path, const RecordedRequest& request) {
    if (!path.scripted.empty()) {
      ScriptedResponse response = std::move(path.scripted.front());
      path.scripted.pop_front();
      return response;
    }
    if (path.always) return *path.always;
    if (path.file) return file_response(*path.file, request);
    return answer(404, "not here");
  }

  // False when the rest need not go out.
  bool take_step(SOCKET client, const std::variant<std::string, Gate, std::function<void()>>& step) const {
    if (const std::string* bytes = std::get_if<std::string>(&step)) return send_all(client, *bytes, stopped.get());
    if (const Gate* gate = std::get_if<Gate>(&step)) {
      SetEvent(gate->events_->reached.get());
      const std::array<HANDLE, 2> either{gate->events_->opened.get(), stopped.get()};
      return WaitForMultipleObjects(either.size(), either.data(), FALSE, INFINITE) == WAIT_OBJECT_0;
    }
    std::get<std::function<void()>>(step)();
    return true;
  }

  static void end(SOCKET client, ScriptedResponse::Ending ending) {
    if (ending == ScriptedResponse::Ending::reset) {
      const linger at_once{1, 0};
      setsockopt(client, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once), sizeof(at_once));
      return;
    }
    if (ending == ScriptedResponse::Ending::close) shutdown(client, SD_SEND);
    // Closing with unread bytes would be a reset, so the client closes first.
    std::array<char, 4096> ignored{};
    while (recv(client, ignored.data(), static_cast<int>(ignored.size()), 0) > 0) {
    }
  }

  void stop() {
    {
      const std::scoped_lock guard(lock);
      if (stopping) return;
      stopping = true;
      SetEvent(stopped.get());
      for (const Connection& connection : connections) {
        if (connection.socket) shutdown(connection.socket.get(), SD_BOTH);
      }
    }
    const Socket wakes_the_acceptor(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    const sockaddr_in address = loopback(port);
    EXPECT_EQ(connect(wakes_the_acceptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    acceptor.join();
    listener.reset();
    for (Connection& connection : connections) connection.thread.join();
    connections.clear();
  }

  // Fails while a connection is still closing; then nobody else gets the port either.
  void keep_port() {
    listener.reset(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    const BOOL reuse = TRUE;
    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse), sizeof(reuse));
    const sockaddr_in address = loopback(port);
    static_cast<void>(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
  }

  const Winsock winsock;
  mutable std::mutex lock;  // over everything below but the threads' own sockets
  mutable std::condition_variable request_came;
  const Event stopped = new_event();
  bool stopping = false;
  std::map<std::string, Path> paths;
  std::vector<RecordedRequest> requests;
  std::list<Connection> connections;
  uint16_t port = 0;
  Socket listener;
  std::thread acceptor;
};

ScriptedServer::ScriptedServer() : impl_(std::make_unique<Impl>()) {}

ScriptedServer::~ScriptedServer() { impl_->stop(); }

uint16_t ScriptedServer::port() const { return impl_->port; }

std::wstring ScriptedServer::base_url() const { return L"http://127.0.0.1:" + std::to_wstring(impl_->port) + L"/"; }

std::wstring ScriptedServer::url(std::string_view path) const { return base_url() + to_wide(without_slash(path)); }

void ScriptedServer::serve(const std::string& path, std::string body, Ranges ranges) {
  const std::scoped_lock guard(impl_->lock);
  impl_->paths[without_slash(path)].file = ServedFile{std::move(body), ranges};
}

void ScriptedServer::remove(const std::string& path) {
  const std::scoped_lock guard(impl_->lock);
  impl_->paths[without_slash(path)].file.reset();
}

void ScriptedServer::script(const std::string& path, const std::vector<ScriptedResponse>& responses) {
  const std::scoped_lock guard(impl_->lock);
  std::deque<ScriptedResponse>& scripted = impl_->paths[without_slash(path)].scripted;
  scripted.insert(scripted.end(), responses.begin(), responses.end());
}

void ScriptedServer::always(const std::string& path, const ScriptedResponse& response) {
  const std::scoped_lock guard(impl_->lock);
  impl_->paths[without_slash(path)].always = response;
}

void ScriptedServer::on_request(const std::string& path, std::function<void(const RecordedRequest&)> hook) {
  const std::scoped_lock guard(impl_->lock);
  impl_->paths[without_slash(path)].hook = std::move(hook);
}

std::vector<RecordedRequest> ScriptedServer::requests() const {
  const std::scoped_lock guard(impl_->lock);
  return impl_->requests;
}

std::vector<RecordedRequest> ScriptedServer::requests_for(const std::string& path) const {
  std::vector<RecordedRequest> found = requests();
  std::erase_if(found,
                [&](const RecordedRequest& request) { return without_slash(request.target) != without_slash(path); });
  return found;
}

bool ScriptedServer::wait_for_requests(size_t count, uint32_t limit_ms) const {
  std::unique_lock guard(impl_->lock);
  return impl_->request_came.wait_for(guard, std::chrono::milliseconds(limit_ms),
                                      [&] { return impl_->requests.size() >= count; });
}

void ScriptedServer::stop() {
  impl_->stop();
  impl_->keep_port();
}

struct DeadPort::Impl {
  const Winsock winsock;
  uint16_t port = 0;
  const Socket bound = bound_socket(port);
};

DeadPort::DeadPort() : impl_(std::make_unique<Impl>()) {}

DeadPort::~DeadPort() = default;

uint16_t DeadPort::number() const { return impl_->port; }

}  // namespace kvx::test
