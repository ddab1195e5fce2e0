// Numbers in response headers. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace kvx {

// Reads the decimal digits that `text` begins with and removes them from it. False when there is none. Too many digits
// wrap around; no number that a caller compares with can come of that unnoticed by the digest check.
[[nodiscard]] bool take_number(std::wstring_view& text, uint64_t& number);

// Whether a Content-Range header ("bytes 500-999/1000") says that the response holds exactly the bytes from `offset` to
// the end of a file of `total_size` bytes. A total of "*", or none, is not checked.
[[nodiscard]] bool is_expected_range(std::wstring_view content_range, uint64_t offset, uint64_t total_size);

}  // namespace kvx
