// What the two sides of a comparison share, so that they are timed and told alike.
#pragma once

#include <windows.h>

#include <cstdio>

namespace kvx::bench {

inline double now_seconds() {
  LARGE_INTEGER ticks;
  LARGE_INTEGER ticks_per_second;
  QueryPerformanceCounter(&ticks);
  QueryPerformanceFrequency(&ticks_per_second);
  return static_cast<double>(ticks.QuadPart) / static_cast<double>(ticks_per_second.QuadPart);
}

// The seconds since construction, printed alone on a line.
class Stopwatch {
 public:
  void print() const { std::printf("%.6f\n", now_seconds() - start_); }

 private:
  double start_ = now_seconds();
};

}  // namespace kvx::bench
