// The crossing between UTF-8 and UTF-16, and the rules for case, hexadecimal and command-line quoting. Paths and texts
// on screen are wide (UTF-16); log lines, JSON, manifest fields and state files are narrow UTF-8; only to_utf8 and
// to_wide convert between them. All functions are free of state and may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kvx {

// Convert text of any length, embedded NULs included. Sequences that are not valid are replaced as the system does it;
// text that the system refuses gives an empty string.
[[nodiscard]] std::string to_utf8(std::wstring_view text);
[[nodiscard]] std::wstring to_wide(std::string_view text);

// Only bytes below 0x80.
[[nodiscard]] bool is_ascii(std::string_view text);

// Two lower-case digits per byte, high nibble first.
[[nodiscard]] std::string to_hex(const uint8_t* bytes, size_t count);

// Exactly 64 characters, each 0-9 or a-f.
[[nodiscard]] bool is_sha256_hex(std::string_view text);

// Upper case by the system's rules (CharUpperBuffW), which makes Windows paths comparable.
[[nodiscard]] std::wstring to_upper(std::wstring_view text);

// Only A-Z change; every other byte stays.
[[nodiscard]] std::string to_lower_ascii(std::string_view text);

// Ordinal comparisons with case ignored (CompareStringOrdinal).
[[nodiscard]] bool equals_ignore_case(std::wstring_view a, std::wstring_view b);
[[nodiscard]] bool starts_with_ignore_case(std::wstring_view text, std::wstring_view prefix);

// One argument in the form that CommandLineToArgvW and the C runtime read back unchanged. Join several with blanks.
[[nodiscard]] std::wstring quote_argument(std::wstring_view argument);

}  // namespace kvx
