// Ends in one of the ways in which the launcher's process may end:
//   ending_program WAY LOG
#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "foundations/log.h"
#include "launcher/process_end.h"

namespace {

void exhaust_memory() {
  constexpr size_t more_than_can_be_addressed = size_t{1} << 62U;
  ::operator delete(::operator new(more_than_can_be_addressed));
}

std::atomic<bool> no_memory_is_left{false};

void open_the_log_without_memory() {
  const std::wstring path = L"another folder\\end.log";
  kvx::log::close();
  no_memory_is_left = true;
  kvx::log::open(path);
}

void throw_an_exception() { throw std::runtime_error("nobody expects this"); }

template <typename Function>
void on_a_thread(Function function) {
  std::thread(function).join();
}

struct SaysGoodbye {
  SaysGoodbye() = default;
  SaysGoodbye(const SaysGoodbye&) = delete;
  SaysGoodbye& operator=(const SaysGoodbye&) = delete;
  ~SaysGoodbye() { kvx::log::write("destroyed"); }
};

}  // namespace

// Not inlined, where the compiler would take free for the wrong way to release what new has returned.
[[gnu::noinline]] void* operator new(size_t bytes) {
  for (;;) {
    if (void* memory = no_memory_is_left ? nullptr : std::malloc(bytes); memory != nullptr) return memory;
    std::get_new_handler()();
  }
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t /*size*/) noexcept { std::free(memory); }

int wmain(int count, wchar_t** arguments) {  // NOLINT(misc-use-internal-linkage): the runtime calls it
  if (count != 3) return 1;
  static const SaysGoodbye at_the_end;
  kvx::end_process_on_exhausted_memory();
  kvx::log::open(arguments[2]);
  kvx::log::write("started");
  const std::map<std::wstring, void (*)()> ways = {
      {L"memory", exhaust_memory},
      {L"memory-on-a-thread", [] { on_a_thread(exhaust_memory); }},
      {L"memory-for-the-log", open_the_log_without_memory},
      {L"exception", throw_an_exception},
      {L"exception-on-a-thread", [] { on_a_thread(throw_an_exception); }},
      {L"terminate", [] { std::terminate(); }},
      {L"end", [] { kvx::end_process(kvx::RunOutcome::cancelled); }},
  };
  ways.at(arguments[1])();
  return 0;
}
