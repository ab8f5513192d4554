// SPDX-License-Identifier: GPL-2.0-or-later
// The legacy VTK writer (*OVTK): byte layout, and a read-back with VTK's own legacy reader.
#include "outtest.h"

namespace {

// 32-bit words, big-endian.
std::string words(std::initializer_list<uint32_t> values) {
  std::string s;
  for (uint32_t v : values)
    for (int shift : {24, 16, 8, 0}) s += static_cast<char>((v >> shift) & 255);
  return s;
}

// The tetrahedron with y = -0.3 at its first corner (single precision rounds it up to
// BE99999A), then the same without triangles: each replaces a longer file, keeps outstlpath,
// prints and signals the name. The file with triangles is read back by VTK's legacy reader.
TEST(VtkWriter, BinaryFileIsByteExactAndReadByVtk) {
  wfo::InTempDir dir("vtk_exact");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  rs.stlvrt[1] = -0.3;
  rs.ovtkflag = true;
  fs::create_directories("out.d");
  rs.outstlpath = "out.d/part_warp.stl";
  const std::string head = "# vtk DataFile Version 4.1\nCorvanta Tessero Thermo Mechanics vtk output\nBINARY\n"
                           "DATASET UNSTRUCTURED_GRID\nPOINTS 4 float\n" +
                           words({0, 0xBE99999A, 0, 0x41300000, 0, 0, 0, 0x41400000, 0, 0, 0, 0x41600000});
  const std::string tail = "POINT_DATA 4\nVECTORS Displacement float\n" +
                           words({0, 0xBE99999A, 0, 0x3F800000, 0, 0, 0, 0x40000000, 0, 0, 0, 0x40800000});
  for (auto [ntri, cells] : {std::pair{0, std::string("CELLS 0 0\nCELL_TYPES 0\n")},
                             {4, "CELLS 4 16\n" + words({3, 0, 2, 1, 3, 0, 1, 3, 3, 0, 3, 2, 3, 1, 2, 3}) +
                                     "CELL_TYPES 4\n" + words({5, 5, 5, 5})}}) {
    rs.ntri = ntri;
    wft::writefile("out.d/part_warp.vtk", std::string(5000, 'z'));
    EXPECT_EQ(wfo::captured([&] { wf::writevtkstep(rs); }), " Finished writing VTK file out.d/part_warp.vtk\n");
    EXPECT_EQ(rs.outstlpath, "out.d/part_warp.stl");
    EXPECT_EQ(wft::readfile("out.d/part_warp.vtk"), head + cells + tail) << ntri;
  }
  EXPECT_EQ(sig.text(), wfo::finishedevent("out.d/part_warp.vtk") + wfo::finishedevent("out.d/part_warp.vtk"));

  int status = 0;
  wfo::shell("/usr/bin/python3 -c 'import vtk'", &status);
  if (status != 0) GTEST_SKIP() << "/usr/bin/python3 cannot import vtk";
  wft::writefile("read.py",
                 "import sys, vtk\n"
                 "r = vtk.vtkUnstructuredGridReader(); r.SetFileName(sys.argv[1]); r.ReadAllVectorsOn(); r.Update()\n"
                 "g = r.GetOutput(); d = g.GetPointData().GetVectors('Displacement')\n"
                 "print(r.GetHeader()); print(g.GetNumberOfPoints(), g.GetNumberOfCells())\n"
                 "for c in map(g.GetCell, range(g.GetNumberOfCells())):\n"
                 "  print(c.GetCellType(), *map(c.GetPointId, range(c.GetNumberOfPoints())))\n"
                 "for i in range(g.GetNumberOfPoints()):\n"
                 "  print(*['%.9g' % x for x in g.GetPoints().GetPoint(i) + d.GetTuple3(i)])\n");
  EXPECT_EQ(wfo::shell("/usr/bin/python3 read.py out.d/part_warp.vtk", &status),
            "Corvanta Tessero Thermo Mechanics vtk output\n4 4\n5 0 2 1\n5 0 1 3\n5 0 3 2\n5 1 2 3\n"
            "0 -0.300000012 0 0 -0.300000012 0\n11 0 0 1 0 0\n0 12 0 0 2 0\n0 0 14 0 0 4\n");
  EXPECT_EQ(status, 0);
}

}  // namespace
