// Puts a function of a test in the place of one of the system's, for everything in the program: calls into a DLL go
// through a pointer that the linker takes from the program itself where the program has it. A test that does so is a
// program of its own.
#pragma once

#include <windows.h>

namespace kvx::test {

// The system's own, for a replacement that passes calls on: system_function<decltype(&WriteFile)>("WriteFile").
template <typename Function>
Function system_function(const char* name, const wchar_t* library = L"kernel32.dll") {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), name)));
}

}  // namespace kvx::test

// At file scope, outside every namespace.
#define KVX_REPLACE(function, replacement)                 \
  extern "C" {                                             \
  extern decltype(&(function)) __imp_##function;           \
  decltype(&(function)) __imp_##function = &(replacement); \
  }
