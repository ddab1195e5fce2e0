// In the place of openssl.exe and nginx.exe, for tests that must not depend on them. It writes down how it was called.
// As openssl it makes the files that are named after -keyout and -out; as nginx it runs until it is ended. A file
// "wait" in its folder makes it run on as openssl too, and a file "refuse" makes it end at once with code 3.
#include <windows.h>

#include <fstream>
#include <string>

namespace {

constexpr int refusal = 3;
constexpr DWORD limit_ms = 300000;

bool exists(const char* path) { return GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES; }

// Nobody else can delete the file "running" as long as this program does.
int run_on() {
  HANDLE sign = CreateFileA("running", GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
  Sleep(limit_ms);
  CloseHandle(sign);
  return 0;
}

int act_as_nginx() { return exists("refuse") ? refusal : run_on(); }

int act_as_openssl(int argc, char** argv) {
  if (exists("refuse")) return refusal;
  if (exists("wait")) return run_on();
  for (int i = 1; i + 1 < argc; ++i) {
    const std::string option = argv[i];
    if (option == "-keyout" || option == "-out") std::ofstream(argv[i + 1]) << "made";
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::ofstream("calls.txt", std::ios::app | std::ios::binary) << GetCommandLineA() << '\n';
  const std::string command_line = GetCommandLineA();
  return command_line.starts_with("nginx") ? act_as_nginx() : act_as_openssl(argc, argv);
}
