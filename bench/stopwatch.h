// What the two sides of a comparison share, so that they are timed and told alike.
#pragma once

#include <windows.h>

#include <algorithm>
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

// For work that takes some milliseconds: prints the seconds of the best of several passes, which other work on the
// machine disturbs least.
template <typename Work>
void print_best_pass(Work work) {
  constexpr int passes = 7;
  double best = 1e9;
  for (int pass = 0; pass < passes; ++pass) {
    const double start = now_seconds();
    work();
    best = std::min(best, now_seconds() - start);
  }
  std::printf("%.6f\n", best);
}

}  // namespace kvx::bench
