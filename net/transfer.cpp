#include "net/transfer.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <vector>

#include "foundations/text.h"
#include "net/content_range.h"
#include "net/http_request.h"
#include "net/url.h"

namespace kvx {
namespace {

constexpr size_t memory_chunk_bytes = 262144;

constexpr uint32_t http_ok = 200;
constexpr uint32_t http_partial_content = 206;
constexpr uint32_t http_range_not_satisfiable = 416;

bool is_requested(const StopSignal* stop) { return stop != nullptr && stop->requested(); }

// Reads at most `count` bytes and fills `got` with their number, 0 at the end of the body.
bool read_chunk(const HttpSession& session, const HttpRequest& request, uint8_t* bytes, size_t count, size_t& got,
                const char* step, std::string& error) {
  const LeavableCall call(session);
  // A read waits until all that it asks for has come. Asking for what is there already makes a cancel, the progress and
  // the partial file not wait for a whole buffer from a slow server; at the end of the body nothing is there. For a
  // single byte asking first brings nothing.
  DWORD available = 0;
  DWORD read = 0;
  const auto most = static_cast<DWORD>(count);
  if ((count > 1 && WinHttpQueryDataAvailable(request.request.get(), &available) == 0) ||
      WinHttpReadData(request.request.get(), bytes, available == 0 ? most : std::min(available, most), &read) == 0) {
    error = describe_http_error(step, GetLastError());
    return false;
  }
  got = read;
  return true;
}

bool read_body(const HttpSession& session, const HttpRequest& request, std::string& body, uint64_t max_bytes,
               std::string& error, const StopSignal* stop) {
  std::vector<uint8_t> buffer(memory_chunk_bytes);
  for (;;) {
    if (is_requested(stop)) {
      error = "cancelled";
      return false;
    }
    size_t got = 0;
    if (!read_chunk(session, request, buffer.data(), buffer.size(), got, "read", error)) return false;
    if (got == 0) return true;
    if (body.size() + got > max_bytes) {
      error = "response is larger than expected";
      return false;
    }
    body.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(got));
  }
}

// The decimal digits that `text` begins with, without leading zeros; empty when there are none.
std::string leading_number(const std::wstring& text) {
  const std::wstring digits = text.substr(0, text.find_first_not_of(L"0123456789"));
  const size_t first = digits.find_first_not_of(L'0');
  return to_utf8(first == std::wstring::npos ? digits.substr(0, 1) : digits.substr(first));
}

// For a message: a header may have thousands of digits.
std::string shortened(const std::string& number) {
  constexpr size_t shown_digits = 20;  // as many as the largest number of 64 bits
  return number.size() <= shown_digits ? number : number.substr(0, shown_digits) + "...";
}

// One download, used once.
class RangeDownload {
 public:
  RangeDownload(uint64_t offset, uint64_t total_size, const TransferSink& sink, const StopSignal* stop,
                ReceiveBuffer& buffer, std::string& error)
      : offset_(offset), total_size_(total_size), sink_(sink), stop_(stop), buffer_(buffer), error_(error) {}

  TransferResult run(const HttpSession& session, const std::wstring& url, uint32_t& http_status) {
    http_status = 0;
    UrlParts parts;
    if (!parse_url(url, parts, error_)) return TransferResult::protocol;
    uint32_t status = 0;
    if (!send_request(session, parts, range_header(), request_, status, error_)) return TransferResult::network;
    http_status = status;
    const TransferResult accepted = check_response(status);
    return accepted == TransferResult::ok ? receive(session) : accepted;
  }

 private:
  TransferResult fail(TransferResult result, std::string text) {
    error_ = std::move(text);
    return result;
  }

  [[nodiscard]] std::wstring range_header() const {
    return offset_ == 0 ? std::wstring() : L"Range: bytes=" + to_wide(std::to_string(offset_)) + L"-\r\n";
  }

  TransferResult check_response(uint32_t status) {
    switch (status) {
      case http_range_not_satisfiable:
        return fail(TransferResult::range_rejected, "the server rejected the resume position (HTTP 416)");
      case http_ok: return offset_ > 0 ? TransferResult::range_ignored : check_whole_file();
      case http_partial_content: return check_partial_content();
      default: return fail(TransferResult::http_status, "the server answered HTTP " + std::to_string(status));
    }
  }

  TransferResult check_whole_file() {
    std::wstring header;
    if (!query_header_text(request_.request, WINHTTP_QUERY_CONTENT_LENGTH, header)) return TransferResult::ok;
    // Compared as text, which has no largest number.
    const std::string length = leading_number(header);
    const std::string expected = std::to_string(total_size_);
    if (length.empty() || length == expected) return TransferResult::ok;
    return fail(TransferResult::protocol, "the server reports a different file size (" + shortened(length) +
                                              " instead of " + expected + " bytes)");
  }

  TransferResult check_partial_content() {
    if (offset_ == 0) return fail(TransferResult::protocol, "unexpected partial response");
    std::wstring header;
    if (!query_header_text(request_.request, WINHTTP_QUERY_CONTENT_RANGE, header)) {
      return fail(TransferResult::protocol, "partial response without Content-Range");
    }
    if (!is_expected_range(header, offset_, total_size_)) {
      return fail(TransferResult::protocol, "the server returned an unexpected byte range");
    }
    return TransferResult::ok;
  }

  TransferResult receive(const HttpSession& session) {
    buffer_.open(sink_, total_size_ - offset_);
    const TransferResult result = receive_body(session);
    const bool all_stored = buffer_.close();
    return all_stored || result == TransferResult::cancelled ? result : refused_by_sink();
  }

  TransferResult receive_body(const HttpSession& session) {
    uint64_t remaining = total_size_ - offset_;
    for (;;) {
      if (is_requested(stop_)) return fail(TransferResult::cancelled, "cancelled");
      size_t got = 0;
      // After the last byte only the end of the body is left to read, so that the connection can be reused.
      const ReceiveBuffer::Space space = buffer_.next_space();
      if (!read_chunk(session, request_, space.bytes, remaining == 0 ? 1 : space.count, got, "download", error_)) {
        return TransferResult::network;
      }
      if (got == 0) {
        if (remaining == 0) return TransferResult::ok;
        return fail(TransferResult::network, "the connection closed before the download finished");
      }
      if (got > remaining) return fail(TransferResult::protocol, "the server sent more data than expected");
      if (!buffer_.add(got)) return refused_by_sink();
      remaining -= got;
    }
  }

  TransferResult refused_by_sink() { return fail(TransferResult::write_failed, "could not write the downloaded data"); }

  uint64_t offset_;
  uint64_t total_size_;
  const TransferSink& sink_;
  const StopSignal* stop_;
  ReceiveBuffer& buffer_;
  std::string& error_;
  HttpRequest request_;
};

}  // namespace

int32_t fetch_to_memory(const HttpSession& session, const std::wstring& url, std::string& body, uint64_t max_bytes,
                        std::string& error, const StopSignal* stop) {
  body.clear();
  UrlParts parts;
  if (!parse_url(url, parts, error)) return transport_failure;
  HttpRequest request;
  uint32_t status = 0;
  if (!send_request(session, parts, L"Cache-Control: no-cache\r\nPragma: no-cache\r\n", request, status, error)) {
    return transport_failure;
  }
  if (status != http_ok) return static_cast<int32_t>(status);
  if (read_body(session, request, body, max_bytes, error, stop)) return static_cast<int32_t>(http_ok);
  body.clear();
  return transport_failure;
}

TransferResult download_range(const HttpSession& session, const std::wstring& url, uint64_t offset, uint64_t total_size,
                              const TransferSink& sink, const StopSignal* stop, ReceiveBuffer& buffer,
                              uint32_t& http_status, std::string& error) {
  return RangeDownload(offset, total_size, sink, stop, buffer, error).run(session, url, http_status);
}

}  // namespace kvx
