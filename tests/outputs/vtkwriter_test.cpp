// SPDX-License-Identifier: GPL-2.0-or-later
// The legacy VTK writer (*OVTK): byte layout, and a read-back with VTK's own legacy reader.
#include "outtest.h"

namespace {

const std::string head = "# vtk DataFile Version 4.1\nCorvanta Tessero Thermo Mechanics vtk output\n";

template <class T>
void putbe(std::string &s, T value) {
  uint32_t v;
  std::memcpy(&v, &value, 4);
  for (int shift : {24, 16, 8, 0}) s += static_cast<char>((v >> shift) & 255);
}

// The expected file, built piece by piece from the layout of the format.
std::string expectedbinary(const wf::RunState &rs) {
  std::string s = head + "BINARY\nDATASET UNSTRUCTURED_GRID\nPOINTS " + std::to_string(rs.nvrt) + " float\n";
  for (int k = 0; k < 3 * rs.nvrt; ++k) putbe(s, static_cast<float>(rs.stlvrt[k]));
  s += "CELLS " + std::to_string(rs.ntri) + " " + std::to_string(4 * rs.ntri) + "\n";
  for (int t = 0; t < rs.ntri; ++t)
    for (int k = 0; k < 4; ++k) putbe(s, k == 0 ? 3 : rs.stltri[3 * t + k - 1] - 1);
  s += "CELL_TYPES " + std::to_string(rs.ntri) + "\n";
  for (int t = 0; t < rs.ntri; ++t) putbe(s, 5);
  s += "POINT_DATA " + std::to_string(rs.nvrt) + "\nVECTORS Displacement float\n";
  for (int k = 0; k < 3 * rs.nvrt; ++k) putbe(s, static_cast<float>(rs.stlvrt[k] - rs.prewarpvertices[k]));
  return s;
}

// The tetrahedron (with a coordinate that single precision rounds), then the same without
// triangles: replaces a longer file, keeps outstlpath, prints and signals the name.
TEST(VtkWriter, BinaryFileIsByteExact) {
  wfo::InTempDir dir("vtk_exact");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  rs.stlvrt[1] = -0.3;
  rs.ovtkflag = true;
  fs::create_directories("out.d");
  rs.outstlpath = "out.d/part_warp.stl";
  for (int ntri : {4, 0}) {
    rs.ntri = ntri;
    wft::writefile("out.d/part_warp.vtk", std::string(5000, 'z'));
    EXPECT_EQ(wfo::captured([&] { wf::writevtkstep(rs); }), " Finished writing VTK file out.d/part_warp.vtk\n");
    EXPECT_EQ(rs.outstlpath, "out.d/part_warp.stl");
    EXPECT_EQ(wft::readfile("out.d/part_warp.vtk"), expectedbinary(rs)) << ntri;
  }
  EXPECT_EQ(sig.text(), wfo::finishedevent("out.d/part_warp.vtk") + wfo::finishedevent("out.d/part_warp.vtk"));

}

// VTK's legacy reader on our file: header, counts, cells, points and displacements.
TEST(VtkWriter, ReadBackWithVtk) {
  int status = 0;
  wfo::shell("/usr/bin/python3 -c 'import vtk'", &status);
  if (status != 0) GTEST_SKIP() << "/usr/bin/python3 cannot import vtk";
  wfo::InTempDir dir("vtk_read");
  wf::RunState rs;
  wfo::grid(rs, 7, 5);
  rs.ovtkflag = true;
  rs.outstlpath = "grid_warp.stl";
  wfo::captured([&] { wf::writevtkstep(rs); });
  wft::writefile("read.py",
                 "import sys, vtk\n"
                 "r = vtk.vtkUnstructuredGridReader(); r.SetFileName(sys.argv[1]); r.ReadAllVectorsOn(); r.Update()\n"
                 "g = r.GetOutput(); d = g.GetPointData().GetVectors('Displacement')\n"
                 "print(r.GetHeader()); print(g.GetNumberOfPoints(), g.GetNumberOfCells())\n"
                 "for c in map(g.GetCell, range(g.GetNumberOfCells())):\n"
                 "  print(c.GetCellType(), *map(c.GetPointId, range(c.GetNumberOfPoints())))\n"
                 "for i in range(g.GetNumberOfPoints()):\n"
                 "  print(*['%.9g' % x for x in g.GetPoints().GetPoint(i) + d.GetTuple3(i)])\n");
  std::string expect = head.substr(27) + std::to_string(rs.nvrt) + " " + std::to_string(rs.ntri) + "\n";
  for (int k = 0; k < 3 * rs.ntri; ++k) expect += (k % 3 ? " " : "5 ") + std::to_string(rs.stltri[k] - 1) + (k % 3 == 2 ? "\n" : "");
  char num[32];
  for (int v = 0; v < rs.nvrt; ++v)
    for (int k = 0; k < 6; ++k) {
      double x = k < 3 ? rs.stlvrt[3 * v + k] : rs.stlvrt[3 * v + k - 3] - rs.prewarpvertices[3 * v + k - 3];
      std::snprintf(num, sizeof num, k < 5 ? "%.9g " : "%.9g\n", static_cast<double>(static_cast<float>(x)));
      expect += num;
    }
  EXPECT_EQ(wfo::shell("/usr/bin/python3 read.py grid_warp.vtk", &status), expect);
  EXPECT_EQ(status, 0);
}

}  // namespace
