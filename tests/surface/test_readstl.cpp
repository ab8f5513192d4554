// SPDX-License-Identifier: GPL-2.0-or-later
// STL reader: text detection, the byte-order search and its memory, the repaired sibling,
// the console lines, and files that are short, truncated or corrupt.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "control/textio.h"
#include "surface/readstl.h"
#include "surfacefixtures.h"

using namespace wft;
using wf::RunState;

namespace {

std::string readcapture(RunState &rs, bool quiet = false, bool *aborted = nullptr) {
  return captured([&] { wf::readstl(rs, quiet); }, aborted);
}

void expectsoup(const RunState &rs, const Soup &s, bool singleprecision) {
  ASSERT_EQ(rs.ntri, static_cast<int32_t>(s.size() / 9));
  ASSERT_EQ(rs.nrawvrt, 3 * rs.ntri);
  ASSERT_EQ(rs.rawvrt.size(), s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    double want = singleprecision ? static_cast<double>(static_cast<float>(s[i])) : s[i];
    ASSERT_EQ(rs.rawvrt[i], want) << "coordinate " << i;
  }
}

std::vector<std::string> formatlines(const std::string &out) {
  std::vector<std::string> r;
  for (const auto &l : splitlines(out))
    if (contains(l, "Reading in ")) r.push_back(l);
  return r;
}

}  // namespace

TEST(ReadStl, AsciiFileWithConsoleLines) {
  std::string dir = tempdir("rdascii");
  Soup s = tetrahedron(0.1);  // 0.1 is not a float: the text must go to double directly
  for (double &x : s) x -= 3.0;
  std::string path = dir + "/part.stl";
  writefile(path, asciistl(s));
  RunState rs;
  rs.stlpath = path;
  std::string out = readcapture(rs);
  expectsoup(rs, s, false);
  EXPECT_EQ(rs.stlbyteorder, 0);  // text files leave the byte order alone
  EXPECT_TRUE(hasline(out, " Reading " + path));
  EXPECT_TRUE(hasline(out, " ASCII STL file"));
  EXPECT_FALSE(contains(out, "Binary STL file"));
  EXPECT_TRUE(hasline(out, " Bounding box:"));
  EXPECT_TRUE(hasline(out, wf::scitext(-3.0) + " <= x <= " + wf::scitext(0.1 - 3.0)));
  EXPECT_TRUE(hasline(out, wf::scitext(-3.0) + " <= z <= " + wf::scitext(0.1 - 3.0)));
  EXPECT_TRUE(hasline(out, " Number of vertices  = 12"));
  EXPECT_TRUE(hasline(out, " Number of triangles = 4"));
  EXPECT_TRUE(hasline(out, " Finished reading " + path));
  EXPECT_DOUBLE_EQ(rs.stlbbox.min[1], -3.0);
  EXPECT_DOUBLE_EQ(rs.stlbbox.max[2], 0.1 - 3.0);
  EXPECT_NEAR(rs.stlbbox.size[0], 0.1, 1e-12);
  EXPECT_DOUBLE_EQ(rs.stlbbox.centre[0], -3.0 + 0.05);
  EXPECT_EQ(rs.prerepairbbox.max[0], rs.stlbbox.max[0]);
  EXPECT_EQ(rs.prerepairbbox.min[2], rs.stlbbox.min[2]);

  // Quiet: nothing on the console.
  RunState rq;
  rq.stlpath = path;
  EXPECT_EQ(readcapture(rq, true), "");
  expectsoup(rq, s, false);
}

TEST(ReadStl, AsciiCountingRules) {
  std::string dir = tempdir("rdcount");
  Soup s = cube(2.0);
  // Several solids add up, and the words around the lines are not looked at.
  std::string two = asciistl(Soup(s.begin(), s.begin() + 54), "a") +
                    asciistl(Soup(s.begin() + 54, s.end()), "b");
  writefile(dir + "/two.stl", two);
  RunState rs;
  rs.stlpath = dir + "/two.stl";
  std::string out = readcapture(rs);
  EXPECT_TRUE(hasline(out, " ASCII STL file"));
  expectsoup(rs, s, false);

  // Grouped counts on the console for large numbers.
  Soup big = sphere(60, 100);  // 11,800 triangles
  writefile(dir + "/big.stl", asciistl(big));
  RunState rb;
  rb.stlpath = dir + "/big.stl";
  out = readcapture(rb);
  EXPECT_TRUE(hasline(out, " Number of vertices  = 35,400"));
  EXPECT_TRUE(hasline(out, " Number of triangles = 11,800"));

  // Vertex lines in capitals or indented by a tab do not count: the text fails, and the
  // binary attempts find no surface in so short a file.
  std::string text = asciistl(tetrahedron());
  std::string caps = text, tabs = text;
  for (size_t p = 0; (p = caps.find("vertex", p)) != std::string::npos;) caps.replace(p, 6, "VERTEX");
  for (size_t p = 0; (p = tabs.find("      vertex", p)) != std::string::npos;) tabs.replace(p, 6, "\t");
  for (const std::string &bad : {caps, tabs}) {
    writefile(dir + "/bad.stl", bad);
    RunState rc;
    rc.stlpath = dir + "/bad.stl";
    bool aborted = false;
    out = readcapture(rc, false, &aborted);
    EXPECT_TRUE(aborted);
    EXPECT_FALSE(contains(out, "ASCII STL file"));
    EXPECT_TRUE(hasline(out, " Binary STL file"));
    EXPECT_TRUE(hasline(out, "  Code 130"));
  }

  // 4 vertex lines for 1 facet do not count up.
  writefile(dir + "/four.stl",
            "solid x\n facet normal 0 0 1\n  outer loop\n   vertex 0 0 0\n   vertex 1 0 0\n"
            "   vertex 0 1 0\n   vertex 1 1 0\n  endloop\n endfacet\nendsolid x\n");
  RunState rf;
  rf.stlpath = dir + "/four.stl";
  bool aborted = false;
  out = readcapture(rf, false, &aborted);
  EXPECT_TRUE(aborted);
  EXPECT_EQ(formatlines(out).size(), 4u);
  EXPECT_TRUE(hasline(out, "  Code 130"));

  // A number that does not read in the second pass sends the file to the binary attempts.
  std::string broken = asciistl(tetrahedron());
  broken.replace(broken.find("vertex 1"), 8, "vertex x");
  writefile(dir + "/broken.stl", broken);
  RunState rx;
  rx.stlpath = dir + "/broken.stl";
  out = readcapture(rx, false, &aborted);
  EXPECT_TRUE(aborted);
  EXPECT_TRUE(hasline(out, " Binary STL file"));
}

TEST(ReadStl, ByteOrdersAndTheirMemory) {
  std::string dir = tempdir("rdorder");
  Soup s = cube(3.0, -1.5, 0.25, 7.0);
  writefile(dir + "/le.stl", binarystl(s, false));
  writefile(dir + "/be.stl", binarystl(s, true));
  // A header that begins with "solid" and trailing bytes change nothing.
  writefile(dir + "/solid.stl", binarystl(s, false, "solid pretending to be text", -1, "tail"));

  RunState rs;
  rs.stlpath = dir + "/le.stl";
  std::string out = readcapture(rs);
  expectsoup(rs, s, true);
  EXPECT_EQ(rs.stlbyteorder, 1);
  EXPECT_EQ(formatlines(out), std::vector<std::string>({" Reading in native format..."}));
  EXPECT_TRUE(hasline(out, " Binary STL file"));
  EXPECT_TRUE(hasline(out, " Number of triangles = 12"));
  // The next little-endian surface: a single format line.
  out = readcapture(rs);
  EXPECT_EQ(formatlines(out), std::vector<std::string>({" Reading in native format..."}));
  expectsoup(rs, s, true);

  // Big-endian: the count read in the wrong order exceeds the file, so orders 1 and 2 fail.
  rs.stlpath = dir + "/be.stl";
  out = readcapture(rs);
  expectsoup(rs, s, true);
  EXPECT_EQ(rs.stlbyteorder, 3);
  EXPECT_EQ(formatlines(out),
            std::vector<std::string>({" Reading in native format...", " Reading in native format...",
                                      " Reading in little_endian format...",
                                      " Reading in big_endian format..."}));
  // The next big-endian surface is read at the first try.
  out = readcapture(rs);
  EXPECT_EQ(formatlines(out), std::vector<std::string>({" Reading in big_endian format..."}));
  expectsoup(rs, s, true);
  // A little-endian one after it: the remembered order fails, then the search from the start.
  rs.stlpath = dir + "/solid.stl";
  out = readcapture(rs);
  EXPECT_EQ(formatlines(out), std::vector<std::string>({" Reading in big_endian format...",
                                                        " Reading in native format..."}));
  EXPECT_EQ(rs.stlbyteorder, 1);
  expectsoup(rs, s, true);
  EXPECT_FALSE(contains(out, "ASCII"));

  // readstlraw: the corners move to stlvrt, three columns per triangle.
  RunState rr;
  rr.stlpath = dir + "/be.stl";
  rr.stlvrt = {1, 2, 3};
  captured([&] { wf::readstlraw(rr, true); });
  EXPECT_EQ(rr.nvrt, 36);
  EXPECT_TRUE(rr.rawvrt.empty());
  ASSERT_EQ(rr.stlvrt.size(), s.size());
  for (size_t i = 0; i < s.size(); ++i) EXPECT_EQ(rr.stlvrt[i], static_cast<float>(s[i]));
  EXPECT_TRUE(rr.stltri.empty());
}

TEST(ReadStl, ShortTruncatedAndCorruptFiles) {
  std::string dir = tempdir("rdbad");
  Soup s = tetrahedron(5.0);
  struct Case {
    const char *name;
    std::string content;
  };
  std::string full = binarystl(s);
  std::vector<Case> cases = {
      {"count zero", binarystl({}, false, "empty")},
      {"shorter than 84", std::string(50, 'x')},
      {"empty file", ""},
      {"truncated", full.substr(0, full.size() - 30)},
      {"count beyond the file", binarystl(s, false, "h", 1000000)},
      {"absurd count", binarystl(s, false, "h", 0x7FFFFFFF)},
      {"negative count", binarystl(s, false, "h", 0xFFFFFFF0u)},
      {"header only", full.substr(0, 84)},
  };
  for (const auto &c : cases) {
    writefile(dir + "/bad.stl", c.content);
    RunState rs;
    rs.stlpath = dir + "/bad.stl";
    bool aborted = false;
    std::string out = readcapture(rs, false, &aborted);
    EXPECT_TRUE(aborted) << c.name;
    EXPECT_TRUE(hasline(out, "  Code 130")) << c.name << "\n" << out;
    EXPECT_TRUE(hasline(out, " ABORTING")) << c.name;
    EXPECT_EQ(rs.stlbyteorder, 4) << c.name;  // the search ran to its end
    EXPECT_EQ(formatlines(out).size(), 4u) << c.name;
    EXPECT_TRUE(rs.rawvrt.empty()) << c.name;

    // Quiet: the run stops all the same, without a coded message.
    RunState rq;
    rq.stlpath = dir + "/bad.stl";
    out = readcapture(rq, true, &aborted);
    EXPECT_TRUE(aborted) << c.name;
    EXPECT_FALSE(contains(out, "Code")) << c.name;
  }

  // A count whose triple wraps to a positive number while the count itself is negative:
  // vertices but no triangles, message 131.
  writefile(dir + "/wrap.stl", binarystl(s, false, "h", 0xAAAAAAABu));
  RunState rw;
  rw.stlpath = dir + "/wrap.stl";
  bool aborted = false;
  std::string out = readcapture(rw, false, &aborted);
  EXPECT_TRUE(aborted);
  EXPECT_EQ(rw.nrawvrt, 1);
  EXPECT_TRUE(hasline(out, "  Code 131"));

  // A missing file is message 30.
  RunState rm;
  rm.stlpath = dir + "/missing.stl";
  out = readcapture(rm, false, &aborted);
  EXPECT_TRUE(aborted);
  EXPECT_TRUE(hasline(out, "  Code 30"));
}

TEST(ReadStl, RepairedSibling) {
  std::string dir = tempdir("rdrepair");
  Soup original = tetrahedron(1.0), repaired = cube(2.0);
  writefile(dir + "/part.v2.stl", binarystl(original));
  writefile(dir + "/part.v2_ls_repair.stl", binarystl(repaired));
  RunState rs;
  rs.stlpath = dir + "/part.v2.stl";
  std::string out = readcapture(rs, true);  // the two lines come even when quiet
  EXPECT_EQ(rs.stlpath, dir + "/part.v2_ls_repair.stl");
  expectsoup(rs, repaired, true);
  EXPECT_EQ(splitlines(out), std::vector<std::string>({" Detected repaired STL.",
                                                       " Reading " + rs.stlpath + " instead..."}));

  // A name without a dot looks for "_ls_repair.stl" in the current folder.
  std::string here = std::filesystem::current_path().string();
  ASSERT_EQ(chdir(dir.c_str()), 0);
  writefile("nodot", binarystl(original));
  RunState rn;
  rn.stlpath = "nodot";
  readcapture(rn, true);
  expectsoup(rn, original, true);  // no sibling yet
  writefile("_ls_repair.stl", binarystl(repaired));
  readcapture(rn, true);
  EXPECT_EQ(rn.stlpath, "_ls_repair.stl");
  expectsoup(rn, repaired, true);
  // A dot in first place counts as none.
  writefile(".hidden", binarystl(original));
  RunState rh;
  rh.stlpath = ".hidden";
  readcapture(rh, true);
  EXPECT_EQ(rh.stlpath, "_ls_repair.stl");
  ASSERT_EQ(chdir(here.c_str()), 0);
}
