// Which URLs the program fetches from, and their parts. Never touches the network; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace kvx {

struct UrlParts {
  bool secure = true;  // https, else http
  std::wstring host;   // an IPv6 literal keeps its brackets
  uint16_t port = 443;
  std::wstring path;  // with query and fragment; "/" when the URL has none
};

// Accepts https, and plain http for a server on this machine only (localhost, 127.0.0.1, ::1). On refusal returns false
// and `error` names the rule.
[[nodiscard]] bool parse_url(const std::wstring& url, UrlParts& out, std::string& error);

}  // namespace kvx
