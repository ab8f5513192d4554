// SPDX-License-Identifier: GPL-3.0-or-later
// Work shared out to plain threads. The repair runs in a child process made by fork, where the
// OpenMP runtime of the parent cannot start its team again, so the repair's parallel loops use
// threads of their own. As many threads as OpenMP would use (OMP_NUM_THREADS).
#pragma once

#include <cstddef>
#include <functional>

namespace wf {

// Number of threads the repair uses.
int repairthreads();
// Calls body(thread, i) for every i in [0, count), in chunks of `chunk` handed out in turn to
// the threads; returns when all are done. body must not throw.
void parallelfor(size_t count, size_t chunk, const std::function<void(int, size_t)> &body);
// Sorts [first, last) of a random-access range with two or more threads where it is large.
template <class It, class Less>
void parallelsort(It first, It last, Less less);

}  // namespace wf

#include "repair/workers_impl.h"
