// SPDX-License-Identifier: GPL-3.0-or-later
// The Reporter's catalogue failures and the growth rule of the lists.
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/list.h"
#include "base/reporter.h"
#include "reporting.h"
#include "testutil.h"

using namespace wf;

namespace {

// The text with its random signal tags replaced by T; the tags are appended to tags.
std::string untag(const std::string &text, std::vector<std::string> &tags) {
  return wft::maskafter(text, "Signal tag ", "0123456789ABCDEF", "Signal tag T", &tags);
}

}  // namespace

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
    std::vector<std::string> tags;
    const std::string messages = "\n  Signal tag T\n ERROR\n  Code 404\n \n\n\n  Signal tag T\n ERROR\n  Code 5\n \n\n";
    EXPECT_TRUE(wft::contains(untag(out, tags), messages)) << out;
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
