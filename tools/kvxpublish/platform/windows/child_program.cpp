#include "tools/kvxpublish/platform/child_program.h"

#include <windows.h>

#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {
namespace {

// Open in the child too.
FileHandle open_log(const fs::path& path) {
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  return FileHandle(CreateFileW(long_path(path.native()).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                &inherited, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

KernelHandle make_job() {
  KernelHandle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits));
  return job;
}

}  // namespace

struct ChildProgram::Process {
  KernelHandle process;
  KernelHandle job;  // ends the program and those it has started, at the latest when this process ends
};

fs::path find_program(const std::string& name) {
  wchar_t path[MAX_PATH];
  const DWORD length = SearchPathW(nullptr, to_wide(name).c_str(), L".exe", MAX_PATH, path, nullptr);
  return length > 0 && length < MAX_PATH ? fs::path(std::wstring(path, length)) : fs::path();
}

ChildProgram::ChildProgram() : process_(std::make_unique<Process>()) {}
ChildProgram::~ChildProgram() = default;

bool ChildProgram::start(const fs::path& program, const std::string& command, const fs::path& folder,
                         const fs::path& log, Failure& failure) {
  const FileHandle output = open_log(log);
  if (!output) {
    const uint32_t error = GetLastError();
    return fail(ExitCode::failed, path_text(log) + ": cannot be written: " + error_text(error), failure);
  }
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output.get();
  startup.hStdError = output.get();
  PROCESS_INFORMATION information{};
  std::wstring writable = to_wide(command);
  process_->job = make_job();
  // Suspended until it is in the job, so that it cannot start anything outside of it.
  if (CreateProcessW(program.c_str(), writable.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                     folder.c_str(), &startup, &information) == 0) {
    const uint32_t error = GetLastError();
    return fail(ExitCode::failed, path_text(program) + ": cannot be started: " + error_text(error), failure);
  }
  process_->process.reset(information.hProcess);
  const KernelHandle thread(information.hThread);
  AssignProcessToJobObject(process_->job.get(), process_->process.get());
  ResumeThread(thread.get());
  return true;
}

std::optional<uint32_t> ChildProgram::wait(uint32_t limit_ms) const {
  DWORD code = 0;
  if (WaitForSingleObject(process_->process.get(), limit_ms) != WAIT_OBJECT_0 ||
      GetExitCodeProcess(process_->process.get(), &code) == 0) {
    return std::nullopt;
  }
  return code;
}

}  // namespace kvx::publish
