// SPDX-License-Identifier: GPL-3.0-or-later
// Sorting and uniquing kit: a stable bottom-up merge sort of a permutation of table rows, and
// the numbering of runs of equal rows. Tables are column-major (ncols x n, a row is a column of
// the array); p holds 1-based row numbers. No table data moves, only the permutation.
// Double rows compare column by column, the first column with right > left or right < left
// deciding (a NaN decides nothing); integer rows as signed numbers; ties keep their order.
// Throws Fatal 32 ("dmatsort, work, 1", "uniq_include, long, 1", "uniq_include, iuniq, 1") when
// memory runs out; imatsort and dvecsort let std::bad_alloc through.
#pragma once

#include <cstdint>
#include <vector>

namespace wf {

void dmatsort(const double *a, int32_t *p, int ncols, int32_t n);  // p given
void imatsort(const int32_t *a, int32_t *p, int ncols, int32_t n);  // fills p = 1..n
void dvecsort(const double *a, int32_t *p, int32_t n);              // fills p = 1..n
// The rows 1..n in ascending order of their 64-bit keys, ties in row order (p filled). False when
// the scratch could not be had.
bool keysort(const uint64_t *keys, int32_t *p, int32_t n);
// longrun(i) = run number of sorted position i (1-based runs in sort order).
void uniq_include(const double *a, const int32_t *p, std::vector<int32_t> &longrun,
                  int ncols, int32_t n, int32_t &nuniq, std::vector<int32_t> &iuniq, bool flag);
void uniq_include_int(const int32_t *a, const int32_t *p,
                      std::vector<int32_t> &longrun, int ncols, int32_t n, int32_t &nuniq,
                      std::vector<int32_t> &iuniq, bool flag);

}  // namespace wf
