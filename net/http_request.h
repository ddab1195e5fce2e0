// One HTTP GET up to its response headers, and the words for what can go wrong with it.
#pragma once

#include <cstdint>
#include <string>

#include "net/http_session.h"
#include "net/url.h"
#include "net/winhttp_handle.h"

namespace kvx {

// Belongs to the thread that sent it. The request is closed before its connection.
struct HttpRequest {
  WinHttpHandle connection;
  WinHttpHandle request;
};

// `extra_headers` is complete header lines, each ended by "\r\n", or empty. On success the body can be read from
// `out.request` and `status` is the HTTP status. On failure returns false and fills `error`.
[[nodiscard]] bool send_request(const HttpSession& session, const UrlParts& url, const std::wstring& extra_headers,
                                HttpRequest& out, uint32_t& status, std::string& error);

// A response header by its WINHTTP_QUERY_ number. False when it is absent or empty.
[[nodiscard]] bool query_header_text(const WinHttpHandle& request, uint32_t header, std::wstring& text);

// The step's name, ": " and a text for the code of a failed WinHTTP call.
[[nodiscard]] std::string describe_http_error(const char* step, uint32_t code);

}  // namespace kvx
