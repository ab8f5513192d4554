// SPDX-License-Identifier: GPL-3.0-or-later
// The chunked raw deflate of the package members: read back by zlib, the same stream on any
// number of threads, and the CRC that zip stores.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <random>

#include "outputs/deflate.h"

using namespace wf;

namespace {

std::string inflateraw(const std::vector<unsigned char> &in, size_t expect) {
  z_stream s;
  std::memset(&s, 0, sizeof s);
  EXPECT_EQ(inflateInit2(&s, -MAX_WBITS), Z_OK);
  std::string out(expect + 16, '\0');
  s.next_in = const_cast<unsigned char *>(in.data());
  s.avail_in = static_cast<uInt>(in.size());
  s.next_out = reinterpret_cast<unsigned char *>(out.data());
  s.avail_out = static_cast<uInt>(out.size());
  const int status = inflate(&s, Z_FINISH);
  EXPECT_EQ(status, Z_STREAM_END);  // one stream, ending with its final block
  EXPECT_EQ(s.avail_in, 0u);        // and nothing behind it
  out.resize(s.total_out);
  inflateEnd(&s);
  return out;
}

}  // namespace

TEST(Deflate, RoundTripsAcrossChunkBoundariesOnAnyThreadCount) {
  std::mt19937 rng(7);
  std::string text;
  while (text.size() < 2 * deflatechunk + deflatechunk / 2) {
    text += "\t\t\t\t\t<vertex x=\"  " + std::to_string(rng() % 100000) + "E+01\" y=\"" +
            std::to_string(rng() % 977) + "\" />\n";
  }
  std::string noise(deflatechunk + 3, '\0');
  for (char &c : noise) c = static_cast<char>(rng());
  const std::string inputs[] = {"", "a", std::string(deflatechunk, 'x'), text, noise};
  for (const std::string &in : inputs) {
    SCOPED_TRACE(in.size());
    const auto *bytes = reinterpret_cast<const unsigned char *>(in.data());
    Deflated one, two;
    ASSERT_TRUE(deflateraw(bytes, in.size(), one, 1));
    ASSERT_TRUE(deflateraw(bytes, in.size(), two, 2));
    EXPECT_EQ(one.data, two.data);
    EXPECT_EQ(one.size, in.size());
    EXPECT_EQ(one.crc, static_cast<uint32_t>(crc32(0, bytes, static_cast<uInt>(in.size()))));
    EXPECT_EQ(inflateraw(one.data, in.size()), in);
  }
  // Text of the model's kind compresses well; incompressible bytes grow only a little.
  Deflated t, n;
  ASSERT_TRUE(deflateraw(reinterpret_cast<const unsigned char *>(text.data()), text.size(), t));
  ASSERT_TRUE(deflateraw(reinterpret_cast<const unsigned char *>(noise.data()), noise.size(), n));
  EXPECT_LT(t.data.size(), text.size() / 3);
  EXPECT_LT(n.data.size(), noise.size() + noise.size() / 100);
}
