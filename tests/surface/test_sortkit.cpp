// SPDX-License-Identifier: GPL-2.0-or-later
// Sort kit: stable order through the permutation, run numbering, and the exact handling of
// values that are not numbers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "surface/sortkit.h"
#include "surfacefixtures.h"

using wf::RunState;

namespace {

const double qnan = std::numeric_limits<double>::quiet_NaN();

std::vector<int32_t> identity(int32_t n) {
  std::vector<int32_t> p(static_cast<size_t>(n));
  std::iota(p.begin(), p.end(), 1);
  return p;
}

// A reference: the stable order of the rows in p by a lexicographic less-than.
template <class K>
std::vector<int32_t> stablereference(const std::vector<K> &a, std::vector<int32_t> p, int nc) {
  std::stable_sort(p.begin(), p.end(), [&](int32_t l, int32_t r) {
    for (int c = 0; c < nc; ++c) {
      K x = a[static_cast<size_t>(nc) * (l - 1) + c], y = a[static_cast<size_t>(nc) * (r - 1) + c];
      if (x != y) return x < y;
    }
    return false;
  });
  return p;
}

}  // namespace

TEST(SortKit, SmallCountsAndFillingOfThePermutation) {
  RunState rs;
  // n = 0 and n = 1: nothing moves; dmatsort keeps what the caller gave.
  std::vector<double> a1 = {5.0};
  std::vector<int32_t> p = {1};
  wf::dmatsort(rs, a1.data(), p.data(), 1, 1);
  EXPECT_EQ(p, std::vector<int32_t>({1}));
  wf::dmatsort(rs, a1.data(), p.data(), 1, 0);
  EXPECT_EQ(p, std::vector<int32_t>({1}));
  std::vector<int32_t> q = {42};
  std::vector<int32_t> ai = {3};
  wf::imatsort(ai.data(), q.data(), 1, 1);
  EXPECT_EQ(q, std::vector<int32_t>({1}));  // filled by the routine itself
  q = {42};
  wf::dvecsort(a1.data(), q.data(), 1);
  EXPECT_EQ(q, std::vector<int32_t>({1}));

  // n = 2 (one pass, result copied back) and n = 3 (two passes).
  std::vector<double> a2 = {2.0, 1.0};
  p = identity(2);
  wf::dmatsort(rs, a2.data(), p.data(), 1, 2);
  EXPECT_EQ(p, std::vector<int32_t>({2, 1}));
  std::vector<double> a3 = {3.0, 1.0, 2.0};
  p = identity(3);
  wf::dmatsort(rs, a3.data(), p.data(), 1, 3);
  EXPECT_EQ(p, std::vector<int32_t>({2, 3, 1}));
  std::vector<int32_t> i3 = {3, 1, 2};
  std::vector<int32_t> pi(3, 0);
  wf::imatsort(i3.data(), pi.data(), 1, 3);
  EXPECT_EQ(pi, std::vector<int32_t>({2, 3, 1}));
  wf::dvecsort(a3.data(), pi.data(), 3);
  EXPECT_EQ(pi, std::vector<int32_t>({2, 3, 1}));

  // dmatsort sorts only the rows that p names, in the given order of ties.
  std::vector<double> a4 = {9.0, 4.0, 4.0, 1.0};
  p = {3, 2, 1};
  wf::dmatsort(rs, a4.data(), p.data(), 1, 3);
  EXPECT_EQ(p, std::vector<int32_t>({3, 2, 1}));
}

TEST(SortKit, StableAndLexicographicAgainstReference) {
  RunState rs;
  std::mt19937 gen(7);
  std::uniform_int_distribution<int> small(0, 4);
  for (int32_t n : {5, 17, 64, 1000, 4099}) {
    for (int nc : {1, 2, 3, 5}) {
      std::vector<double> a(static_cast<size_t>(nc) * n);
      std::vector<int32_t> ai(a.size());
      for (size_t i = 0; i < a.size(); ++i) {
        ai[i] = small(gen) - 2;
        a[i] = 0.5 * ai[i];
      }
      // A shuffled incoming permutation: ties must keep its order, not the row order.
      std::vector<int32_t> p = identity(n);
      std::shuffle(p.begin(), p.end(), gen);
      std::vector<int32_t> expect = stablereference(a, p, nc);
      wf::dmatsort(rs, a.data(), p.data(), nc, n);
      EXPECT_EQ(p, expect) << "dmatsort n=" << n << " ncols=" << nc;

      std::vector<int32_t> pi(static_cast<size_t>(n));
      wf::imatsort(ai.data(), pi.data(), nc, n);
      EXPECT_EQ(pi, stablereference(ai, identity(n), nc)) << "imatsort n=" << n << " ncols=" << nc;
    }
    std::vector<double> v(static_cast<size_t>(n));
    for (auto &x : v) x = small(gen);
    std::vector<int32_t> pv(static_cast<size_t>(n));
    wf::dvecsort(v.data(), pv.data(), n);
    EXPECT_EQ(pv, stablereference(v, identity(n), 1));
  }
  // Wide values: both signs, both zeros, tiny and huge magnitudes, repeated in all columns.
  std::vector<double> pool = {0.0, -0.0, 1e-310, -1e-310, 1e300, -1e300, 3.5, -3.5, 1.0, 2.0};
  std::uniform_real_distribution<double> expo(-300, 300);
  for (int i = 0; i < 200; ++i) pool.push_back((i % 2 ? -1 : 1) * std::pow(10.0, expo(gen)));
  std::uniform_int_distribution<size_t> pick(0, pool.size() - 1);
  const int32_t nw = 30000;
  std::vector<double> wide(3 * static_cast<size_t>(nw));
  for (auto &x : wide) x = pool[pick(gen)] * (pick(gen) % 3 == 0 ? 1.0 : 0.0);
  std::vector<int32_t> pw = identity(nw);
  std::shuffle(pw.begin(), pw.end(), gen);
  std::vector<int32_t> expect = stablereference(wide, pw, 3);
  wf::dmatsort(rs, wide.data(), pw.data(), 3, nw);
  EXPECT_EQ(pw, expect);

  // Integer rows compare as signed numbers.
  std::vector<int32_t> neg = {-5, 0, 7, -2147483647 - 1};
  std::vector<int32_t> pn(4);
  wf::imatsort(neg.data(), pn.data(), 1, 4);
  EXPECT_EQ(pn, std::vector<int32_t>({4, 1, 2, 3}));
}

TEST(SortKit, ValuesThatAreNotNumbers) {
  RunState rs;
  // Worked through the passes by hand: [3, NaN, 1]. Pass 1 ties 3 with NaN (left first);
  // pass 2 takes 1 before 3, then the rest of the left run.
  std::vector<double> a = {3.0, qnan, 1.0};
  std::vector<int32_t> p = identity(3);
  wf::dmatsort(rs, a.data(), p.data(), 1, 3);
  EXPECT_EQ(p, std::vector<int32_t>({3, 1, 2}));
  // dvecsort takes the right value unless right >= left: NaN moves ahead in pass 1, and 1
  // beats NaN in pass 2.
  std::vector<int32_t> q(3);
  wf::dvecsort(a.data(), q.data(), 3);
  EXPECT_EQ(q, std::vector<int32_t>({3, 2, 1}));
  // A NaN in the first column passes the decision to the next column.
  std::vector<double> rows = {qnan, 2.0, qnan, 1.0};
  p = identity(2);
  wf::dmatsort(rs, rows.data(), p.data(), 2, 2);
  EXPECT_EQ(p, std::vector<int32_t>({2, 1}));

  // A NaN never equals itself: two NaN rows are two runs.
  std::vector<int32_t> longrun, iuniq;
  int32_t nuniq = 0;
  std::vector<double> twonan = {qnan, qnan, 0.0};
  p = identity(3);
  wf::dmatsort(rs, twonan.data(), p.data(), 1, 3);
  wf::uniq_include(rs, twonan.data(), p.data(), longrun, 1, 3, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 3);
  // Negative and positive zero are one value.
  std::vector<double> zeros = {0.0, -0.0, 0.0};
  p = identity(3);
  wf::dmatsort(rs, zeros.data(), p.data(), 1, 3);
  EXPECT_EQ(p, identity(3));
  wf::uniq_include(rs, zeros.data(), p.data(), longrun, 1, 3, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 1);
}

TEST(SortKit, RunNumbering) {
  RunState rs;
  std::vector<int32_t> longrun, iuniq;
  int32_t nuniq = 0;

  // All rows equal: nothing moves, one run.
  std::vector<double> same(3 * 6, 1.25);
  std::vector<int32_t> p = identity(6);
  wf::dmatsort(rs, same.data(), p.data(), 3, 6);
  EXPECT_EQ(p, identity(6));
  wf::uniq_include(rs, same.data(), p.data(), longrun, 3, 6, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 1);
  EXPECT_EQ(longrun, std::vector<int32_t>(6, 1));

  // All different, some only in the last column: 1..n.
  std::vector<double> diff = {1, 1, 2, 1, 1, 1, 0, 5, 5, 1, 1, 3};
  p = identity(4);
  wf::dmatsort(rs, diff.data(), p.data(), 3, 4);
  EXPECT_EQ(p, std::vector<int32_t>({3, 2, 1, 4}));
  wf::uniq_include(rs, diff.data(), p.data(), longrun, 3, 4, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 4);
  EXPECT_EQ(longrun, std::vector<int32_t>({1, 2, 3, 4}));
  EXPECT_EQ(iuniq, std::vector<int32_t>({3, 2, 1, 4}));

  // Integer rows: [5, 7, 7] and [5, 5, 7]. The first rows of the runs are listed, shifted by
  // one run when the first run has more than one row (the last entry then stays 0).
  std::vector<int32_t> a = {5, 7, 7};
  p.assign(3, 0);
  wf::imatsort(a.data(), p.data(), 1, 3);
  wf::uniq_include_int(rs, a.data(), p.data(), longrun, 1, 3, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 2);
  EXPECT_EQ(longrun, std::vector<int32_t>({1, 2, 2}));
  EXPECT_EQ(iuniq, std::vector<int32_t>({1, 2}));
  std::vector<int32_t> b = {5, 5, 7};
  wf::imatsort(b.data(), p.data(), 1, 3);
  wf::uniq_include_int(rs, b.data(), p.data(), longrun, 1, 3, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 2);
  EXPECT_EQ(longrun, std::vector<int32_t>({1, 1, 2}));
  EXPECT_EQ(iuniq, std::vector<int32_t>({3, 0}));

  // Guarded small counts: one row is one run; no row is no run.
  std::vector<int32_t> one = {9};
  p = {1};
  wf::uniq_include_int(rs, one.data(), p.data(), longrun, 1, 1, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 1);
  EXPECT_EQ(longrun, std::vector<int32_t>({1}));
  EXPECT_EQ(iuniq, std::vector<int32_t>({1}));
  wf::uniq_include_int(rs, one.data(), p.data(), longrun, 1, 0, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 0);
  EXPECT_TRUE(longrun.empty());

  // Integer rows that differ only in their last column.
  std::vector<int32_t> r3 = {1, 2, 3, 1, 2, 4, 1, 2, 3};
  p.assign(3, 0);
  wf::imatsort(r3.data(), p.data(), 3, 3);
  EXPECT_EQ(p, std::vector<int32_t>({1, 3, 2}));
  wf::uniq_include_int(rs, r3.data(), p.data(), longrun, 3, 3, nuniq, iuniq, false);
  EXPECT_EQ(nuniq, 2);
  EXPECT_EQ(longrun, std::vector<int32_t>({1, 1, 2}));
}
