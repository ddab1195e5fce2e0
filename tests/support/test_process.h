// A program that a test starts and ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundations/system_handles.h"

namespace kvx::test {

// A copy of the test program; makes missing folders.
void copy_test_program(const std::wstring& to);
// Its bytes.
[[nodiscard]] std::string test_program_bytes();

// Copies a file and fails the test when that fails; makes missing folders.
void copy_program(const std::wstring& from, const std::wstring& to);

class TestProcess {
 public:
  // `arguments` is what follows the program's name on the command line.
  TestProcess(const std::wstring& program, const std::wstring& arguments, const std::wstring& folder);
  TestProcess(const TestProcess&) = delete;
  TestProcess& operator=(const TestProcess&) = delete;
  ~TestProcess();  // ends the program if it still runs

  [[nodiscard]] uint32_t id() const { return id_; }
  [[nodiscard]] bool runs() const;
  // The exit code; none after the limit, which fails the test.
  std::optional<uint32_t> wait(uint32_t limit_ms = 60000) const;
  void terminate();

 private:
  KernelHandle process_;
  uint32_t id_ = 0;
};

// A test program that runs until it is told to end.
class WaitingProgram {
 public:
  // Starts `program`, a copy of the test program, and returns when it runs.
  explicit WaitingProgram(const std::wstring& program);
  void end();
  [[nodiscard]] uint32_t id() const { return process_->id(); }

 private:
  KernelHandle event_;
  std::optional<TestProcess> process_;
};

}  // namespace kvx::test
