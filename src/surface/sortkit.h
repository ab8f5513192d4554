// SPDX-License-Identifier: GPL-3.0-or-later
// Sorting and uniquing kit: a stable bottom-up merge sort of a permutation of table rows, and
// the numbering of runs of equal rows. Tables are column-major (ncols x n, a row is a column of
// the array); p holds 1-based row numbers. No table data moves, only the permutation.
// Double rows compare column by column, the first column with right > left or right < left
// deciding (a NaN decides nothing); integer rows as signed numbers; ties keep their order.
// Throws Fatal 32 ("dmatsort, work, 1", "uniq_include, long, 1", "uniq_include, iuniq, 1": the
// names the run's messages have always carried) when memory runs out; sortdoubles lets
// std::bad_alloc through.
//
// Also here: the numbering of distinct 64-bit keys by their rank (a hash table finds the
// distinct keys, and only those are sorted), and the scratch memory that it and the surface
// preparation share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wf {

// Scratch memory: one block, grown when a call needs more than it has and kept for the next
// call, so that the passes of a surface preparation (and repeated preparations) reuse the
// pages. A block of 4 MiB or more is aligned to 2 MiB and advised as huge pages where the
// kernel gives them (advice only). The contents are undefined on each get. Not for sharing
// between threads.
class Scratch {
 public:
  Scratch() = default;
  ~Scratch() { release(); }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  // At least `bytes` bytes, aligned to 64; nullptr when the memory cannot be had (the block
  // held before is then gone as well).
  void *get(size_t bytes) noexcept;
  void release() noexcept;
  size_t size() const { return bytes_; }

 private:
  void *block_ = nullptr;
  size_t bytes_ = 0;
};

// The rows of a double table in order (p given: the rows to order, 1-based), and the single
// column a (p filled with 1..n first). The memory message of the first names it dmatsort.
void sortdoublerows(const double *a, int32_t *p, int ncols, int32_t n);
void sortdoubles(const double *a, int32_t *p, int32_t n);
// The distinct values among keys[0..n-1] numbered by rank: rank[i] := the 1-based rank of keys[i]
// among the distinct values in ascending order, so that equal keys get equal numbers and the
// numbers are those of a stable sort of the keys followed by the numbering of its runs.
// nuniq := the number of distinct values; first points at nuniq entries, first[r-1] the lowest
// 0-based i whose key has rank r, and lives in the scratch until its next use. False when the
// scratch could not be had (rank is then undefined). Memory: about 24 bytes per slot of a hash
// table of at least n / 2 slots and twice the distinct keys.
struct KeyRanks {
  int32_t nuniq = 0;
  const int32_t *first = nullptr;
};
bool rankkeys(const uint64_t *keys, int32_t n, int32_t *rank, KeyRanks &out, Scratch &scratch);
// The slot of a key in a hash table of 2^bits slots (1 <= bits <= 32), where rankkeys looks for
// it first.
inline uint32_t keyslot(uint64_t key, int bits) {
  return static_cast<uint32_t>((key * 0x9E3779B97F4A7C15ull) >> (64 - bits));
}

// The runs of equal rows of a double table in the order p: longrun(i) = run number of sorted
// position i (1-based runs in sort order), nuniq the number of runs, iuniq the first rows of the
// runs (as kept in numberruns). The memory messages name it uniq_include.
void numberdoubleruns(const double *a, const int32_t *p, std::vector<int32_t> &longrun, int ncols, int32_t n,
                      int32_t &nuniq, std::vector<int32_t> &iuniq);

}  // namespace wf
