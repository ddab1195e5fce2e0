#include "tools/kvxpublish/platform/child_program.h"

#include <windows.h>

#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/text.h"

namespace kvx::publish {
namespace {

// Open in the child too.
FileHandle open_log(const std::wstring& path) {
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  return FileHandle(CreateFileW(long_path(path).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
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

std::wstring find_program(const wchar_t* name) {
  wchar_t path[MAX_PATH];
  const DWORD length = SearchPathW(nullptr, name, L".exe", MAX_PATH, path, nullptr);
  return length > 0 && length < MAX_PATH ? std::wstring(path, length) : std::wstring();
}

bool ChildProgram::start(const std::wstring& program, const std::wstring& command_line, const std::wstring& folder,
                         const std::wstring& log, Failure& failure) {
  const FileHandle output = open_log(log);
  if (!output) {
    const uint32_t error = GetLastError();
    return fail(ExitCode::failed, to_utf8(log) + ": cannot be written: " + error_text(error), failure);
  }
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output.get();
  startup.hStdError = output.get();
  PROCESS_INFORMATION information{};
  std::wstring writable = command_line;
  job_ = make_job();
  // Suspended until it is in the job, so that it cannot start anything outside of it.
  if (CreateProcessW(program.c_str(), writable.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                     folder.c_str(), &startup, &information) == 0) {
    const uint32_t error = GetLastError();
    return fail(ExitCode::failed, to_utf8(program) + ": cannot be started: " + error_text(error), failure);
  }
  process_.reset(information.hProcess);
  const KernelHandle thread(information.hThread);
  AssignProcessToJobObject(job_.get(), process_.get());
  ResumeThread(thread.get());
  return true;
}

std::optional<uint32_t> ChildProgram::wait(uint32_t limit_ms) const {
  DWORD code = 0;
  if (WaitForSingleObject(process_.get(), limit_ms) != WAIT_OBJECT_0 ||
      GetExitCodeProcess(process_.get(), &code) == 0) {
    return std::nullopt;
  }
  return code;
}

}  // namespace kvx::publish
