// SPDX-License-Identifier: GPL-2.0-or-later
// The legacy VTK writer (*OVTK): byte layout, names, the text and non-indexed forms, and a
// read-back with VTK's own legacy reader.
#include <cmath>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "control/messages.h"
#include "outputs/vtkwriter.h"
#include "outtest.h"

namespace fs = std::filesystem;

namespace {

void putbe(std::string &s, uint32_t v) {
  s += static_cast<char>(v >> 24);
  s += static_cast<char>((v >> 16) & 255);
  s += static_cast<char>((v >> 8) & 255);
  s += static_cast<char>(v & 255);
}
void putbe(std::string &s, float f) {
  uint32_t v;
  std::memcpy(&v, &f, 4);
  putbe(s, v);
}

// The expected file, built piece by piece from the layout of the format.
std::string expectedbinary(const wf::RunState &rs) {
  std::string s =
      "# vtk DataFile Version 4.1\nCorvanta Tessero Thermo Mechanics vtk output\nBINARY\n"
      "DATASET UNSTRUCTURED_GRID\nPOINTS " + std::to_string(rs.nvrt) + " float\n";
  for (int k = 0; k < 3 * rs.nvrt; ++k) putbe(s, static_cast<float>(rs.stlvrt[k]));
  s += "CELLS " + std::to_string(rs.ntri) + " " + std::to_string(4 * rs.ntri) + "\n";
  for (int t = 0; t < rs.ntri; ++t) {
    putbe(s, uint32_t{3});
    for (int k = 0; k < 3; ++k) putbe(s, static_cast<uint32_t>(rs.stltri[3 * t + k] - 1));
  }
  s += "CELL_TYPES " + std::to_string(rs.ntri) + "\n";
  for (int t = 0; t < rs.ntri; ++t) putbe(s, uint32_t{5});
  s += "POINT_DATA " + std::to_string(rs.nvrt) + "\nVECTORS Displacement float\n";
  for (int k = 0; k < 3 * rs.nvrt; ++k)
    putbe(s, static_cast<float>(rs.stlvrt[k] - rs.prewarpvertices[k]));
  return s;
}

TEST(VtkWriter, OffWritesNothing) {
  wfo::InTempDir dir("vtk_off");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.outstlpath = "part_warp.stl";
  testing::internal::CaptureStdout();
  wf::writevtkstep(rs);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(fs::exists("part_warp.vtk"));
}

TEST(VtkWriter, BinaryFileIsByteExactAndPathIsRestored) {
  wfo::InTempDir dir("vtk_exact");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  rs.stlvrt[1] = -0.3;  // a value that single precision rounds
  rs.ovtkflag = true;
  fs::create_directories("out.d");
  rs.outstlpath = "out.d/part_warp.stl";
  wft::writefile("out.d/part_warp.vtk", std::string(5000, 'z'));  // replaced, not appended
  testing::internal::CaptureStdout();
  wf::writevtkstep(rs);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(rs.outstlpath, "out.d/part_warp.stl");
  EXPECT_EQ(wft::readfile("out.d/part_warp.vtk"), expectedbinary(rs));
  EXPECT_EQ(out, " Finished writing VTK file out.d/part_warp.vtk\n");
  EXPECT_EQ(sig.text(), wfo::finishedevent("out.d/part_warp.vtk") + "\n");
}

TEST(VtkWriter, NamesTakeTheLastDotOfTheWholePath) {
  wfo::InTempDir dir("vtk_names");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.ovtkflag = true;
  testing::internal::CaptureStdout();
  rs.outstlpath = "nodot";
  wf::writevtkstep(rs);
  EXPECT_TRUE(fs::exists("vtk"));
  EXPECT_EQ(rs.outstlpath, "nodot");
  fs::create_directories("a.b");
  rs.outstlpath = "a.b/c";
  wf::writevtkstep(rs);
  EXPECT_TRUE(fs::exists("a.vtk"));
  EXPECT_EQ(rs.outstlpath, "a.b/c");
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(wft::readfile("a.vtk"), expectedbinary(rs));
}

TEST(VtkWriter, SurfaceWithoutTriangles) {
  wfo::InTempDir dir("vtk_notri");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.ntri = 0;
  rs.stltri.clear();
  rs.ovtkflag = true;
  rs.outstlpath = "p.stl";
  testing::internal::CaptureStdout();
  wf::writevtkstep(rs);
  testing::internal::GetCapturedStdout();
  std::string s = wft::readfile("p.vtk");
  EXPECT_EQ(s, expectedbinary(rs));
  EXPECT_TRUE(wft::contains(s, "CELLS 0 0\nCELL_TYPES 0\nPOINT_DATA 4\n"));
}

TEST(VtkWriter, TextAndNonIndexedForms) {
  wfo::InTempDir dir("vtk_forms");
  wf::RunState rs;
  wfo::tetra(rs);
  std::vector<float> disp(12);
  for (int k = 0; k < 12; ++k) disp[k] = static_cast<float>(rs.stlvrt[k] - rs.prewarpvertices[k]);
  testing::internal::CaptureStdout();
  rs.outstlpath = "text.vtk";
  wf::writevtk(rs, 'a', true, disp);
  rs.outstlpath = "flat.vtk";
  wf::writevtk(rs, 'b', false, disp);
  testing::internal::GetCapturedStdout();

  auto lines = wft::splitlines(wft::readfile("text.vtk"));
  ASSERT_EQ(lines.size(), 5u + 4 + 1 + 4 + 1 + 4 + 2 + 4);
  EXPECT_EQ(lines[2], "ASCII");
  EXPECT_EQ(lines[4], "POINTS 4 float");
  EXPECT_EQ(lines[6], "    1.100000E+01    0.000000E+00    0.000000E+00");
  EXPECT_EQ(lines[9], "CELLS 4 16");
  EXPECT_EQ(lines[10], "3 0 2 1 ");
  EXPECT_EQ(lines[13], "3 1 2 3 ");
  EXPECT_EQ(lines[14], "CELL_TYPES 4");
  for (int t = 0; t < 4; ++t) EXPECT_EQ(lines[15 + t], "5");
  EXPECT_EQ(lines[19], "POINT_DATA 4");
  EXPECT_EQ(lines[20], "VECTORS Displacement float");
  EXPECT_EQ(lines[24], "    0.000000E+00    0.000000E+00    4.000000E+00");

  // Non-indexed: the POINTS line counts three points per triangle, the cells number them in
  // order, and the file ends after the types.
  std::string flat = wft::readfile("flat.vtk");
  std::string head = "# vtk DataFile Version 4.1\nCorvanta Tessero Thermo Mechanics vtk output\n"
                     "BINARY\nDATASET UNSTRUCTURED_GRID\nPOINTS 12 float\n";
  ASSERT_EQ(flat.compare(0, head.size(), head), 0);
  std::string rest = flat.substr(head.size() + 12 * 4);
  std::string cells = "CELLS 4 16\n";
  ASSERT_EQ(rest.compare(0, cells.size(), cells), 0);
  std::string expectcells;
  for (uint32_t t = 0; t < 4; ++t)
    for (uint32_t v : {3u, 3 * t, 3 * t + 1, 3 * t + 2}) putbe(expectcells, v);
  EXPECT_EQ(rest.substr(cells.size(), 64), expectcells);
  std::string tail = "CELL_TYPES 4\n";
  for (int t = 0; t < 4; ++t) putbe(tail, uint32_t{5});
  EXPECT_EQ(rest.substr(cells.size() + 64), tail);
}

TEST(VtkWriter, FailedOpenEndsTheRun) {
  wfo::InTempDir dir("vtk_fail");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  rs.ovtkflag = true;
  rs.outstlpath = "missing/part.stl";
  testing::internal::CaptureStdout();
  EXPECT_THROW(wf::writevtkstep(rs), wf::RunAborted);
  testing::internal::GetCapturedStdout();
  EXPECT_TRUE(wft::contains(sig.text(), "\"code\": 31"));
}

// VTK's legacy reader on our file: counts, connectivity, points and the displacement vectors.
TEST(VtkWriter, ReadBackWithVtk) {
  int status = 0;
  wfo::shell("/usr/bin/python3 -c 'import vtk'", &status);
  if (status != 0) GTEST_SKIP() << "/usr/bin/python3 cannot import vtk";
  wfo::InTempDir dir("vtk_read");
  wf::RunState rs;
  wfo::grid(rs, 7, 5);
  rs.ovtkflag = true;
  rs.outstlpath = "grid_warp.stl";
  testing::internal::CaptureStdout();
  wf::writevtkstep(rs);
  testing::internal::GetCapturedStdout();
  wft::writefile("read.py",
                 "import sys, vtk\n"
                 "r = vtk.vtkUnstructuredGridReader()\n"
                 "r.SetFileName(sys.argv[1]); r.ReadAllVectorsOn(); r.Update()\n"
                 "g = r.GetOutput()\n"
                 "print('header', r.GetHeader())\n"
                 "print('counts', g.GetNumberOfPoints(), g.GetNumberOfCells())\n"
                 "for i in range(g.GetNumberOfCells()):\n"
                 "  c = g.GetCell(i)\n"
                 "  print('cell', c.GetCellType(), *[c.GetPointId(k) for k in range(c.GetNumberOfPoints())])\n"
                 "for i in range(g.GetNumberOfPoints()):\n"
                 "  print('point', *g.GetPoints().GetPoint(i))\n"
                 "d = g.GetPointData().GetVectors('Displacement')\n"
                 "for i in range(d.GetNumberOfTuples()):\n"
                 "  print('disp', *d.GetTuple3(i))\n");
  std::string out = wfo::shell("/usr/bin/python3 read.py grid_warp.vtk", &status);
  ASSERT_EQ(status, 0) << out;
  std::istringstream in(out);
  std::string word;
  int ncell = 0, npoint = 0, ndisp = 0;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream ls(line);
    ls >> word;
    if (word == "header") {
      EXPECT_EQ(line, "header Corvanta Tessero Thermo Mechanics vtk output");
    } else if (word == "counts") {
      int p, c;
      ls >> p >> c;
      EXPECT_EQ(p, rs.nvrt);
      EXPECT_EQ(c, rs.ntri);
    } else if (word == "cell") {
      int type, a, b, c;
      ls >> type >> a >> b >> c;
      EXPECT_EQ(type, 5);
      EXPECT_EQ(a, rs.stltri[3 * ncell] - 1);
      EXPECT_EQ(b, rs.stltri[3 * ncell + 1] - 1);
      EXPECT_EQ(c, rs.stltri[3 * ncell + 2] - 1);
      ++ncell;
    } else if (word == "point") {
      for (int k = 0; k < 3; ++k) {
        double x;
        ls >> x;
        EXPECT_FLOAT_EQ(x, static_cast<float>(rs.stlvrt[3 * npoint + k]));
      }
      ++npoint;
    } else if (word == "disp") {
      for (int k = 0; k < 3; ++k) {
        double x;
        ls >> x;
        EXPECT_FLOAT_EQ(x, static_cast<float>(rs.stlvrt[3 * ndisp + k] - rs.prewarpvertices[3 * ndisp + k]));
      }
      ++ndisp;
    }
  }
  EXPECT_EQ(ncell, rs.ntri);
  EXPECT_EQ(npoint, rs.nvrt);
  EXPECT_EQ(ndisp, rs.nvrt);
}

}  // namespace
