// SPDX-License-Identifier: GPL-3.0-or-later
// Sorting and uniquing kit. Both sorts are the same stable bottom-up merge sort (no
// recursion, no insertion-sort cut-off); only the rule that decides whether the right row is
// strictly smaller than the left one differs. Ties always go to the left run, which is what
// keeps the sort stable.
//
// For short rows the keys travel with the permutation through the passes (a record of the
// key columns and the row number), so that every pass streams through memory instead of
// chasing rows of the table through the permutation. The order of operations, and so the
// result, is the same as for a merge of bare row numbers: the same comparisons are made on
// the same values in the same sequence.
//
// Where the comparison is a strict weak order (rows without a value that is not a number) a
// stable order is unique: any sort that ranks ties by their incoming
// position yields the very permutation of the merge sort. Those tables of up to three columns
// take a quicker road: the keys become unsigned integers that order as the values do, a
// radix sort orders the records by the first column, and the runs of equal first keys are
// put in order by the rest with a stable sort. Rows with a NaN take the merge passes, whose
// outcome then depends on the exact sequence of comparisons.
//
// rankkeys numbers 64-bit keys by rank without sorting them all: an open-addressing hash table
// (linear probing, at most half full) gives each distinct key an id in order of first
// appearance, the distinct keys alone are put in order by a radix sort, and each id is mapped
// to its rank. Equal keys meet in the table and different keys never compare equal, so the
// numbers are exactly those of a stable sort of all keys and the numbering of its runs.
#include "surface/sortkit.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include "base/fatal.h"
#include "base/memory.h"

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
      long long lo = 2 * w * (m - 1);                    // 0-based first position
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

// Keys that order as unsigned integers exactly as the values do.
inline uint64_t orderkey(double x) {
  if (x == 0.0) x = 0.0;  // negative zero equals zero
  uint64_t b = std::bit_cast<uint64_t>(x);
  return (b >> 63) ? ~b : (b | (uint64_t{1} << 63));
}

// The least significant digit radix sort of records by an unsigned key (32 or 64 bits), 11
// bits a digit, shared by the table sorts and the ranking of distinct keys. tally counts a key's
// digits into the ndigit x nbucket counters; passes then moves the n records (n >= 1, every key
// tallied) from src to dst and back, one pass a digit, a digit that all keys share passed over,
// and returns where the sorted records are: src or dst. Stable: ties keep their incoming order.
template <class Key>
struct Radix {
  static constexpr int bits = 11, nbucket = 1 << bits;
  static constexpr int ndigit = (8 * static_cast<int>(sizeof(Key)) + bits - 1) / bits;
  static constexpr size_t ncounters = static_cast<size_t>(ndigit) * nbucket;

  static void tally(uint32_t *count, Key k) {
    for (int d = 0; d < ndigit; ++d) ++count[static_cast<size_t>(d) * nbucket + ((k >> (bits * d)) & (nbucket - 1))];
  }
  template <class R, class KeyOf>
  static R *passes(R *src, R *dst, size_t n, uint32_t *count, KeyOf keyof) {
    for (int d = 0; d < ndigit; ++d) {
      uint32_t *cnt = count + static_cast<size_t>(d) * nbucket;
      if (cnt[(keyof(src[0]) >> (bits * d)) & (nbucket - 1)] == n) continue;  // one digit for all
      uint32_t sum = 0;
      for (int b = 0; b < nbucket; ++b) {
        const uint32_t c = cnt[b];
        cnt[b] = sum;
        sum += c;
      }
      for (size_t i = 0; i < n; ++i) dst[cnt[(keyof(src[i]) >> (bits * d)) & (nbucket - 1)]++] = src[i];
      std::swap(src, dst);
    }
    return src;
  }
};

// The quick road for rows of at most three columns whose comparison is a strict weak order:
// a least-significant-digit radix sort of key records on the first column (stable, so ties
// keep their incoming order), then each run of equal first keys put in order by the other
// columns with a stable sort. Returns false when the scratch could not be had.
template <class K>
bool sortkeyed(const K *a, int32_t *p, int ncols, int32_t n) {
  using Key = std::conditional_t<(sizeof(K) > 4), uint64_t, uint32_t>;
  struct R {
    Key k[3];
    int32_t row;
  };
  const size_t nn = static_cast<size_t>(n);
  std::unique_ptr<R[]> buf(new (std::nothrow) R[2 * nn]);
  if (!buf) return false;
  R *src = buf.get(), *dst = src + nn;

  // The first keys are tallied as the records are made.
  std::vector<uint32_t> count(Radix<Key>::ncounters, 0);
  const size_t nc = static_cast<size_t>(ncols);
  for (size_t i = 0; i < nn; ++i) {
    const K *row = a + nc * static_cast<size_t>(p[i] - 1);
    for (int c = 0; c < 3; ++c) src[i].k[c] = c < ncols ? static_cast<Key>(orderkey(row[c])) : 0;
    src[i].row = p[i];
    Radix<Key>::tally(count.data(), src[i].k[0]);
  }
  src = Radix<Key>::passes(src, dst, nn, count.data(), [](const R &r) { return r.k[0]; });

  auto before = [](const R &l, const R &r) {
    if (l.k[1] != r.k[1]) return l.k[1] < r.k[1];
    return l.k[2] < r.k[2];
  };
  if (ncols > 1) {
    for (size_t i = 0; i < nn;) {
      size_t j = i + 1;
      while (j < nn && src[j].k[0] == src[i].k[0]) ++j;
      if (j - i > 24) {
        std::stable_sort(src + i, src + j, before);
      } else {
        for (size_t m = i + 1; m < j; ++m) {  // insertion: a tie stays behind its elder
          R x = src[m];
          size_t q = m;
          while (q > i && before(x, src[q - 1])) {
            src[q] = src[q - 1];
            --q;
          }
          src[q] = x;
        }
      }
      i = j;
    }
  }
  for (size_t i = 0; i < nn; ++i) p[i] = src[i].row;
  return true;
}

// Whether any value of the rows in p is not a number.
bool anynan(const double *a, const int32_t *p, int ncols, int32_t n) {
  const size_t nc = static_cast<size_t>(ncols);
  for (int32_t i = 0; i < n; ++i) {
    const double *row = a + nc * static_cast<size_t>(p[i] - 1);
    for (size_t c = 0; c < nc; ++c)
      if (row[c] != row[c]) return true;
  }
  return false;
}

template <class K, class Smaller>
bool sorttable(const K *a, int32_t *p, int ncols, int32_t n, Smaller smaller) {
  if (n < 2) return true;
  if (ncols >= 1 && ncols <= 3) {
    bool weakorder = true;
    if constexpr (std::is_floating_point_v<K>) weakorder = !anynan(a, p, ncols, n);
    if (weakorder && sortkeyed(a, p, ncols, n)) return true;
  }
  switch (ncols) {
    case 1:
      if (sortrecords<K, 1>(a, p, n, smaller)) return true;
      break;
    case 2:
      if (sortrecords<K, 2>(a, p, n, smaller)) return true;
      break;
    case 3:
      if (sortrecords<K, 3>(a, p, n, smaller)) return true;
      break;
    default: break;
  }
  // Wide rows, or too little memory for the records: the lean form.
  return sortrows(a, p, ncols, n, smaller);
}

// Shared run numberer; differs(i, j) tells rows p(i), p(j) apart (0-based sorted positions).
template <class Differs>
void numberruns(const int32_t *p, std::vector<int32_t> &longrun, int32_t n, int32_t &nuniq, std::vector<int32_t> &iuniq,
                Differs differs) {
  if (n < 1) {
    // Nothing to number: no runs.
    nuniq = 0;
    release(longrun);
    release(iuniq);
    return;
  }
  nuniq = 1;
  allocate(longrun, static_cast<size_t>(n), "uniq_include, long, 1");
  longrun[0] = 1;
  for (int32_t i = 0; i + 1 < n; ++i) {
    if (differs(i, i + 1)) {
      ++nuniq;
      longrun[static_cast<size_t>(i) + 1] = longrun[static_cast<size_t>(i)] + 1;
    } else {
      longrun[static_cast<size_t>(i) + 1] = longrun[static_cast<size_t>(i)];
    }
  }
  allocate(iuniq, static_cast<size_t>(nuniq), "uniq_include, iuniq, 1");
  // Kept deliberately: the first rows of the runs, shifted by one run when the first run has
  // more than one row (the last entry is then left at 0). No caller reads iuniq; it keeps the
  // shape of the interface. With a single row, that row is the first of its run.
  // [pinned: SortKit.FirstRowsShiftedWhenTheFirstRunRepeats]
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

// A slot of the hash table of rankkeys: a key and its id, or emptyslot for none; and a record
// of the radix sort of the distinct keys.
struct KeySlot {
  uint64_t key;
  uint32_t id;
  uint32_t unused;
};
constexpr uint32_t emptyslot = 0xFFFFFFFFu;

// The distinct keys in order (n >= 1). count has room for the counters of 64-bit keys.
KeySlot *radixbykey(KeySlot *src, KeySlot *dst, size_t n, uint32_t *count) {
  using Sort = Radix<uint64_t>;
  std::memset(count, 0, sizeof(uint32_t) * Sort::ncounters);
  for (size_t i = 0; i < n; ++i) Sort::tally(count, src[i].key);
  return Sort::passes(src, dst, n, count, [](const KeySlot &r) { return r.key; });
}

}  // namespace

void *Scratch::get(size_t bytes) noexcept {
  if (block_ && bytes <= bytes_) return block_;
  release();
  constexpr size_t huge = size_t{2} << 20;
  const size_t align = bytes >= 2 * huge ? huge : 64;
  const size_t whole = (std::max<size_t>(bytes, 1) + align - 1) / align * align;
  void *p = std::aligned_alloc(align, whole);
  if (!p) return nullptr;
  if (align == huge) madvise(p, whole, MADV_HUGEPAGE);  // advice only: without huge pages nothing else changes
  block_ = p;
  bytes_ = whole;
  return p;
}

void Scratch::release() noexcept {
  std::free(block_);
  block_ = nullptr;
  bytes_ = 0;
}

bool rankkeys(const uint64_t *keys, int32_t n, int32_t *rank, KeyRanks &out, Scratch &scratch) {
  out = KeyRanks();
  if (n <= 0) return true;
  const size_t nn = static_cast<size_t>(n);
  // A table of at least n / 2 slots holds a distinct key for every six keys (a closed mesh has
  // about one vertex for every six corners) at a third of its slots. When the distinct keys
  // reach half the slots, the count starts again with twice as many.
  int bits = 4;
  while ((size_t{1} << bits) < nn / 2) ++bits;
  constexpr int ahead = 16;  // keys between the look-up of a slot and its prefetch
  for (;; ++bits) {
    const size_t nslot = size_t{1} << bits, cap = nslot / 2;
    // Layout: the distinct keys and their first positions by id, the rank of each id, the
    // slots (later the two buffers of the radix sort), the counters of the sort.
    const size_t bytes = cap * (8 + 4 + 4) + nslot * sizeof(KeySlot) + Radix<uint64_t>::ncounters * 4;
    char *mem = static_cast<char *>(scratch.get(bytes));
    if (!mem) return false;
    uint64_t *distinct = reinterpret_cast<uint64_t *>(mem);
    int32_t *firstof = reinterpret_cast<int32_t *>(mem + cap * 8);
    uint32_t *rankof = reinterpret_cast<uint32_t *>(mem + cap * 12);
    KeySlot *slot = reinterpret_cast<KeySlot *>(mem + cap * 16);
    uint32_t *count = reinterpret_cast<uint32_t *>(mem + cap * 16 + nslot * sizeof(KeySlot));
    std::memset(static_cast<void *>(slot), 0xFF, nslot * sizeof(KeySlot));

    // Ids in order of first appearance; rank holds the id of each key for now.
    const uint32_t mask = static_cast<uint32_t>(nslot - 1);
    uint32_t nu = 0;
    bool full = false;
    for (size_t i = 0; i < nn && !full; ++i) {
      if (i + ahead < nn) __builtin_prefetch(slot + keyslot(keys[i + ahead], bits));
      const uint64_t k = keys[i];
      for (uint32_t s = keyslot(k, bits);; s = (s + 1) & mask) {
        KeySlot &q = slot[s];
        if (q.id == emptyslot) {
          if (nu == cap) {
            full = true;
            break;
          }
          q.key = k;
          q.id = nu;
          distinct[nu] = k;
          firstof[nu] = static_cast<int32_t>(i);
          rank[i] = static_cast<int32_t>(nu++);
          break;
        }
        if (q.key == k) {
          rank[i] = static_cast<int32_t>(q.id);
          break;
        }
      }
    }
    if (full) continue;

    // The distinct keys in order (the slots are free now: twice cap records), then each id
    // gets its rank, and each key the rank of its id. The first positions by rank go where the
    // distinct keys were.
    KeySlot *recs = slot, *work = slot + cap;
    for (uint32_t id = 0; id < nu; ++id) recs[id] = KeySlot{distinct[id], id, 0};
    const KeySlot *sorted = radixbykey(recs, work, nu, count);
    int32_t *firstbyrank = reinterpret_cast<int32_t *>(mem);
    for (uint32_t r = 0; r < nu; ++r) {
      const uint32_t id = sorted[r].id;
      rankof[id] = r + 1;
      firstbyrank[r] = firstof[id];
    }
    for (size_t i = 0; i < nn; ++i) rank[i] = static_cast<int32_t>(rankof[rank[i]]);
    out.nuniq = static_cast<int32_t>(nu);
    out.first = firstbyrank;
    return true;
  }
}

void sortdoublerows(const double *a, int32_t *p, int ncols, int32_t n) {
  if (n < 2) return;
  if (!sorttable(a, p, ncols, n, drowsmaller)) checkalloc(1, "dmatsort, work, 1");
}

void sortdoubles(const double *a, int32_t *p, int32_t n) {
  for (int32_t i = 0; i < n; ++i) p[i] = i + 1;
  if (n < 2) return;
  // The left value is taken when right >= left, so a value that is not a number on the right
  // comes first.
  // Without a NaN the rule is a plain less-than, and the stable order is unique.
  if (!anynan(a, p, 1, n) && sortkeyed(a, p, 1, n)) return;
  auto smaller = [](const double *r, const double *l, int) { return !(r[0] >= l[0]); };
  if (!sortrecords<double, 1>(a, p, n, smaller)) {
    if (!sortrows(a, p, 1, n, smaller)) throw std::bad_alloc();
  }
}

void numberdoubleruns(const double *a, const int32_t *p, std::vector<int32_t> &longrun, int ncols, int32_t n,
                      int32_t &nuniq, std::vector<int32_t> &iuniq) {
  const size_t nc = static_cast<size_t>(ncols);
  numberruns(p, longrun, n, nuniq, iuniq, [&](int32_t i, int32_t j) {
    if (j + 8 < n) __builtin_prefetch(a + nc * static_cast<size_t>(p[j + 8] - 1));
    const double *r1 = a + nc * static_cast<size_t>(p[i] - 1);
    const double *r2 = a + nc * static_cast<size_t>(p[j] - 1);
    for (size_t c = 0; c < nc; ++c) {
      if (r1[c] != r2[c]) return true;  // a value that is not a number differs from itself
    }
    return false;
  });
}

}  // namespace wf
