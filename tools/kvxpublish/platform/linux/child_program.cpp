#include "tools/kvxpublish/platform/child_program.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <vector>

#include "foundations/clock.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {
namespace {

constexpr int cannot_start = 127;  // as shells have it

std::vector<std::string> words_of(const std::string& command) {
  std::vector<std::string> words;
  for (size_t start = 0; start <= command.size();) {
    const size_t end = std::min(command.find(' ', start), command.size());
    words.push_back(command.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

bool is_program(const fs::path& path) { return is_file(path) && ::access(path.c_str(), X_OK) == 0; }

// In the new process: only what is allowed between fork and exec.
[[noreturn]] void become(const char* program, char* const* arguments, const char* folder, int log) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) ::signal(signal, SIG_DFL);
  ::setpgid(0, 0);  // Ctrl+C goes to all programs of a group; this one is ended by its parent
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  const bool ready = ::dup2(log, STDOUT_FILENO) >= 0 && ::dup2(log, STDERR_FILENO) >= 0 && ::chdir(folder) == 0;
  if (ready) ::execv(program, arguments);
  ::_exit(cannot_start);
}

}  // namespace

struct ChildProgram::Process {
  pid_t id = -1;
  mutable std::optional<uint32_t> code;  // once it has ended
};

fs::path find_program(const std::string& name) {
  const char* list = std::getenv("PATH");
  const std::string folders = list == nullptr ? "" : list;
  for (size_t start = 0; start <= folders.size();) {
    const size_t end = std::min(folders.find(':', start), folders.size());
    std::error_code ignored;
    const fs::path program = fs::absolute(fs::path(folders.substr(start, end - start)) / name, ignored);
    if (end > start && is_program(program)) return program;
    start = end + 1;
  }
  // Servers lie where an ordinary user's PATH does not always reach.
  const fs::path program = fs::path("/usr/sbin") / name;
  return is_program(program) ? program : fs::path();
}

ChildProgram::ChildProgram() : process_(std::make_unique<Process>()) {}

ChildProgram::~ChildProgram() {
  if (process_->id < 0 || process_->code) return;
  ::kill(process_->id, SIGTERM);
  ::waitpid(process_->id, nullptr, 0);
}

bool ChildProgram::start(const fs::path& program, const std::string& command, const fs::path& folder,
                         const fs::path& log, Failure& failure) {
  constexpr mode_t usual_mode = 0666;
  const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, usual_mode);
  if (output < 0) {
    return fail(ExitCode::failed, path_text(log) + ": cannot be written: " + std::generic_category().message(errno),
                failure);
  }
  std::vector<std::string> words = words_of(command);
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  process_->id = ::fork();
  if (process_->id == 0) become(program.c_str(), arguments.data(), folder.c_str(), output);
  const int error = errno;
  ::close(output);
  return process_->id > 0 ||
         fail(ExitCode::failed, path_text(program) + ": cannot be started: " + std::generic_category().message(error),
              failure);
}

std::optional<uint32_t> ChildProgram::wait(uint32_t limit_ms) const {
  constexpr uint32_t look_ms = 10;
  const uint32_t start = tick_count_ms();
  while (!process_->code) {
    int status = 0;
    const pid_t ended = ::waitpid(process_->id, &status, WNOHANG);
    if (ended == process_->id) {
      process_->code = static_cast<uint32_t>(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    } else if (ended < 0) {
      process_->code = cannot_start;  // nobody knows how it ended, where SIGCHLD is ignored
    } else if (tick_count_ms() - start >= limit_ms) {
      return std::nullopt;
    } else {
      sleep_ms(look_ms);
    }
  }
  return process_->code;
}

}  // namespace kvx::publish
