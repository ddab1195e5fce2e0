// The kinds of kernel handles that the program owns.
#pragma once

#include <windows.h>

#include "foundations/unique_handle.h"

namespace kvx {

struct FileHandleTraits {
  using value_type = HANDLE;
  static value_type none() { return INVALID_HANDLE_VALUE; }
  static void close(value_type value) { CloseHandle(value); }
};

struct KernelHandleTraits {
  using value_type = HANDLE;
  static value_type none() { return nullptr; }
  static void close(value_type value) { CloseHandle(value); }
};

struct FindHandleTraits {
  using value_type = HANDLE;
  static value_type none() { return INVALID_HANDLE_VALUE; }
  static void close(value_type value) { FindClose(value); }
};

using FileHandle = UniqueHandle<FileHandleTraits>;      // CreateFileW, CreateToolhelp32Snapshot
using KernelHandle = UniqueHandle<KernelHandleTraits>;  // OpenProcess, CreateProcessW, _beginthreadex
using FindHandle = UniqueHandle<FindHandleTraits>;      // FindFirstFileExW

}  // namespace kvx
