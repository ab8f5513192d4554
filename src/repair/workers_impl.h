// SPDX-License-Identifier: GPL-3.0-or-later
// The sort of workers.h: the range cut into one piece per thread, the pieces sorted side by
// side, then merged pairwise in place (a total order gives the same result on any thread count).
#pragma once

#include <algorithm>
#include <thread>
#include <vector>

namespace wf {

template <class It, class Less>
void parallelsort(It first, It last, Less less) {
  const size_t n = size_t(last - first);
  size_t parts = size_t(repairthreads());
  if (n < 65536 || parts < 2) {
    std::sort(first, last, less);
    return;
  }
  std::vector<size_t> cut;
  for (size_t p = 0; p <= parts; ++p) cut.push_back(n * p / parts);
  std::vector<std::thread> team;
  for (size_t p = 1; p < parts; ++p)
    team.emplace_back([&, p] { std::sort(first + std::ptrdiff_t(cut[p]), first + std::ptrdiff_t(cut[p + 1]), less); });
  std::sort(first, first + std::ptrdiff_t(cut[1]), less);
  for (auto &t : team) t.join();
  for (size_t width = 1; width < parts; width *= 2)
    for (size_t p = 0; p + width < parts; p += 2 * width)
      std::inplace_merge(first + std::ptrdiff_t(cut[p]), first + std::ptrdiff_t(cut[p + width]),
                         first + std::ptrdiff_t(cut[std::min(parts, p + 2 * width)]), less);
}

}  // namespace wf
