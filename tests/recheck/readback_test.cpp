// SPDX-License-Identifier: GPL-3.0-or-later
// The read-back of a written surface for its check: the box it gives the check.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>

#include "recheck/readback.h"
#include "shapes.h"
#include "surface/readstl.h"
#include "testutil.h"

// An axis without a number: the reader's box of an input surface has no number there, the
// read-back's box the largest finite double as minimum and its negative as maximum; the other
// axes are alike in both.
TEST(Readback, BoxOfAnAxisWithoutNumbers) {
  const std::string dir = wft::tempdir("readback_box");
  wft::Soup s = wft::cube(2.0, 1.0, 0.0, 0.0);
  for (size_t k = 0; k < s.size(); k += 3) s[k] = std::nan("");
  wft::writefile(dir + "/nan.stl", wft::binarystl(s));
  const wf::RawSurface asinput = wf::readstl(dir + "/nan.stl", 0).raw;
  wf::RawSurface back = wf::readstl(dir + "/nan.stl", 0).raw;
  wf::readbackbox(back);
  EXPECT_TRUE(std::isnan(asinput.box.min[0]) && std::isnan(asinput.box.max[0]));
  EXPECT_EQ(back.box.min[0], DBL_MAX);
  EXPECT_EQ(back.box.max[0], -DBL_MAX);
  for (int k = 1; k < 3; ++k) {
    EXPECT_EQ(back.box.min[k], asinput.box.min[k]) << k;
    EXPECT_EQ(back.box.max[k], asinput.box.max[k]) << k;
  }
  EXPECT_EQ(back.box.max[1], 2.0);
  // The soup itself is left as read, bit for bit.
  ASSERT_EQ(back.vrt.size(), asinput.vrt.size());
  EXPECT_EQ(std::memcmp(back.vrt.data(), asinput.vrt.data(), 8 * back.vrt.size()), 0);
}
