// SPDX-License-Identifier: GPL-3.0-or-later
#include "repair/workers.h"

#include <omp.h>

#include <atomic>
#include <thread>
#include <vector>

namespace wf {

int repairthreads() { return std::max(1, std::min(omp_get_max_threads(), 64)); }

void parallelfor(size_t count, size_t chunk, const std::function<void(int, size_t)> &body) {
  if (chunk == 0) chunk = 1;
  const int threads = int(std::min<size_t>(size_t(repairthreads()), (count + chunk - 1) / chunk));
  std::atomic<size_t> next{0};
  auto run = [&](int t) {
    for (;;) {
      const size_t from = next.fetch_add(chunk);
      if (from >= count) return;
      const size_t to = std::min(count, from + chunk);
      for (size_t i = from; i < to; ++i) body(t, i);
    }
  };
  std::vector<std::thread> team;
  for (int t = 1; t < threads; ++t) team.emplace_back(run, t);
  run(0);
  for (auto &t : team) t.join();
}

}  // namespace wf
