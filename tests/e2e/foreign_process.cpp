#include "tests/e2e/foreign_process.h"

#include <winternl.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>

#include "foundations/system_handles.h"

namespace kvx::test {
namespace {

constexpr DWORD limit_ms = 20000;

KernelHandle open_process(DWORD process_id) {
  KernelHandle process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, process_id));
  EXPECT_TRUE(process) << "cannot open process " << process_id << ": error " << GetLastError();
  return process;
}

// A piece of memory in another process.
class ForeignMemory {
 public:
  ForeignMemory(HANDLE process, const void* data, size_t size, DWORD protection)
      : process_(process), address_(VirtualAllocEx(process, nullptr, size, MEM_COMMIT | MEM_RESERVE, protection)) {
    EXPECT_TRUE(WriteProcessMemory(process, address_, data, size, nullptr)) << "error " << GetLastError();
  }
  ForeignMemory(const ForeignMemory&) = delete;
  ForeignMemory& operator=(const ForeignMemory&) = delete;
  ~ForeignMemory() { VirtualFreeEx(process_, address_, 0, MEM_RELEASE); }

  [[nodiscard]] void* address() const { return address_; }

 private:
  HANDLE process_;
  void* address_;
};

// A thread's start routine that returns LoadIconW(nullptr, parameter):
//   mov rdx, rcx / xor ecx, ecx / mov rax, LoadIconW / jmp rax
std::array<uint8_t, 17> load_icon_routine() {
  std::array<uint8_t, 17> code{0x48, 0x89, 0xCA, 0x31, 0xC9, 0x48, 0xB8};
  const auto function = reinterpret_cast<uint64_t>(GetProcAddress(GetModuleHandleW(L"user32"), "LoadIconW"));
  std::memcpy(code.data() + 7, &function, sizeof(function));
  code[15] = 0xFF;
  code[16] = 0xE0;
  return code;
}

template <typename Structure>
Structure read_from(HANDLE process, const void* address) {
  Structure structure{};
  EXPECT_TRUE(ReadProcessMemory(process, address, &structure, sizeof(structure), nullptr))
      << "error " << GetLastError();
  return structure;
}

}  // namespace

HICON system_icon_in(DWORD process_id, LPCWSTR icon) {
  const KernelHandle process = open_process(process_id);
  const auto code = load_icon_routine();
  // The system's libraries lie at the same address in every process.
  const ForeignMemory routine(process.get(), code.data(), code.size(), PAGE_EXECUTE_READWRITE);
  const KernelHandle thread(CreateRemoteThread(process.get(), nullptr, 0,
                                               reinterpret_cast<LPTHREAD_START_ROUTINE>(routine.address()),
                                               const_cast<wchar_t*>(icon), 0, nullptr));
  DWORD handle = 0;  // handles of icons fit 32 bits
  if (WaitForSingleObject(thread.get(), limit_ms) != WAIT_OBJECT_0 || GetExitCodeThread(thread.get(), &handle) == 0) {
    ADD_FAILURE() << "the process did not say which handle its icon has";
  }
  return reinterpret_cast<HICON>(static_cast<uintptr_t>(handle));
}

void send_dpi_change(HWND window, WORD dpi, const RECT& suggested) {
  DWORD process_id = 0;
  GetWindowThreadProcessId(window, &process_id);
  const KernelHandle process = open_process(process_id);
  const ForeignMemory place(process.get(), &suggested, sizeof(suggested), PAGE_READWRITE);
  DWORD_PTR answer = 0;
  EXPECT_NE(SendMessageTimeoutW(window, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(place.address()),
                                SMTO_NORMAL, limit_ms, &answer),
            0);
}

std::wstring command_line_of(HANDLE process) {
  PROCESS_BASIC_INFORMATION information{};
  EXPECT_EQ(NtQueryInformationProcess(process, ProcessBasicInformation, &information, sizeof(information), nullptr), 0);
  const PEB environment = read_from<PEB>(process, information.PebBaseAddress);
  const UNICODE_STRING line =
      read_from<RTL_USER_PROCESS_PARAMETERS>(process, environment.ProcessParameters).CommandLine;
  std::wstring text(line.Length / sizeof(wchar_t), L'\0');
  EXPECT_TRUE(ReadProcessMemory(process, line.Buffer, text.data(), line.Length, nullptr)) << "error " << GetLastError();
  return text;
}

}  // namespace kvx::test
