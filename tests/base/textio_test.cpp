// SPDX-License-Identifier: GPL-3.0-or-later
// The free-form reading of decks, number forms and repaired names; the Reporter's catalogue
// failures and number mode; the growth rule of the lists.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/list.h"
#include "base/reporter.h"
#include "base/text.h"
#include "base/textio.h"
#include "reporting.h"
#include "testutil.h"

using namespace wf;

// A slash ends the record; a doubled quote stands for itself.
TEST(FreeForm, TokensEndAtBlankCommaSlashAndQuotesEnclose) {
  const std::pair<const char *, std::vector<std::string>> cases[] = {
      {"  *WARP, 1.5 'a b/c,d' x/y \"q\"\"q\"", {"*WARP", "1.5", "a b/c,d", "x"}},
      {"\"q\"\"q\"", {"q\"q"}},
      {"   ", {}}};
  for (const auto &[line, expect] : cases) {
    std::vector<std::string> tokens;
    size_t pos = 0;
    for (std::string t; nexttoken(line, pos, t);) tokens.push_back(t);
    EXPECT_EQ(tokens, expect) << line;
  }
}

TEST(FreeForm, NumbersReadAsTheRuntimeDoes) {
  int32_t i = 0;
  for (auto [text, ok, value] :
       {std::tuple{"+42", true, 42}, {"-7", true, -7}, {"1.5", false, 0}, {"3000000000", false, 0}, {"", false, 0}}) {
    const bool got = parseint(text, i);
    EXPECT_EQ(std::pair(got, got ? i : 0), std::pair(ok, value)) << text;
  }
  double d = 0;
  const std::tuple<const char *, bool, double> reals[] = {
      {"1.5d3", true, 1500.0}, {"-2.5E-1", true, -0.25}, {".5", true, 0.5},   {"5.", true, 5.0},
      {"1.0+2", true, 100.0},  {"7", true, 7.0},         {"abc", false, 0.0}, {"1.5x", false, 0.0}};
  for (auto [text, ok, value] : reals) {
    const bool got = parsereal(text, d);
    EXPECT_EQ(std::pair(got, got ? d : 0.0), std::pair(ok, value)) << text;
  }
  size_t pos = 0;
  EXPECT_EQ(readreal("", pos, d), IOSTAT_EOF);
  pos = 0;
  EXPECT_EQ(readint("x", pos, i), IOSTAT_BADVALUE);
}

TEST(NumberForms, ScientificFields) {
  const std::pair<std::string, std::string> cases[] = {
      {scitext(12.3456), "  1.234560E+01"},
      {scitext(-0.002, 16), "   -2.000000E-03"},
      {scitext(0.0), "  0.000000E+00"},
      {scitext(9.9999999), "  1.000000E+01"},  // rounding carries into the exponent
      {scitext(1.5e100), "  1.500000+100"},
      {scitext(-1.5e-100), " -1.500000-100"},
      {scitext(std::numeric_limits<double>::infinity()), "      Infinity"},
      {scitext(std::nan("")), "           NaN"}};
  for (const auto &[got, want] : cases) EXPECT_EQ(got, want);
}

// The repair's output and the reader's sibling: alike for a path with a dot in its name, apart
// where the name has none or only a leading one, and where the file does not exist.
TEST(RepairedNames, OutputAndSibling) {
  const std::string dir = wft::tempdir("names");
  wft::writefile(dir + "/part.v2.stl", "x");
  EXPECT_EQ(wf::repairoutputname(dir + "/part.v2.stl"), dir + "/part.v2_ls_repair.stl");
  EXPECT_EQ(wf::repairedsiblingname(dir + "/part.v2.stl"), dir + "/part.v2_ls_repair.stl");
  // A name without a dot, or with a leading one only.
  EXPECT_EQ(wf::repairoutputname("part"), "part_ls_repair.stl");
  EXPECT_EQ(wf::repairedsiblingname("part"), "_ls_repair.stl");
  EXPECT_EQ(wf::repairedsiblingname(".hidden"), "_ls_repair.stl");
  // A file that does not exist keeps its whole name before the suffix.
  EXPECT_EQ(wf::repairoutputname(dir + "/none.stl"), dir + "/none.stl_ls_repair.stl");
  EXPECT_EQ(wf::repairedsiblingname(dir + "/none.stl"), dir + "/none_ls_repair.stl");
}

// A missing entry costs the words of every later message too; a missing catalogue costs all.
TEST(Reporter, CatalogueFailuresAreStickyAndNeverFatal) {
  const std::string dir = wft::tempdir("catalogue");
  for (const std::string &file : {std::string(R"({"errors": {"5": "five"}})"), std::string("{not json")}) {
    wft::CapturedReporter cap;
    wft::writefile(dir + "/cat.arb", file);
    cap.rep.loadcatalogue(dir + "/cat.arb");
    cap.rep.post(Severity::error, 404, {"z"});
    cap.rep.post(Severity::error, 5);
    const std::string out = cap.text();
    const std::string messages = "\n  Signal tag T\n ERROR\n  Code 404\n \n\n\n  Signal tag T\n ERROR\n  Code 5\n \n\n";
    EXPECT_TRUE(wft::contains(wft::maskafter(out, "Signal tag ", "0123456789ABCDEF", "Signal tag T"), messages)) << out;
    EXPECT_EQ(wft::contains(out, "...success"), file[0] == '{' && file[1] == '"') << out;
  }
}

// A status printed in hexadecimal leaves every later integer of the console in hexadecimal.
TEST(Reporter, HexStatusSwitchesNumbersForGood) {
  wft::CapturedReporter cap;
  Reporter &rep = cap.rep;
  EXPECT_EQ(rep.integer(255), "255");
  EXPECT_EQ(rep.numbermode(), NumberMode::decimal);
  EXPECT_EQ(rep.hexstatus(-2147467259), "80004005");
  EXPECT_EQ(rep.numbermode(), NumberMode::hexadecimal);
  EXPECT_EQ(rep.integer(255), "FF");
  EXPECT_EQ(rep.integer(1234567), "12D687");
  EXPECT_EQ(rep.hexstatus(0), "0");  // a later status of 0 does not switch back
  EXPECT_EQ(rep.integer(10), "A");
}

// Growth by 1.2 in single precision: 10 times 1.2f does not round up to 13.
TEST(Lists, GrowthInSinglePrecision) {
  EXPECT_EQ((std::vector{growcapacity(10), growcapacity(12), growcapacity(15), growcapacity(18), growcapacity(22)}),
            (std::vector{12, 15, 18, 22, 27}));
  EXPECT_LE(growcapacity(2000000000), 0);  // beyond the 32-bit range
  List<int32_t> l;
  l.start();
  for (int i = 1; i <= 23; ++i) EXPECT_EQ(l.push(i), 0);
  EXPECT_EQ(l.v.size(), 27u);
  EXPECT_EQ(l.n, 23);
  for (int i = 0; i < 23; ++i) EXPECT_EQ(l[static_cast<size_t>(i)], i + 1);
}
