// SPDX-License-Identifier: GPL-3.0-or-later
// The benchmarks' clocks: wall time (steady) and the CPU time of all threads of the process, in
// seconds.
#pragma once

#include <chrono>
#include <ctime>

namespace wfbench {

inline double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

inline double cpunow() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

}  // namespace wfbench
