// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <cstdio>

#include "control/deck.h"
#include "control/messages.h"
#include "control/settings.h"
#include "testutil.h"

using namespace wf;

namespace {

std::string signaltext(RunState &rs) {
  std::fflush(rs.signalunit);
  std::rewind(rs.signalunit);
  std::string s;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, rs.signalunit)) > 0) s.append(buf, n);
  return s;
}

struct Catalogued : ::testing::Test {
  RunState rs;
  void SetUp() override {
    rs.messagecatalogue = nlohmann::json::parse(
        R"({"errors": {"5": "file %1 of %2", "6": "keep %3 and 100% and %x", "7": "%1%2 %0"},
            "critical warnings": {"9": "warn %1"}})");
    rs.catalogueok = true;
    rs.signalunit = std::tmpfile();
  }
  void TearDown() override { std::fclose(rs.signalunit); }
};

}  // namespace

TEST_F(Catalogued, PlaceholdersAndSignalLines) {
  testing::internal::CaptureStdout();
  postmessage(rs, 1, 5, {"a", "b"});
  postmessage(rs, 1, 6, {"u", "v"});
  postmessage(rs, 1, 7, {"x ", "y"});
  postmessage(rs, 2, 9, {"C:\\part \"1\".stl"});
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(wft::contains(out, "\n file a of b\n"));
  EXPECT_TRUE(wft::contains(out, "\n keep %3 and 100% and %x\n"));
  EXPECT_TRUE(wft::contains(out, "\n xy %0\n"));  // inserted text is not scanned again
  EXPECT_TRUE(wft::contains(out, " ERROR\n  Code 5\n"));
  EXPECT_TRUE(wft::contains(out, " *** CRITICAL WARNING: 1\n  Code 9\n"));
  auto lines = wft::splitlines(signaltext(rs));
  ASSERT_EQ(lines.size(), 4u);
  // Variables are listed only when a placeholder was replaced.
  EXPECT_TRUE(lines[0].rfind(R"({"message": {"type": "error", "code": 5, "variables": ["a", "b"], "tag": "Signal tag )", 0) == 0) << lines[0];
  EXPECT_TRUE(lines[1].find(R"("code": 6, "variables": [], "tag")") != std::string::npos) << lines[1];
  EXPECT_TRUE(lines[3].find(R"({"message": {"type": "critical warning", "code": 9, "variables": ["C:\\part \"1\".stl"])") == 0) << lines[3];
  EXPECT_EQ(lines[0].substr(lines[0].size() - 3), "\"}}");
  EXPECT_EQ(rs.ncritical, 1);
  ASSERT_EQ(rs.waypoints.size(), 4u);
  EXPECT_EQ(rs.waypoints[0], (std::pair<std::string, std::string>{"KelSolver.Error", "5"}));
  EXPECT_EQ(rs.waypoints[3], (std::pair<std::string, std::string>{"KelSolver.CriticalWarning", "9"}));
}

TEST_F(Catalogued, MissingEntryEmptiesTheRestOfTheRun) {
  testing::internal::CaptureStdout();
  postmessage(rs, 1, 404, {"z"});
  postmessage(rs, 1, 5, {"a", "b"});
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_FALSE(wft::contains(out, "file a of b"));
  auto lines = wft::splitlines(signaltext(rs));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(wft::contains(lines[1], R"("code": 5, "variables": [])"));
}

TEST_F(Catalogued, ChecksPostTheirCodesAndAbort) {
  testing::internal::CaptureStdout();
  EXPECT_NO_THROW(checkread(rs, 0, "f"));
  EXPECT_THROW(checkread(rs, IOSTAT_EOF, "f.geo"), RunAborted);
  EXPECT_THROW(checkread(rs, IOSTAT_EOR, "f.geo"), RunAborted);
  EXPECT_THROW(checkread(rs, 5010, "f.geo"), RunAborted);
  EXPECT_THROW(checkexists(rs, "/no/such/file"), RunAborted);
  EXPECT_THROW(checkopen(rs, 13, "x"), RunAborted);
  EXPECT_THROW(checkalloc(rs, 1, "push, tmp, 1"), RunAborted);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(wft::contains(out, "\n ABORTING\n\n"));
  auto lines = wft::splitlines(signaltext(rs));
  ASSERT_EQ(lines.size(), 6u);
  const char *codes[] = {"\"code\": 28,", "\"code\": 27,", "\"code\": 29,", "\"code\": 30,",
                         "\"code\": 31,", "\"code\": 32,"};
  for (size_t i = 0; i < 6; ++i) EXPECT_TRUE(wft::contains(lines[i], codes[i])) << lines[i];
}

TEST(TextHelpers, IntegersWallClockAndNames) {
  EXPECT_EQ(inttext(1234567, true), "1,234,567");
  EXPECT_EQ(inttext(1234, true), "1234");
  EXPECT_EQ(inttext(12345, true), "12,345");
  EXPECT_EQ(inttext(-123456, true), "-123,456");
  EXPECT_EQ(inttext(-1234, true), "-1,234");
  EXPECT_EQ(inttext(1234567), "1234567");
  EXPECT_EQ(walltext(3661.5), "01:01:01.50");
  EXPECT_EQ(walltext(90000), "1 day 01:00:00.00");
  EXPECT_EQ(walltext(172800), "2 days 00:00:00.00");
  EXPECT_EQ(walltext(0.29), "00:00:00.29");
  EXPECT_EQ(walltext(59.999), "00:00:59.99");  // cut, not rounded
  EXPECT_EQ(stripext("a.b/c"), "a");
  EXPECT_EQ(stripext("job_1_warp.stl"), "job_1_warp");
  EXPECT_EQ(stripext("noext"), "noext");
  EXPECT_EQ(text256(std::string(300, 'x')).size(), 256u);
  EXPECT_EQ(rtrim("ab  "), "ab");
  EXPECT_EQ(jsonescape("a/b\\c\"d\n"), "a/b\\\\c\\\"d\\n");
  EXPECT_FALSE(jsonescape(std::string("bad\xff\xfe", 5)).empty());  // invalid UTF-8 never throws
}

TEST(Lists, GrowthInSinglePrecision) {
  EXPECT_EQ(growcapacity(10), 12);
  EXPECT_EQ(growcapacity(12), 15);
  EXPECT_EQ(growcapacity(15), 18);
  EXPECT_EQ(growcapacity(18), 22);
  EXPECT_LE(growcapacity(2000000000), 0);  // overflow
  RunState rs;
  List<int32_t> l;
  l.v.resize(10);
  std::vector<size_t> caps;
  for (int i = 1; i <= 23; ++i) {
    pushint(rs, l, i);
    if (caps.empty() || caps.back() != l.v.size()) caps.push_back(l.v.size());
  }
  EXPECT_EQ(caps, (std::vector<size_t>{10, 12, 15, 18, 22, 27}));
  EXPECT_EQ(l.n, 23);
  for (int i = 0; i < 23; ++i) EXPECT_EQ(l[static_cast<size_t>(i)], i + 1);
}

TEST(Lists, StripQuotes) {
  std::string s = "\"a b\"  ";
  stripquotes(s);
  EXPECT_EQ(s, "a b");
  s = "\"\"";
  stripquotes(s);
  EXPECT_EQ(s, "");
  s = "\"a\"b\"";
  stripquotes(s);
  EXPECT_EQ(s, "a\"b");
  s = "\"open";
  stripquotes(s);
  EXPECT_EQ(s, "\"open");
}

TEST(Catalogue, ShippedFileHasATextForEveryCode) {
  auto cat = nlohmann::json::parse(wft::readfile(WARPFORGE_SOURCE_DIR "/data/simsolver.arb"));
  for (int code : {27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 46, 47, 97, 130, 131, 174, 175,
                   176, 177, 178, 179, 180, 181, 182, 183, 184, 185, 186, 187, 188, 189, 190, 191,
                   192, 193, 194, 319, 362, 370, 371})
    EXPECT_TRUE(cat["errors"].contains(std::to_string(code))) << code;
  for (int code : {1011, 1036, 1037})
    EXPECT_TRUE(cat["critical warnings"].contains(std::to_string(code))) << code;
}
