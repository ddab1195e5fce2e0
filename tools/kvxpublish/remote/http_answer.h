// What web servers answer (RFC 9110), as far as a site's checks look at it.
#pragma once

#include <cstdint>
#include <string_view>

namespace kvx::publish {

constexpr uint32_t status_ok = 200;
constexpr uint32_t status_partial_content = 206;
constexpr uint32_t status_forbidden = 403;
constexpr uint32_t status_not_found = 404;
constexpr uint32_t status_gone = 410;
constexpr uint32_t status_range_not_satisfiable = 416;

// The number after the slash of a Content-Range, "bytes 5-9/10" or "bytes */10"; false when there is none.
[[nodiscard]] bool read_total(std::string_view content_range, uint64_t& total);

// A header that is a number and nothing else.
[[nodiscard]] bool read_number(std::string_view header, uint64_t& number);

}  // namespace kvx::publish
