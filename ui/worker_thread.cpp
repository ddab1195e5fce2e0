#include "ui/worker_thread.h"

#include <process.h>

#include <exception>
#include <memory>
#include <utility>

namespace kvx {
namespace {

using Body = std::function<void()>;

unsigned __stdcall run_body(void* start_block) {
  const std::unique_ptr<Body> body(static_cast<Body*>(start_block));
  (*body)();
  return 0;
}

}  // namespace

WorkerThread::~WorkerThread() {
  if (joinable()) std::terminate();
}

void WorkerThread::start(std::function<void()> body) {
  auto start_block = std::make_unique<Body>(std::move(body));
  const uintptr_t started = _beginthreadex(nullptr, 0, run_body, start_block.get(), 0, &id_);
  if (started == 0) std::terminate();
  static_cast<void>(start_block.release());  // the thread owns it now
  handle_.reset(reinterpret_cast<HANDLE>(started));
}

void WorkerThread::join() {
  if (WaitForSingleObject(handle_.get(), INFINITE) != WAIT_OBJECT_0) std::terminate();
  handle_.reset();
}

}  // namespace kvx
