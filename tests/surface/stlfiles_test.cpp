// SPDX-License-Identifier: GPL-3.0-or-later
// STL files. Reader: text, the repaired sibling, and short, truncated or corrupt files, as the
// reader's record and stages give them (its console lines, the byte orders tried and their memory
// are tests of the steps, tests/steps). Writer: the text forms read back, and the failures.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <tuple>

#include "reporting.h"
#include "shapes.h"
#include "surface/normals.h"
#include "surface/readstl.h"
#include "surface/writestl.h"
#include "testutil.h"

using namespace wft;

namespace {

struct Read {
  wf::StlRead read;                  // the record, when the read returned
  std::vector<wf::StlStage> stages;  // the stages told
  wf::StlRead atform;                // the record as the form was told (also before a fatal end)
  std::string fatal;
};

// One read; the caller carries the byte order from read to read as the run does.
Read readof(const std::string &path, int byteorder) {
  Read r;
  r.fatal = fatalof([&] {
    r.read = wf::readstl(path, byteorder, [&](wf::StlStage stage, const wf::StlRead &sofar) {
      r.stages.push_back(stage);
      if (stage == wf::StlStage::form) r.atform = sofar;
    });
  });
  return r;
}

// The soup read, to the bit or within rel of each coordinate (the shapes read from binary files
// here are exact in single precision).
void expectsoup(const wf::RawSurface &raw, const Soup &s, double rel = 0) {
  ASSERT_EQ(std::tuple(raw.ntri, raw.nvrt, raw.vrt.size()), std::tuple(s.size() / 9, s.size() / 3, s.size()));
  for (size_t i = 0; i < s.size(); ++i) ASSERT_NEAR(raw.vrt[i], s[i], rel * std::fabs(s[i])) << i;
}

// An indexed mesh of the soup: corners stored in reverse order, tri pointing at them.
wf::SurfaceMesh meshof(const Soup &s) {
  wf::SurfaceMesh m;
  m.nvrt = static_cast<int32_t>(s.size() / 3);
  m.ntri = m.nvrt / 3;
  m.vrt.resize(s.size());
  m.tri.resize(s.size() / 3);
  for (int32_t j = 0; j < m.nvrt; ++j) {
    m.tri[static_cast<size_t>(j)] = m.nvrt - j;
    std::copy(s.begin() + 3 * j, s.begin() + 3 * j + 3, m.vrt.begin() + 3 * (m.nvrt - 1 - j));
  }
  return m;
}

}  // namespace

TEST(ReadStl, AsciiFiles) {
  const std::string path = tempdir("rdascii") + "/part.stl";
  Soup s = tetrahedron(0.1);  // 0.1 is not a float: the text must go to double directly
  for (double &x : s) x -= 3.0;
  // Two solids in one file add up.
  writefile(path, asciistl(Soup(s.begin(), s.begin() + 18), "a") + asciistl(Soup(s.begin() + 18, s.end()), "b"));
  const Read r = readof(path, 0);
  ASSERT_EQ(r.fatal, "none");
  expectsoup(r.read.raw, s);
  EXPECT_EQ(std::tuple(r.read.ascii, r.read.repaired, r.read.path, r.read.orders.size()),
            std::tuple(true, false, path, 0u));
  EXPECT_EQ(r.stages, std::vector<wf::StlStage>({wf::StlStage::source, wf::StlStage::form}));
  const wf::BBox &box = r.read.raw.box;
  EXPECT_EQ(std::vector<double>(box.min, box.min + 6), std::vector<double>({-3, -3, -3, 0.1 - 3, 0.1 - 3, 0.1 - 3}));
  EXPECT_DOUBLE_EQ(box.centre[0], -3.0 + 0.05);
}

TEST(ReadStl, ShortTruncatedAndCorruptFiles) {
  // Text whose vertex lines are in capitals or indented by a tab, with four vertex lines for
  // one facet, or with a number that does not read, is no text; binary files of no triangles,
  // too short, truncated, or with an absurd or negative count. Every byte order fails.
  const std::string dir = tempdir("rdbad");
  const Soup s = tetrahedron(5.0);
  std::string caps = asciistl(s), tabs = caps, broken = caps;
  for (size_t p = 0; (p = caps.find("vertex", p)) != std::string::npos;) caps.replace(p, 6, "VERTEX");
  for (size_t p = 0; (p = tabs.find("      vertex", p)) != std::string::npos;) tabs.replace(p, 6, "\t");
  broken.replace(broken.find("vertex 5"), 8, "vertex x");
  const std::string fourvertices =
      "solid x\n facet normal 0 0 1\n  outer loop\n   vertex 0 0 0\n"
      "   vertex 1 0 0\n   vertex 0 1 0\n   vertex 1 1 0\n  endloop\n endfacet\n";
  const std::string full = binarystl(s), cut = full.substr(0, full.size() - 30), header = full.substr(0, 83);
  const std::string none = binarystl({}), junk(50, 'x'), huge = binarystl(s, false, "h", 0x7FFFFFFF),
                    negative = binarystl(s, false, "h", 0xFFFFFFF0u);
  const std::string cases[] = {caps, tabs, broken, fourvertices, none, junk, cut, header, huge, negative};
  for (size_t i = 0; i < std::size(cases); ++i) {
    writefile(dir + "/bad.stl", cases[i]);
    const Read r = readof(dir + "/bad.stl", 0);
    EXPECT_EQ(r.fatal, "130") << i;
    EXPECT_EQ(r.atform.byteorder, 4) << i;                            // the search ran to its end
    EXPECT_EQ(r.atform.orders, std::vector<int>({1, 2, 3, 4})) << i;  // no text, no order reads it
    ASSERT_FALSE(r.stages.empty()) << i;
    EXPECT_EQ(r.stages.back(), wf::StlStage::form) << i;  // told all the same
    EXPECT_FALSE(r.atform.ascii) << i;
  }
  // A count whose triple wraps to a positive number while the count itself is negative:
  // vertices but no triangles, message 131. A missing file is message 30.
  writefile(dir + "/wrap.stl", binarystl(s, false, "h", 0xAAAAAAABu));
  const Read w = readof(dir + "/wrap.stl", 0);
  EXPECT_EQ(w.fatal, "131");
  EXPECT_EQ(w.stages.back(), wf::StlStage::form);
  EXPECT_EQ(readof(dir + "/missing.stl", 0).fatal.substr(0, 2), "30");
}

TEST(ReadStl, RepairedSibling) {
  const wft::InTempDir here("rdrepair");
  const Soup original = tetrahedron(1.0), repaired = cube(2.0);
  writefile("part.v2.stl", binarystl(original));
  writefile("part.v2_ls_repair.stl", binarystl(repaired));
  Read r = readof("part.v2.stl", 0);
  EXPECT_EQ(r.read.path, "part.v2_ls_repair.stl");
  EXPECT_TRUE(r.read.repaired);
  expectsoup(r.read.raw, repaired);
  // A name without a dot, or with a dot in first place only, looks for "_ls_repair.stl" in
  // the current folder.
  writefile("nodot", binarystl(original));
  writefile(".hidden", binarystl(original));
  r = readof("nodot", 0);  // no sibling yet
  EXPECT_EQ(r.read.path, "nodot");
  EXPECT_FALSE(r.read.repaired);
  expectsoup(r.read.raw, original);
  writefile("_ls_repair.stl", binarystl(repaired));
  for (const char *name : {"nodot", ".hidden"}) {
    r = readof(name, 0);
    EXPECT_EQ(r.read.path, "_ls_repair.stl") << name;
    EXPECT_TRUE(r.read.repaired) << name;
    expectsoup(r.read.raw, repaired);
  }
}

TEST(WriteStl, AsciiFormsReadBackAndFailures) {
  const std::string dir = tempdir("wrascii");
  std::string path = dir + "/out.stl";
  Soup s = tetrahedron(2.5);
  s.insert(s.end(), {1, 1, 1, 1, 1, 1, 3, 3, 3});  // a degenerate triangle: zero normal
  const wf::SurfaceMesh m = meshof(s);
  std::vector<double> n;
  wf::facetnormals(m.vrt.data(), static_cast<size_t>(m.nvrt), m.tri.data(), m.ntri, n);
  writefile(path, std::string(100000, 'z'));  // an earlier, longer file
  for (char form : {'a', 'd'}) {              // their layout is the regression set's (forma_wrtu, formd_o3mf_ioff)
    wf::writestl(m, &n, path, wf::StlForm(form));
    const std::string text = readfile(path);
    EXPECT_TRUE(text.ends_with("endsolid vcg\n")) << form;  // the earlier file cut
    // The raw cross product, twice the area long; zero for the degenerate triangle.
    EXPECT_TRUE(contains(text, "  facet normal   0.000000E+00  0.000000E+00 -6.250000E+00\n"));
    EXPECT_TRUE(contains(text, "  facet normal   0.000000E+00  0.000000E+00  0.000000E+00\n"));
    const Read r = readof(path, 0);  // our reader takes it back
    EXPECT_TRUE(r.read.ascii);
    expectsoup(r.read.raw, s, 1e-6);
  }
  // A form that is none of a, b, c, d is message 319 and writes nothing; a folder that does
  // not exist is message 31 for every form.
  path = dir + "/none.stl";
  EXPECT_EQ(fatalof([&] { wf::writestl(m, &n, path, wf::StlForm('x')); }).substr(0, 3), "319");
  EXPECT_FALSE(std::filesystem::exists(path));
  path = dir + "/no/such/folder/out.stl";
  for (char form : {'a', 'b', 'c', 'd'})
    EXPECT_EQ(fatalof([&] { wf::writestl(m, &n, path, wf::StlForm(form)); }).substr(0, 3), "31 ") << form;
}
