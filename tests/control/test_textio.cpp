// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "control/messages.h"
#include "control/textio.h"
#include "testutil.h"

using namespace wf;

TEST(FreeForm, TokensEndAtBlankCommaSlashAndQuotesEnclose) {
  std::string t;
  size_t pos = 0;
  std::string line = "  *WARP, 1.5 'a b/c,d' x/y \"q\"\"q\"";
  ASSERT_TRUE(nexttoken(line, pos, t));
  EXPECT_EQ(t, "*WARP");
  ASSERT_TRUE(nexttoken(line, pos, t));
  EXPECT_EQ(t, "1.5");
  ASSERT_TRUE(nexttoken(line, pos, t));
  EXPECT_EQ(t, "a b/c,d");
  ASSERT_TRUE(nexttoken(line, pos, t));
  EXPECT_EQ(t, "x");
  EXPECT_FALSE(nexttoken(line, pos, t));  // the slash ends the record
  pos = 0;
  std::string q = "\"q\"\"q\"";
  ASSERT_TRUE(nexttoken(q, pos, t));
  EXPECT_EQ(t, "q\"q");
  pos = 0;
  EXPECT_FALSE(nexttoken("   ", pos, t));
}

TEST(FreeForm, NumbersReadAsTheRuntimeDoes) {
  int32_t i = 0;
  double d = 0;
  EXPECT_TRUE(parseint("+42", i));
  EXPECT_EQ(i, 42);
  EXPECT_TRUE(parseint("-7", i));
  EXPECT_EQ(i, -7);
  EXPECT_FALSE(parseint("1.5", i));
  EXPECT_FALSE(parseint("3000000000", i));
  EXPECT_FALSE(parseint("", i));
  EXPECT_TRUE(parsereal("1.5d3", d));
  EXPECT_EQ(d, 1500.0);
  EXPECT_TRUE(parsereal("-2.5E-1", d));
  EXPECT_EQ(d, -0.25);
  EXPECT_TRUE(parsereal(".5", d));
  EXPECT_EQ(d, 0.5);
  EXPECT_TRUE(parsereal("5.", d));
  EXPECT_EQ(d, 5.0);
  EXPECT_TRUE(parsereal("1.0+2", d));
  EXPECT_EQ(d, 100.0);
  EXPECT_TRUE(parsereal("7", d));
  EXPECT_EQ(d, 7.0);
  EXPECT_FALSE(parsereal("abc", d));
  EXPECT_FALSE(parsereal("1.5x", d));
  size_t pos = 0;
  EXPECT_EQ(readreal("", pos, d), IOSTAT_EOF);
  pos = 0;
  EXPECT_EQ(readint("x", pos, i), IOSTAT_BADVALUE);
}

TEST(NumberForms, ShortestTextReadsBack) {
  for (double v : {-1.0, 0.001, 1e-5, 0.1 + 0.2, 123456.789, 5e-324, 1.7976931348623157e308}) {
    double back = 0;
    ASSERT_TRUE(parsereal(numtext(v), back)) << numtext(v);
    EXPECT_EQ(back, v);
  }
  EXPECT_EQ(numtext(-1.0), "-1");
  EXPECT_EQ(numtext(0.001), "0.001");
}

TEST(NumberForms, ScientificFields) {
  EXPECT_EQ(scitext(12.3456), "  1.234560E+01");
  EXPECT_EQ(scitext(-0.002, 16), "   -2.000000E-03");
  EXPECT_EQ(scitext(0.0), "  0.000000E+00");
  EXPECT_EQ(scitext(9.9999999), "  1.000000E+01");  // rounding carries into the exponent
  EXPECT_EQ(scitext(1.5e100), "  1.500000+100");
  EXPECT_EQ(scitext(-1.5e-100), " -1.500000-100");
  EXPECT_EQ(scitext(std::numeric_limits<double>::infinity()), "      Infinity");
  EXPECT_EQ(scitext(std::nan("")), "           NaN");
  EXPECT_EQ(scitext(1.0, 5), "*****");
  EXPECT_EQ(scitext(1.0).size(), 14u);
}

TEST(LineReader, StepBackEndOfFileAndLongLines) {
  std::string dir = wft::tempdir("lines");
  std::string path = dir + "/f.txt";
  wft::writefile(path, "one\r\ntwo\n\nlast-without-newline");
  LineReader in;
  ASSERT_EQ(in.open(path), 0);
  std::string l;
  ASSERT_EQ(in.readline(l), 0);
  EXPECT_EQ(l, "one");
  ASSERT_EQ(in.readline(l), 0);
  EXPECT_EQ(l, "two");
  in.stepback();
  ASSERT_EQ(in.readline(l), 0);
  EXPECT_EQ(l, "two");
  ASSERT_EQ(in.readline(l), 0);
  EXPECT_EQ(l, "");
  ASSERT_EQ(in.readline(l), 0);
  EXPECT_EQ(l, "last-without-newline");
  EXPECT_EQ(in.readline(l), IOSTAT_EOF);
  EXPECT_EQ(l, "last-without-newline");  // a failed read leaves the text as it was
  in.stepback();                         // a step back at the end stays at the end
  EXPECT_EQ(in.readline(l), IOSTAT_EOF);
  in.rewind();
  ASSERT_EQ(in.readline(l), 0);
  EXPECT_EQ(l, "one");

  wft::writefile(path, std::string(10000, 'x') + "\nshort\n");
  ASSERT_EQ(in.open(path), 0);
  ASSERT_EQ(in.readline(l), 0);
  EXPECT_EQ(l.size(), 8192u);
  ASSERT_EQ(in.readline(l), 0);
  EXPECT_EQ(l, "short");
  EXPECT_NE(in.open(dir + "/missing.txt"), 0);
}

TEST(LineReader, ValueReadsPassOverBlankLines) {
  std::string path = wft::tempdir("values") + "/v.txt";
  wft::writefile(path, "\n   \n 12 rest\nabc\n");
  LineReader in;
  ASSERT_EQ(in.open(path), 0);
  int32_t v = 0;
  EXPECT_EQ(readintline(in, v), 0);
  EXPECT_EQ(v, 12);
  double d = 0;
  EXPECT_EQ(readrealline(in, d), IOSTAT_BADVALUE);
  EXPECT_EQ(readrealline(in, d), IOSTAT_EOF);
}
