// SPDX-License-Identifier: GPL-3.0-or-later
#include "warp/rootpow.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>
#include <limits>
#include <random>

namespace {

bool samebits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b)); }

// Squared distances of every size a job can give and of no size at all, the special values, and
// the inputs where sqrt and pow part: rootpow must give pow's bits on every one.
TEST(RootPow, GivesPowsBitsWhereSqrtDoesNot) {
  std::mt19937_64 rng(20261126);
  const double inf = std::numeric_limits<double>::infinity(), qnan = std::numeric_limits<double>::quiet_NaN();
  const double special[] = {0.0,    -0.0, 1.0, 4.0,  0.25,    2.0,       0.5,      1e-310,
                            5e-324, -1.0, inf, qnan, DBL_MAX, 0x1p-1000, 0x1p1000, 0x1.fffffffffffffp-1};
  for (double x : special) EXPECT_TRUE(samebits(wf::rootpow(x), std::pow(x, 0.5))) << x;
  int sqrtdiffers = 0;
  for (int i = 0; i < 4000000; ++i) {
    uint64_t bits = rng();
    if (i % 2)  // mantissa at random, exponent within 2^-60 .. 2^40
      bits = (bits & 0xfffffffffffffULL) | (static_cast<uint64_t>(1023 - 60 + static_cast<int>(rng() % 100)) << 52);
    else  // any positive double, subnormals and NaNs included
      bits &= 0x7fffffffffffffffULL;
    double x;
    std::memcpy(&x, &bits, sizeof x);
    const double want = std::pow(x, 0.5);
    ASSERT_TRUE(samebits(wf::rootpow(x), want)) << std::hexfloat << x;
    sqrtdiffers += !samebits(std::sqrt(x), want);
  }
  // The inputs really include those where the plain square root would have been wrong.
  EXPECT_GT(sqrtdiffers, 1000);
}

}  // namespace
