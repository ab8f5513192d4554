// SPDX-License-Identifier: GPL-2.0-or-later
// The displacement text report (*WRTU).
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "control/messages.h"
#include "outputs/textreport.h"
#include "outtest.h"

namespace fs = std::filesystem;

namespace {

// The six numbers of a report line, read field by field (14 columns each).
std::vector<double> fields(const std::string &line) {
  std::vector<double> v;
  for (int k = 0; k < 6; ++k) v.push_back(std::strtod(line.substr(14 * k, 14).c_str(), nullptr));
  return v;
}

TEST(TextReport, OffWritesNothing) {
  wfo::InTempDir dir("wrtu_off");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.wrtupath = "job_1_warp.stl_wrtu.txt";
  testing::internal::CaptureStdout();
  wf::writetextreport(rs);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(fs::exists(rs.wrtupath));
}

TEST(TextReport, OneLinePerVertexWithPositionAndDisplacement) {
  wfo::InTempDir dir("wrtu_lines");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  rs.wrtuflag = true;
  rs.wrtupath = "job_1_warp.stl_wrtu.txt";
  testing::internal::CaptureStdout();
  wf::writetextreport(rs);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, " Finished writing file job_1_warp.stl_wrtu.txt\n");
  EXPECT_EQ(sig.text(), "") << "the text report sends no signal event";

  std::string text = wft::readfile(rs.wrtupath);
  auto lines = wft::splitlines(text);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(text.back(), '\n');
  for (size_t i = 0; i < lines.size(); ++i) {
    ASSERT_EQ(lines[i].size(), 84u) << "line " << i;
    auto v = fields(lines[i]);
    for (int k = 0; k < 3; ++k) {
      double pre = rs.prewarpvertices[3 * i + k];
      double d = rs.stlvrt[3 * i + k] - pre;
      EXPECT_NEAR(v[k], pre, 1e-6 * (1 + std::fabs(pre)));
      EXPECT_NEAR(v[3 + k], d, 1e-6 * (1 + std::fabs(d)));
    }
  }
  // Vertex 2: (10,0,0) moved by (1,0,0), written in the scientific form of width 14.
  EXPECT_EQ(lines[1].substr(0, 14), "  1.000000E+01");
  EXPECT_EQ(lines[1].substr(42, 14), "  1.000000E+00");
  EXPECT_EQ(lines[1].substr(56, 14), "  0.000000E+00");
}

TEST(TextReport, ZeroDisplacementLargeSurfaceAndReplacedFile) {
  wfo::InTempDir dir("wrtu_large");
  wf::RunState rs;
  // 60000 vertices make about 5 MB, more than one block of the writer.
  wfo::grid(rs, 300, 200);
  rs.stlvrt = rs.prewarpvertices;
  rs.stlvrt[3 * 59999 + 1] -= 0.125;  // the last vertex moves, all others stay
  rs.wrtuflag = true;
  rs.wrtupath = "report.txt";
  wft::writefile("report.txt", std::string(7000000, 'x'));  // an earlier, longer file
  testing::internal::CaptureStdout();
  wf::writetextreport(rs);
  testing::internal::GetCapturedStdout();
  std::string text = wft::readfile("report.txt");
  ASSERT_EQ(text.size(), 60000u * 85u);
  auto lines = wft::splitlines(text);
  ASSERT_EQ(lines.size(), 60000u);
  for (size_t i : {size_t(0), size_t(49344), size_t(59998)})
    EXPECT_EQ(lines[i].substr(42), "  0.000000E+00  0.000000E+00  0.000000E+00") << i;
  EXPECT_EQ(lines.back().substr(42), "  0.000000E+00 -1.250000E-01  0.000000E+00");
  auto v = fields(lines[49344]);
  EXPECT_DOUBLE_EQ(v[0], 0.5 * (49344 % 300));
  EXPECT_DOUBLE_EQ(v[1], 0.25 * (49344 / 300));
}

TEST(TextReport, FailedOpenEndsTheRunWithMessage31) {
  wfo::InTempDir dir("wrtu_fail");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  rs.wrtuflag = true;
  rs.wrtupath = "nofolder/report.txt";
  testing::internal::CaptureStdout();
  EXPECT_THROW(wf::writetextreport(rs), wf::RunAborted);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(wft::contains(sig.text(), "\"code\": 31")) << sig.text();
  EXPECT_FALSE(wft::contains(out, "Finished writing file"));
}

}  // namespace
