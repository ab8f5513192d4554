// SPDX-License-Identifier: GPL-3.0-or-later
// The Reporter's two channels, the check routines' codes and variables, the text helpers and the
// growth rule of the lists.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <set>

#include <nlohmann/json.hpp>

#include "base/fatal.h"
#include "base/list.h"
#include "base/reporter.h"
#include "base/text.h"
#include "testutil.h"

using namespace wf;

namespace {

// The text with its random signal tags replaced by T; the tags are appended to tags.
std::string untag(const std::string &text, std::vector<std::string> &tags) {
  return wft::maskafter(text, "Signal tag ", "0123456789ABCDEF", "Signal tag T", &tags);
}

}  // namespace

// Inserted text is not scanned again; variables are listed only when a placeholder was
// replaced; console, signal stream and telemetry carry the same events in the same order.
TEST(Reporter, CodedMessagesOnBothChannels) {
  const std::string dir = wft::tempdir("messages");
  setenv("CRVT_TSR_SIM_TMP", (dir + "/tmp").c_str(), 1);
  std::FILE *console = std::tmpfile();
  {
    Reporter rep(console);
    wft::writefile(dir + "/cat.arb",
                   R"({"errors": {"5": "file %1 of %2", "6": "keep %3 and 100% and %x", "7": "%1%2 %0"},
                       "critical warnings": {"9": "warn %1"}})");
    rep.opensignal();
    const std::string temporary = rep.temporarysignal();
    EXPECT_TRUE(wft::contains(temporary, dir + "/tmp/ProjectKel/sim")) << temporary;
    rep.movesignal(dir + "/job.wrpsimsignal");
    EXPECT_FALSE(fileexists(temporary));
    rep.loadcatalogue(dir + "/cat.arb");
    rep.post(1, 5, {"a", "b"});
    rep.post(1, 6, {"u", "v"});
    rep.post(1, 7, {"x ", "y"});
    rep.post(2, 9, {"C:\\part \"1\".stl"});
    rep.progress(12, 345, 7);
    rep.finishedfile("out/a b.stl  ");
    rep.finish(1);
    EXPECT_EQ(rep.criticals(), 1);
    EXPECT_EQ(rep.telemetry().sent(),
              (std::vector<std::pair<std::string, std::string>>{{"KelSolver.Error", "5"},
                                                                {"KelSolver.Error", "6"},
                                                                {"KelSolver.Error", "7"},
                                                                {"KelSolver.CriticalWarning", "9"}}));
  }
  std::rewind(console);
  std::string out(1 << 16, '\0');
  out.resize(std::fread(out.data(), 1, out.size(), console));
  std::fclose(console);
  std::vector<std::string> ontty, insignal;
  EXPECT_EQ(untag(out, ontty),
            "\n  Loading file: " + dir + "/cat.arb...\n  ...success\n"
            "\n  Signal tag T\n ERROR\n  Code 5\n file a of b\n\n"
            "\n  Signal tag T\n ERROR\n  Code 6\n keep %3 and 100% and %x\n\n"
            "\n  Signal tag T\n ERROR\n  Code 7\n xy %0\n\n"
            "\n  Signal tag T\n *** CRITICAL WARNING: 1\n  Code 9\n warn C:\\part \"1\".stl\n\n"
            " Progress =   7 % (edge 12 of 345)\n");
  EXPECT_EQ(untag(wft::readfile(dir + "/job.wrpsimsignal"), insignal),
            R"({"schema": "simsignal-1.0"})" "\n"
            R"({"message": {"type": "error", "code": 5, "variables": ["a", "b"], "tag": "Signal tag T"}})" "\n"
            R"({"message": {"type": "error", "code": 6, "variables": [], "tag": "Signal tag T"}})" "\n"
            R"({"message": {"type": "error", "code": 7, "variables": ["x", "y"], "tag": "Signal tag T"}})" "\n"
            R"({"message": {"type": "critical warning", "code": 9, "variables": ["C:\\part \"1\".stl"], )"
            R"("tag": "Signal tag T"}})" "\n"
            R"({"progress": 0.07})" "\n"
            R"({"information": {"finished writing file": "out/a b.stl"}})" "\n"
            R"({"information": "successful finish"})" "\n");
  EXPECT_EQ(ontty, insignal);
  EXPECT_EQ(std::set<std::string>(ontty.begin(), ontty.end()).size(), 4u);
}

// A missing entry costs the words of every later message too; a missing catalogue costs all.
TEST(Reporter, CatalogueFailuresAreStickyAndNeverFatal) {
  const std::string dir = wft::tempdir("catalogue");
  for (const std::string &file : {std::string(R"({"errors": {"5": "five"}})"), std::string("{not json")}) {
    std::FILE *console = std::tmpfile();
    {
      Reporter rep(console);
      wft::writefile(dir + "/cat.arb", file);
      rep.loadcatalogue(dir + "/cat.arb");
      rep.post(1, 404, {"z"});
      rep.post(1, 5);
      rep.integer(0);
    }
    std::rewind(console);
    std::string out(1 << 14, '\0');
    out.resize(std::fread(out.data(), 1, out.size(), console));
    std::fclose(console);
    std::vector<std::string> tags;
    const std::string messages =
        "\n  Signal tag T\n ERROR\n  Code 404\n \n\n\n  Signal tag T\n ERROR\n  Code 5\n \n\n";
    EXPECT_TRUE(wft::contains(untag(out, tags), messages)) << out;
    EXPECT_EQ(wft::contains(out, "...success"), file[0] == '{' && file[1] == '"') << out;
  }
}

// Warnings count up; after a status in hexadecimal, integers print in hexadecimal for good.
TEST(Reporter, ConsoleFormsWarningsAndHexMode) {
  std::FILE *console = std::tmpfile();
  {
    Reporter rep(console);
    rep.say("free");
    rep.raw("fixed");
    rep.printline("trimmed   ");
    rep.printwarning();
    rep.printwarning();
    EXPECT_EQ(rep.integer(255), "255");
    EXPECT_EQ(rep.hexstatus(-2147467259), "80004005");
    EXPECT_EQ(rep.integer(255), "FF");
    EXPECT_EQ(rep.warnings(), 2);
  }
  std::rewind(console);
  char buf[256] = {0};
  const size_t n = std::fread(buf, 1, sizeof buf - 1, console);
  std::fclose(console);
  EXPECT_EQ(std::string(buf, n),
            " free\nfixed\n trimmed\n\n *** WARNING: 1\n\n *** WARNING: 2\n");
}

// Each check: nothing for status 0; otherwise Fatal with the code and variables of the shipped
// catalogue's texts.
TEST(Checks, CodesAndVariables) {
  struct Case {
    std::function<void()> check;
    int code;
    std::vector<std::string> vars;
  };
  const std::string pad = std::string(256 - 5, ' ');
  const Case cases[] = {
      {[] { checkread(IOSTAT_EOF, "f.geo"); }, 28, {"f.geo"}},
      {[] { checkread(IOSTAT_EOR, "f.geo"); }, 27, {"f.geo"}},
      {[] { checkread(5010, "f.geo"); }, 29, {"f.geo" + pad, "5010"}},
      {[] { checkexists("/no/such/file"); }, 30, {"/no/such/file", "/no/such/file"}},
      {[] { checkopen(13, "x.stl"); }, 31, {"x.stl" + pad, "13", "x.stl" + pad}},
      {[] { checkalloc(1, "push, tmp, 1"); }, 32, {"push, tmp, 1"}},
      {[] { checkarg(-1, "v"); }, 33, {"v"}},
      {[] { checkarg(7, "v"); }, 34, {"v"}},
      {[] { checkenv(1, "HOME", ""); }, 36, {"HOME"}},
      {[] { fatalsilent(); }, 0, {}}};
  for (const Case &c : cases) {
    try {
      c.check();
      ADD_FAILURE() << "no Fatal for code " << c.code;
    } catch (const Fatal &f) {
      EXPECT_EQ(f.code, c.code);
      EXPECT_EQ(f.vars, c.vars) << c.code;
    }
  }
  EXPECT_NO_THROW(checkread(0, "f"));
  EXPECT_NO_THROW(checkopen(0, "f"));
  const auto cat = nlohmann::json::parse(wft::readfile(WARPFORGE_SOURCE_DIR "/data/simsolver.arb"));
  for (int code : {27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 46, 47, 97, 130, 131, 172, 174,
                   175, 176, 177, 178, 179, 180, 181, 182, 183, 184, 185, 186, 187, 188, 189, 190,
                   191, 192, 193, 194, 195, 196, 197, 198, 200, 319, 362, 370, 371})
    EXPECT_TRUE(cat["errors"].contains(std::to_string(code))) << code;
  for (int code : {1011, 1036, 1037})
    EXPECT_TRUE(cat["critical warnings"].contains(std::to_string(code))) << code;
}

TEST(TextHelpers, IntegersWallClockAndNames) {
  const std::pair<std::string, std::string> cases[] = {
      {inttext(1234567, true), "1,234,567"}, {inttext(1234, true), "1234"},
      {inttext(12345, true), "12,345"},      {inttext(-123456, true), "-123,456"},
      {inttext(-1234, true), "-1,234"},      {inttext(1234567), "1234567"},
      {walltext(3661.5), "01:01:01.50"},     {walltext(90000), "1 day 01:00:00.00"},
      {walltext(172800), "2 days 00:00:00.00"}, {walltext(0.29), "00:00:00.29"},
      {walltext(59.999), "00:00:59.99"},  // cut, not rounded
      {stripext("a.b/c"), "a"},              {stripext("a.b/c.stl"), "a.b/c"},
      {stripext("noext"), "noext"},          {rtrim("a b  "), "a b"},
      {jsonescape("a/b\\c\"d\n"), "a/b\\\\c\\\"d\\n"}};
  for (const auto &[got, want] : cases) EXPECT_EQ(got, want);
  EXPECT_EQ(lastdot("a.b/c"), 2u);
  EXPECT_EQ(lastdot("abc"), 0u);
  EXPECT_EQ(text256(std::string(300, 'x')).size(), 256u);
  EXPECT_FALSE(jsonescape(std::string("bad\xff\xfe", 5)).empty());  // invalid UTF-8 never throws
}

// Growth by 1.2 in single precision: 10 times 1.2f does not round up to 13.
TEST(Lists, GrowthInSinglePrecision) {
  EXPECT_EQ((std::vector{growcapacity(10), growcapacity(12), growcapacity(15), growcapacity(18),
                         growcapacity(22)}),
            (std::vector{12, 15, 18, 22, 27}));
  EXPECT_LE(growcapacity(2000000000), 0);  // beyond the 32-bit range
  List<int32_t> l;
  l.start();
  for (int i = 1; i <= 23; ++i) EXPECT_EQ(l.push(i), 0);
  EXPECT_EQ(l.v.size(), 27u);
  EXPECT_EQ(l.n, 23);
  for (int i = 0; i < 23; ++i) EXPECT_EQ(l[static_cast<size_t>(i)], i + 1);
}
