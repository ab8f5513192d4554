// SPDX-License-Identifier: GPL-2.0-or-later
// Sorting and uniquing kit: a stable bottom-up merge sort of a permutation of table rows, and
// the numbering of runs of equal rows. Tables are column-major (ncols x n); p holds 1-based rows.
#pragma once

#include <cstdint>
#include <vector>

#include "control/runstate.h"

namespace wf {

void dmatsort(RunState &rs, const double *a, int32_t *p, int ncols, int32_t n);  // p given
void imatsort(const int32_t *a, int32_t *p, int ncols, int32_t n);  // fills p = 1..n
void dvecsort(const double *a, int32_t *p, int32_t n);              // fills p = 1..n
// longrun(i) = run number of sorted position i (1-based runs in sort order).
void uniq_include(RunState &rs, const double *a, const int32_t *p, std::vector<int32_t> &longrun,
                  int ncols, int32_t n, int32_t &nuniq, std::vector<int32_t> &iuniq, bool flag);
void uniq_include_int(RunState &rs, const int32_t *a, const int32_t *p,
                      std::vector<int32_t> &longrun, int ncols, int32_t n, int32_t &nuniq,
                      std::vector<int32_t> &iuniq, bool flag);

}  // namespace wf
