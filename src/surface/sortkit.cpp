// SPDX-License-Identifier: GPL-2.0-or-later
// Sorting and uniquing kit. All three sorts are the same stable bottom-up merge sort (no
// recursion, no insertion-sort cut-off); only the rule that decides whether the right row is
// strictly smaller than the left one differs. Ties always go to the left run, which is what
// keeps the sort stable.
//
// For short rows the keys travel with the permutation through the passes (a record of the
// key columns and the row number), so that every pass streams through memory instead of
// chasing rows of the table through the permutation. The order of operations, and so the
// result, is the same as for a merge of bare row numbers: the same comparisons are made on
// the same values in the same sequence.
#include "surface/sortkit.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "control/messages.h"

namespace wf {

namespace {

// One bottom-up merge sort on an array of elements (row numbers or records).
// rightsmaller(r, l) is true when the element of the right run must come first.
// The caller's array holds the incoming order; work is scratch of the same length.
template <class T, class RightSmaller>
void mergepasses(T *p, T *work, int32_t n, RightSmaller rightsmaller) {
  if (n < 2) return;
  std::memcpy(static_cast<void *>(work), p, sizeof(T) * static_cast<size_t>(n));
  long long w = 1;
  int passes = 0;
  while (w < n) {
    ++passes;
    const T *src = (passes % 2 == 1) ? p : work;
    T *dst = (passes % 2 == 1) ? work : p;
    long long nmerge = (n + 2 * w - 1) / (2 * w);
    for (long long m = 1; m <= nmerge; ++m) {
      long long lo = 2 * w * (m - 1);             // 0-based first position
      long long hi = std::min<long long>(n, 2 * w * m);  // one past the last
      long long mid = std::min<long long>(n, lo + w);    // first of the right run
      long long i = lo, j = mid;
      for (long long k = lo; k < hi; ++k) {
        if (i >= mid) {
          dst[k] = src[j++];
        } else if (j >= hi) {
          dst[k] = src[i++];
        } else if (rightsmaller(src[j], src[i])) {
          dst[k] = src[j++];
        } else {
          dst[k] = src[i++];
        }
      }
    }
    w *= 2;
  }
  if (passes % 2 == 1) std::memcpy(static_cast<void *>(p), work, sizeof(T) * static_cast<size_t>(n));
}

// Double rows: the first column in which right > left or right < left decides; equal values
// and values that are not numbers go on to the next column; no decision is a tie.
inline bool drowsmaller(const double *r, const double *l, int ncols) {
  for (int c = 0; c < ncols; ++c) {
    if (r[c] > l[c]) return false;
    if (r[c] < l[c]) return true;
  }
  return false;
}

inline bool irowsmaller(const int32_t *r, const int32_t *l, int ncols) {
  for (int c = 0; c < ncols; ++c) {
    if (r[c] != l[c]) return r[c] < l[c];
  }
  return false;
}

template <class K, int NC>
struct Rec {
  K k[NC];
  int32_t row;
};

// Merge sort of p (1-based rows of the column-major table a) with the keys carried along.
// Returns false when the scratch could not be had.
template <class K, int NC, class Smaller>
bool sortrecords(const K *a, int32_t *p, int32_t n, Smaller smaller) {
  using R = Rec<K, NC>;
  std::unique_ptr<R[]> buf(new (std::nothrow) R[2 * static_cast<size_t>(n)]);
  if (!buf) return false;
  R *recs = buf.get();
  R *work = recs + n;
  for (int32_t i = 0; i < n; ++i) {
    const K *row = a + static_cast<size_t>(NC) * static_cast<size_t>(p[i] - 1);
    for (int c = 0; c < NC; ++c) recs[i].k[c] = row[c];
    recs[i].row = p[i];
  }
  mergepasses(recs, work, n, [&](const R &r, const R &l) { return smaller(r.k, l.k, NC); });
  for (int32_t i = 0; i < n; ++i) p[i] = recs[i].row;
  return true;
}

// Merge sort of bare row numbers, the rows reached through the table.
template <class K, class Smaller>
bool sortrows(const K *a, int32_t *p, int ncols, int32_t n, Smaller smaller) {
  std::unique_ptr<int32_t[]> work(new (std::nothrow) int32_t[static_cast<size_t>(n)]);
  if (!work) return false;
  const size_t nc = static_cast<size_t>(ncols);
  mergepasses(p, work.get(), n, [&](int32_t r, int32_t l) {
    return smaller(a + nc * static_cast<size_t>(r - 1), a + nc * static_cast<size_t>(l - 1), ncols);
  });
  return true;
}

template <class K, class Smaller>
bool sorttable(const K *a, int32_t *p, int ncols, int32_t n, Smaller smaller) {
  if (n < 2) return true;
  switch (ncols) {
    case 1: if (sortrecords<K, 1>(a, p, n, smaller)) return true; break;
    case 2: if (sortrecords<K, 2>(a, p, n, smaller)) return true; break;
    case 3: if (sortrecords<K, 3>(a, p, n, smaller)) return true; break;
    default: break;
  }
  // Wide rows, or too little memory for the records: the lean form.
  return sortrows(a, p, ncols, n, smaller);
}

// Shared run numberer; differs(i, j) tells rows p(i), p(j) apart (0-based sorted positions).
template <class Differs>
void numberruns(RunState &rs, const int32_t *p, std::vector<int32_t> &longrun, int32_t n,
                int32_t &nuniq, std::vector<int32_t> &iuniq, Differs differs) {
  if (n < 1) {
    // Nothing to number: no runs.
    nuniq = 0;
    release(longrun);
    release(iuniq);
    return;
  }
  nuniq = 1;
  allocate(rs, longrun, static_cast<size_t>(n), "uniq_include, long, 1");
  longrun[0] = 1;
  for (int32_t i = 0; i + 1 < n; ++i) {
    if (differs(i, i + 1)) {
      ++nuniq;
      longrun[static_cast<size_t>(i) + 1] = longrun[static_cast<size_t>(i)] + 1;
    } else {
      longrun[static_cast<size_t>(i) + 1] = longrun[static_cast<size_t>(i)];
    }
  }
  allocate(rs, iuniq, static_cast<size_t>(nuniq), "uniq_include, iuniq, 1");
  // First rows of the runs, shifted by one run when the first run has more than one row
  // (the last entry is then left at 0). With a single row, that row is the first of its run.
  int32_t c = 0;
  if (n == 1 || longrun[0] != longrun[1]) {
    c = 1;
    iuniq[0] = p[0];
  }
  for (int32_t i = 1; i < n; ++i) {
    if (longrun[static_cast<size_t>(i)] != longrun[static_cast<size_t>(i) - 1]) {
      ++c;
      iuniq[static_cast<size_t>(c) - 1] = p[i];
    }
  }
}

}  // namespace

void dmatsort(RunState &rs, const double *a, int32_t *p, int ncols, int32_t n) {
  if (n < 2) return;
  if (!sorttable(a, p, ncols, n, drowsmaller)) checkalloc(rs, 1, "dmatsort, work, 1");
}

void imatsort(const int32_t *a, int32_t *p, int ncols, int32_t n) {
  for (int32_t i = 0; i < n; ++i) p[i] = i + 1;
  if (n < 2) return;
  if (!sorttable(a, p, ncols, n, irowsmaller)) throw std::bad_alloc();
}

void dvecsort(const double *a, int32_t *p, int32_t n) {
  for (int32_t i = 0; i < n; ++i) p[i] = i + 1;
  if (n < 2) return;
  // The left value is taken when right >= left, so a value that is not a number on the right
  // comes first.
  auto smaller = [](const double *r, const double *l, int) { return !(r[0] >= l[0]); };
  if (!sortrecords<double, 1>(a, p, n, smaller)) {
    if (!sortrows(a, p, 1, n, smaller)) throw std::bad_alloc();
  }
}

void uniq_include(RunState &rs, const double *a, const int32_t *p, std::vector<int32_t> &longrun,
                  int ncols, int32_t n, int32_t &nuniq, std::vector<int32_t> &iuniq, bool flag) {
  (void)flag;  // no caller asks for the other branch
  const size_t nc = static_cast<size_t>(ncols);
  numberruns(rs, p, longrun, n, nuniq, iuniq, [&](int32_t i, int32_t j) {
    if (j + 8 < n) __builtin_prefetch(a + nc * static_cast<size_t>(p[j + 8] - 1));
    const double *r1 = a + nc * static_cast<size_t>(p[i] - 1);
    const double *r2 = a + nc * static_cast<size_t>(p[j] - 1);
    for (size_t c = 0; c < nc; ++c) {
      if (r1[c] != r2[c]) return true;  // a value that is not a number differs from itself
    }
    return false;
  });
}

void uniq_include_int(RunState &rs, const int32_t *a, const int32_t *p,
                      std::vector<int32_t> &longrun, int ncols, int32_t n, int32_t &nuniq,
                      std::vector<int32_t> &iuniq, bool flag) {
  (void)flag;
  const size_t nc = static_cast<size_t>(ncols);
  numberruns(rs, p, longrun, n, nuniq, iuniq, [&](int32_t i, int32_t j) {
    if (j + 8 < n) __builtin_prefetch(a + nc * static_cast<size_t>(p[j + 8] - 1));
    const int32_t *r1 = a + nc * static_cast<size_t>(p[i] - 1);
    const int32_t *r2 = a + nc * static_cast<size_t>(p[j] - 1);
    for (size_t c = 0; c < nc; ++c) {
      if (r1[c] != r2[c]) return true;
    }
    return false;
  });
}

}  // namespace wf
