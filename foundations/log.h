// The program's one diagnostic log: a text file that every thread appends whole lines to, each stamped with local time
// and thread id and also sent to an attached debugger. It is process-wide; no operation ever fails visibly, and any
// thread may call any of them at any time.
//
// A line is "%04u-%02u-%02u %02u:%02u:%02u.%03u [%5lu] %s\r\n": date, time to the millisecond, thread id, message. The
// file is UTF-8 without a byte-order mark.
#pragma once

#include <string>

// The C99 formats, which the two compilers name differently.
#ifdef __clang__
#define KVX_PRINTF_FORMAT __attribute__((format(printf, 1, 2)))
#else
#define KVX_PRINTF_FORMAT __attribute__((format(gnu_printf, 1, 2)))
#endif

namespace kvx::log {

// Keeps the previous file under the name with its last extension replaced by ".prev.log", then starts a new one.
// `path` is a full path in long-path form. Does nothing while a log is open; when the file cannot be created, lines go
// to the debugger only.
void open(const std::wstring& path);

// printf-style. A message longer than 4,095 bytes is cut. Without an open file the line goes to the debugger only.
void write(const char* format, ...) KVX_PRINTF_FORMAT;

// Flushes and closes the file.
void close();

}  // namespace kvx::log
