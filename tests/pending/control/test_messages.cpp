// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <set>

#include "control/deck.h"
#include "control/messages.h"
#include "testutil.h"

using namespace wf;

namespace {

struct Catalogued : ::testing::Test {
  RunState rs;
  std::string path = wft::tempdir("messages") + "/signal";
  void SetUp() override {
    rs.messagecatalogue = nlohmann::json::parse(
        R"({"errors": {"5": "file %1 of %2", "6": "keep %3 and 100% and %x", "7": "%1%2 %0"},
            "critical warnings": {"9": "warn %1"}})");
    rs.catalogueok = true;
    rs.signalunit = std::fopen(path.c_str(), "w+");
  }
  void TearDown() override { std::fclose(rs.signalunit); }
};

// The text with its random signal tags replaced by T; the tags are appended to tags.
std::string untag(const std::string &text, std::vector<std::string> &tags) {
  static const std::regex tag("Signal tag ([0-9A-F]+)");
  for (std::sregex_iterator i(text.begin(), text.end(), tag), end; i != end; ++i) tags.push_back((*i)[1]);
  return std::regex_replace(text, tag, "Signal tag T");
}

}  // namespace

// Inserted text is not scanned again; variables are listed only when a placeholder was
// replaced; console and signal stream carry the same tag.
TEST_F(Catalogued, PlaceholdersAndSignalLines) {
  testing::internal::CaptureStdout();
  postmessage(rs, 1, 5, {"a", "b"});
  postmessage(rs, 1, 6, {"u", "v"});
  postmessage(rs, 1, 7, {"x ", "y"});
  postmessage(rs, 2, 9, {"C:\\part \"1\".stl"});
  std::vector<std::string> ontty, insignal;
  EXPECT_EQ(untag(testing::internal::GetCapturedStdout(), ontty),
            "\n  Signal tag T\n ERROR\n  Code 5\n file a of b\n\n"
            "\n  Signal tag T\n ERROR\n  Code 6\n keep %3 and 100% and %x\n\n"
            "\n  Signal tag T\n ERROR\n  Code 7\n xy %0\n\n"
            "\n  Signal tag T\n *** CRITICAL WARNING: 1\n  Code 9\n warn C:\\part \"1\".stl\n\n");
  EXPECT_EQ(untag(wft::readfile(path), insignal),
            R"({"message": {"type": "error", "code": 5, "variables": ["a", "b"], "tag": "Signal tag T"}})" "\n"
            R"({"message": {"type": "error", "code": 6, "variables": [], "tag": "Signal tag T"}})" "\n"
            R"({"message": {"type": "error", "code": 7, "variables": ["x", "y"], "tag": "Signal tag T"}})" "\n"
            R"({"message": {"type": "critical warning", "code": 9, "variables": ["C:\\part \"1\".stl"], )"
            R"("tag": "Signal tag T"}})" "\n");
  EXPECT_EQ(ontty, insignal);
  EXPECT_EQ(std::set<std::string>(ontty.begin(), ontty.end()).size(), 4u);
  EXPECT_EQ(rs.ncritical, 1);
  EXPECT_EQ(rs.waypoints, (std::vector<std::pair<std::string, std::string>>{
                              {"KelSolver.Error", "5"}, {"KelSolver.Error", "6"}, {"KelSolver.Error", "7"},
                              {"KelSolver.CriticalWarning", "9"}}));
}

TEST_F(Catalogued, MissingEntryEmptiesTheRestOfTheRun) {
  testing::internal::CaptureStdout();
  postmessage(rs, 1, 404, {"z"});
  postmessage(rs, 1, 5, {"a", "b"});
  std::vector<std::string> tags;
  EXPECT_EQ(untag(testing::internal::GetCapturedStdout(), tags),
            "\n  Signal tag T\n ERROR\n  Code 404\n \n\n\n  Signal tag T\n ERROR\n  Code 5\n \n\n");
  EXPECT_EQ(untag(wft::readfile(path), tags),
            R"({"message": {"type": "error", "code": 404, "variables": [], "tag": "Signal tag T"}})" "\n"
            R"({"message": {"type": "error", "code": 5, "variables": [], "tag": "Signal tag T"}})" "\n");
}

// With the shipped catalogue: each check's code and the variables it gives.
TEST_F(Catalogued, ChecksPostTheirCodesAndAbort) {
  rs.messagecatalogue = nlohmann::json::parse(wft::readfile(WARPFORGE_SOURCE_DIR "/data/simsolver.arb"));
  const std::pair<std::function<void()>, const char *> cases[] = {
      {[&] { checkread(rs, IOSTAT_EOF, "f.geo"); }, R"("code": 28, "variables": ["f.geo"])"},
      {[&] { checkread(rs, IOSTAT_EOR, "f.geo"); }, R"("code": 27, "variables": ["f.geo"])"},
      {[&] { checkread(rs, 5010, "f.geo"); }, R"("code": 29, "variables": ["f.geo", "5010"])"},
      {[&] { checkexists(rs, "/no/such/file"); }, R"("code": 30, "variables": ["/no/such/file", "/no/such/file"])"},
      {[&] { checkopen(rs, 13, "x"); }, R"("code": 31, "variables": ["x", "13", "x"])"},
      {[&] { checkalloc(rs, 1, "push, tmp, 1"); }, R"("code": 32, "variables": ["push, tmp, 1"])"}};
  testing::internal::CaptureStdout();
  EXPECT_NO_THROW(checkread(rs, 0, "f"));
  for (const auto &[check, posted] : cases) {
    EXPECT_THROW(check(), RunAborted) << posted;
    EXPECT_TRUE(wft::contains(wft::splitlines(wft::readfile(path)).back(), posted)) << posted;
  }
  EXPECT_TRUE(wft::contains(testing::internal::GetCapturedStdout(), "\n ABORTING\n\n"));
  EXPECT_EQ(wft::splitlines(wft::readfile(path)).size(), 6u);
}

TEST(TextHelpers, IntegersWallClockAndNames) {
  const std::pair<std::string, std::string> cases[] = {
      {inttext(1234567, true), "1,234,567"}, {inttext(1234, true), "1234"}, {inttext(12345, true), "12,345"},
      {inttext(-123456, true), "-123,456"}, {inttext(-1234, true), "-1,234"}, {inttext(1234567), "1234567"},
      {walltext(3661.5), "01:01:01.50"}, {walltext(90000), "1 day 01:00:00.00"},
      {walltext(172800), "2 days 00:00:00.00"}, {walltext(0.29), "00:00:00.29"},
      {walltext(59.999), "00:00:59.99"},  // cut, not rounded
      {stripext("a.b/c"), "a"}, {stripext("a.b/c.stl"), "a.b/c"}, {stripext("noext"), "noext"},
      {jsonescape("a/b\\c\"d\n"), "a/b\\\\c\\\"d\\n"}};
  for (const auto &[got, want] : cases) EXPECT_EQ(got, want);
  EXPECT_EQ(text256(std::string(300, 'x')).size(), 256u);
  EXPECT_FALSE(jsonescape(std::string("bad\xff\xfe", 5)).empty());  // invalid UTF-8 never throws
}

// Growth by 1.2 in single precision: 10 times 1.2f does not round up to 13.
TEST(Lists, GrowthInSinglePrecision) {
  EXPECT_EQ((std::vector{growcapacity(10), growcapacity(12), growcapacity(15), growcapacity(18), growcapacity(22)}),
            (std::vector{12, 15, 18, 22, 27}));
  EXPECT_LE(growcapacity(2000000000), 0);  // overflow
  RunState rs;
  List<int32_t> l;
  l.v.resize(10);
  for (int i = 1; i <= 23; ++i) pushint(rs, l, i);
  EXPECT_EQ(l.v.size(), 27u);
  EXPECT_EQ(l.n, 23);
  for (int i = 0; i < 23; ++i) EXPECT_EQ(l[static_cast<size_t>(i)], i + 1);
}

TEST(Catalogue, ShippedFileHasATextForEveryCode) {
  auto cat = nlohmann::json::parse(wft::readfile(WARPFORGE_SOURCE_DIR "/data/simsolver.arb"));
  for (int code : {27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 46, 47, 97, 130, 131, 174, 175,
                   176, 177, 178, 179, 180, 181, 182, 183, 184, 185, 186, 187, 188, 189, 190, 191,
                   192, 193, 194, 195, 197, 198, 200, 319, 362, 370, 371})
    EXPECT_TRUE(cat["errors"].contains(std::to_string(code))) << code;
  for (int code : {1011, 1036, 1037})
    EXPECT_TRUE(cat["critical warnings"].contains(std::to_string(code))) << code;
}
