// What differs between two builds of the same sources. Constant data; any thread.
#pragma once

namespace kvx {

// The launcher's version, for example "1.0.0".
[[nodiscard]] const char* launcher_version();

// "KVXLAUNCHER-VERSION:1.0.0;": stands in the program file as plain text, so that tools can read its version, and opens
// every log.
[[nodiscard]] const char* version_marker();

// The update server's base URL when the command line names none.
[[nodiscard]] const wchar_t* default_base_url();

}  // namespace kvx
