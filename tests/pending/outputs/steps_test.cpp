// SPDX-License-Identifier: GPL-2.0-or-later
// What the output steps share: nothing happens without their card, file names come from the
// last dot of the whole path, and a file that cannot be opened ends the run. Then the
// displacement text report (*WRTU).
#include <regex>

#include "outtest.h"

namespace {

TEST(OutputSteps, OffWritesAndPrintsNothing) {
  wfo::InTempDir dir("out_off");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.o3dmflag = false;
  rs.outstlpath = "part_warp.stl";
  rs.wrtupath = "part_warp.stl_wrtu.txt";
  for (auto step : {wf::writetextreport, wf::writevtkstep, wf::write3mfstep, wf::convert3mfstep})
    EXPECT_EQ(wfo::captured([&] { step(rs); }), "");
  EXPECT_TRUE(fs::is_empty(fs::current_path()));
}

// A file that cannot be opened ends the run with message 31 (the coloured package names its
// model member whichever member failed); outstlpath is kept either way.
TEST(OutputSteps, NamesTakeTheLastDotOfTheWholePathAndFailedOpensEndTheRun) {
  const struct { void (*step)(wf::RunState &); const char *outstlpath, *made, *failed = nullptr; } cases[] = {
      {wf::writevtkstep, "nodot", "vtk"},
      {wf::writevtkstep, "a.b/c", "a.vtk"},
      {wf::write3mfstep, "nodot", "_color/3D/3dmodel.model"},
      {wf::write3mfstep, ".stl", "_color.3mf"},
      {wf::write3mfstep, "x.d/part", "x_color.3mf"},
      {wf::writetextreport, "", nullptr, "nofolder/report.txt"},
      {wf::writevtkstep, "missing/part.stl", nullptr, "missing/part.vtk"},
      {wf::write3mfstep, "q.stl", nullptr, "q_color/3D/3dmodel.model"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.outstlpath) + " -> " + (c.made ? c.made : c.failed));
    wfo::InTempDir dir("out_names");
    wf::RunState rs;
    wfo::Signals sig(rs);
    rs.messagecatalogue = {{"errors", {{"31", "cannot open %1 (status %2)"}}}};
    rs.catalogueok = rs.wrtuflag = rs.ovtkflag = true;
    wfo::tetra(rs);
    rs.wrtupath = "nofolder/report.txt";
    rs.outstlpath = c.outstlpath;
    for (const char *folder : {"a.b", "x.d", "q_color"}) fs::create_directories(folder);
    wft::writefile("q_color/_rels", "a file where a folder belongs");
    if (c.made) {
      wfo::captured([&] { c.step(rs); });
      EXPECT_TRUE(fs::exists(c.made));
    } else {
      std::string out = wfo::captured([&] { EXPECT_THROW(c.step(rs), wf::RunAborted); }), s = sig.text();
      EXPECT_FALSE(std::regex_search(out, std::regex("Finished writing (file|VTK file|3MF file)"))) << out;
      EXPECT_TRUE(wft::contains(s, "\"code\": 31, \"variables\": [\"" + std::string(c.failed) + "\"")) << s;
      EXPECT_FALSE(wft::contains(s, ".rels")) << s;
    }
    EXPECT_EQ(rs.outstlpath, c.outstlpath);
  }
}

TEST(TextReport, OneLineOf84CharactersPerVertex) {
  wfo::InTempDir dir("wrtu_lines");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  rs.wrtuflag = true;
  rs.wrtupath = "job_1_warp.stl_wrtu.txt";
  EXPECT_EQ(wfo::captured([&] { wf::writetextreport(rs); }), " Finished writing file job_1_warp.stl_wrtu.txt\n");
  EXPECT_EQ(sig.text(), "") << "the text report sends no signal event";
  EXPECT_EQ(wft::readfile(rs.wrtupath),
            "  0.000000E+00  0.000000E+00  0.000000E+00  0.000000E+00  0.000000E+00  0.000000E+00\n"
            "  1.000000E+01  0.000000E+00  0.000000E+00  1.000000E+00  0.000000E+00  0.000000E+00\n"
            "  0.000000E+00  1.000000E+01  0.000000E+00  0.000000E+00  2.000000E+00  0.000000E+00\n"
            "  0.000000E+00  0.000000E+00  1.000000E+01  0.000000E+00  0.000000E+00  4.000000E+00\n");

  // 60000 vertices make about 5 MB, more than one block of the writer (line 49344 crosses the
  // end of the first); the earlier, longer file is replaced; unmoved vertices have zeros in
  // their last three fields.
  rs.nvrt = 60000;
  rs.prewarpvertices.clear();
  for (int v = 0; v < rs.nvrt; ++v) rs.prewarpvertices.insert(rs.prewarpvertices.end(), {0.125 * v, 1.0, -2.0});
  rs.stlvrt = rs.prewarpvertices;
  rs.stlvrt[3 * 59999 + 1] -= 0.125;
  wft::writefile(rs.wrtupath, std::string(7000000, 'x'));
  wfo::captured([&] { wf::writetextreport(rs); });
  std::string text = wft::readfile(rs.wrtupath);
  ASSERT_EQ(text.size(), 60000u * 85u);
  auto lines = wft::splitlines(text);
  EXPECT_EQ(lines[49344], "  6.168000E+03  1.000000E+00 -2.000000E+00  0.000000E+00  0.000000E+00  0.000000E+00");
  EXPECT_EQ(lines.back(), "  7.499875E+03  1.000000E+00 -2.000000E+00  0.000000E+00 -1.250000E-01  0.000000E+00");
}

}  // namespace
