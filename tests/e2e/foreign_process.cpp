#include "tests/e2e/foreign_process.h"

#include <winternl.h>

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "foundations/system_handles.h"

namespace kvx::test {
namespace {

constexpr DWORD foreign_limit_ms = 20000;

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

// A thread's start routine: what it does with its parameter, and then
//   mov rax, function / jmp rax
std::vector<uint8_t> routine_that_calls(const wchar_t* module, const char* function, std::vector<uint8_t> code) {
  const auto address = reinterpret_cast<uint64_t>(GetProcAddress(GetModuleHandleW(module), function));
  code.insert(code.end(), {0x48, 0xB8});
  for (size_t i = 0; i < sizeof(address); ++i) code.push_back(static_cast<uint8_t>(address >> (8 * i)));
  code.insert(code.end(), {0xFF, 0xE0});
  return code;
}

// LoadIconW(nullptr, parameter):
//   mov rdx, rcx / xor ecx, ecx
std::vector<uint8_t> load_icon_routine() {
  return routine_that_calls(L"user32", "LoadIconW", {0x48, 0x89, 0xCA, 0x31, 0xC9});
}

// SendMessageW(parameter, WM_GETFONT, 0, 0):
//   mov edx, WM_GETFONT / xor r8d, r8d / xor r9d, r9d
std::vector<uint8_t> get_font_routine() {
  return routine_that_calls(L"user32", "SendMessageW",
                            {0xBA, WM_GETFONT, 0x00, 0x00, 0x00, 0x45, 0x31, 0xC0, 0x45, 0x31, 0xC9});
}

struct GetObjectCall {
  uint64_t object;
  uint64_t size;
  void* result;
};

// GetObjectW with the three parameters of a GetObjectCall:
//   mov rax, rcx / mov rcx, [rax] / mov rdx, [rax + 8] / mov r8, [rax + 16]
std::vector<uint8_t> get_object_routine() {
  return routine_that_calls(L"gdi32", "GetObjectW",
                            {0x48, 0x89, 0xC8, 0x48, 0x8B, 0x08, 0x48, 0x8B, 0x50, 0x08, 0x4C, 0x8B, 0x40, 0x10});
}

// What the routine returns there; 0 on failure, which fails the test. The system's libraries lie at the same address in
// every process.
DWORD run_in(HANDLE process, const std::vector<uint8_t>& code, void* parameter) {
  const ForeignMemory routine(process, code.data(), code.size(), PAGE_EXECUTE_READWRITE);
  const KernelHandle thread(CreateRemoteThread(
      process, nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(routine.address()), parameter, 0, nullptr));
  DWORD result = 0;
  if (WaitForSingleObject(thread.get(), foreign_limit_ms) != WAIT_OBJECT_0 ||
      GetExitCodeThread(thread.get(), &result) == 0) {
    ADD_FAILURE() << "the process did not run what the test asks for";
  }
  return result;
}

template <typename Structure>
Structure read_from(HANDLE process, const void* address) {
  Structure structure{};
  EXPECT_TRUE(ReadProcessMemory(process, address, &structure, sizeof(structure), nullptr))
      << "error " << GetLastError();
  return structure;
}

RTL_USER_PROCESS_PARAMETERS start_parameters_of(HANDLE process) {
  PROCESS_BASIC_INFORMATION information{};
  EXPECT_EQ(NtQueryInformationProcess(process, ProcessBasicInformation, &information, sizeof(information), nullptr), 0);
  const PEB environment = read_from<PEB>(process, information.PebBaseAddress);
  return read_from<RTL_USER_PROCESS_PARAMETERS>(process, environment.ProcessParameters);
}

std::wstring text_in(HANDLE process, const UNICODE_STRING& string) {
  std::wstring text(string.Length / sizeof(wchar_t), L'\0');
  EXPECT_TRUE(ReadProcessMemory(process, string.Buffer, text.data(), string.Length, nullptr))
      << "error " << GetLastError();
  return text;
}

}  // namespace

HICON system_icon_in(DWORD process_id, LPCWSTR icon) {
  const KernelHandle process = open_process(process_id);
  const DWORD handle = run_in(process.get(), load_icon_routine(), const_cast<wchar_t*>(icon));  // of 32 bits
  return reinterpret_cast<HICON>(static_cast<uintptr_t>(handle));
}

LOGFONTW font_of(HWND control) {
  DWORD process_id = 0;
  GetWindowThreadProcessId(control, &process_id);
  const KernelHandle process = open_process(process_id);
  const LOGFONTW none{};
  const ForeignMemory font(process.get(), &none, sizeof(none), PAGE_READWRITE);
  const GetObjectCall call{run_in(process.get(), get_font_routine(), control), sizeof(none), font.address()};
  const ForeignMemory parameter(process.get(), &call, sizeof(call), PAGE_READWRITE);
  EXPECT_EQ(run_in(process.get(), get_object_routine(), parameter.address()), sizeof(none));
  return read_from<LOGFONTW>(process.get(), font.address());
}

void send_dpi_change(HWND window, WORD dpi, const RECT& suggested) {
  DWORD process_id = 0;
  GetWindowThreadProcessId(window, &process_id);
  const KernelHandle process = open_process(process_id);
  const ForeignMemory place(process.get(), &suggested, sizeof(suggested), PAGE_READWRITE);
  DWORD_PTR answer = 0;
  EXPECT_NE(SendMessageTimeoutW(window, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(place.address()),
                                SMTO_NORMAL, foreign_limit_ms, &answer),
            0);
}

std::wstring command_line_of(HANDLE process) { return text_in(process, start_parameters_of(process).CommandLine); }

std::wstring working_folder_of(HANDLE process) {
  const RTL_USER_PROCESS_PARAMETERS parameters = start_parameters_of(process);
  UNICODE_STRING folder;  // it has no name in the header
  std::memcpy(&folder, static_cast<const void*>(&parameters.Reserved2[5]), sizeof(folder));
  return text_in(process, folder);
}

}  // namespace kvx::test
