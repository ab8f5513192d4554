// SPDX-License-Identifier: GPL-2.0-or-later
// STL files. Reader: text detection, the byte-order search and its memory, the repaired
// sibling, and short, truncated or corrupt files. Writer: the four forms byte by byte,
// failures, and round trips through our reader and through admesh, both ways.
#include "surfacefixtures.h"

using namespace wft;
using wf::RunState;

namespace {

std::string readcapture(RunState &rs, const std::string &path, bool quiet = false, bool *aborted = nullptr) {
  rs.stlpath = path;
  return captured([&] { wf::readstl(rs, quiet); }, aborted);
}

// rawvrt holds the soup: exactly, or in single precision, or near for 6-decimal text.
void expectsoup(const RunState &rs, const Soup &s, bool single, bool near = false) {
  ASSERT_EQ(rs.ntri, static_cast<int32_t>(s.size() / 9));
  ASSERT_EQ(rs.nrawvrt, 3 * rs.ntri);
  ASSERT_EQ(rs.rawvrt.size(), s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    if (near) ASSERT_NEAR(rs.rawvrt[i], s[i], 1e-6 * std::fabs(s[i])) << i;
    else if (single) ASSERT_EQ(static_cast<float>(rs.rawvrt[i]), static_cast<float>(s[i])) << i;
    else ASSERT_EQ(rs.rawvrt[i], s[i]) << i;
  }
}

Lines formatlines(const std::string &out) {
  Lines r;
  for (const auto &l : splitlines(out))
    if (contains(l, "Reading in ")) r.push_back(l);
  return r;
}

// An indexed mesh of the soup, with normals: corners stored in reverse order, stltri to them.
void setmesh(RunState &rs, const Soup &s) {
  rs.nvrt = static_cast<int32_t>(s.size() / 3);
  rs.ntri = rs.nvrt / 3;
  rs.stlvrt.resize(s.size());
  rs.stltri.resize(s.size() / 3);
  for (int32_t j = 0; j < rs.nvrt; ++j) {
    rs.stltri[j] = rs.nvrt - j;
    std::copy(s.begin() + 3 * j, s.begin() + 3 * j + 3, rs.stlvrt.begin() + 3 * (rs.nvrt - 1 - j));
  }
  captured([&] { wf::normals(rs, true, false, true); });
}

float floatat(const std::string &b, size_t off) {
  float f;
  std::memcpy(&f, b.data() + off, 4);
  return f;
}

}  // namespace

TEST(ReadStl, AsciiFiles) {
  std::string path = tempdir("rdascii") + "/part.stl";
  Soup s = tetrahedron(0.1);  // 0.1 is not a float: the text must go to double directly
  for (double &x : s) x -= 3.0;
  // Two solids in one file add up.
  writefile(path, asciistl(Soup(s.begin(), s.begin() + 18), "a") +
                      asciistl(Soup(s.begin() + 18, s.end()), "b"));
  RunState rs;
  std::string out = readcapture(rs, path);
  expectsoup(rs, s, false);
  EXPECT_EQ(rs.stlbyteorder, 0);  // text files leave the byte order alone
  const std::string lo = wf::scitext(-3.0), hi = wf::scitext(0.1 - 3.0);
  EXPECT_EQ(splitlines(out), Lines({" Reading " + path, " ASCII STL file", " Bounding box:",
                                    lo + " <= x <= " + hi, lo + " <= y <= " + hi, lo + " <= z <= " + hi,
                                    "", " Number of vertices  = 12", " Number of triangles = 4",
                                    " Finished reading " + path, ""}));
  EXPECT_DOUBLE_EQ(rs.stlbbox.centre[0], -3.0 + 0.05);
  EXPECT_EQ(rs.prerepairbbox.max[0], rs.stlbbox.max[0]);
}

TEST(ReadStl, ByteOrdersAndTheirMemory) {
  std::string dir = tempdir("rdorder");
  Soup s = cube(3.0, -1.5, 0.25, 7.0);
  writefile(dir + "/le.stl", binarystl(s, false));
  writefile(dir + "/be.stl", binarystl(s, true));
  // A header that begins with "solid" and trailing bytes change nothing.
  writefile(dir + "/solid.stl", binarystl(s, false, "solid pretending to be text", -1, "tail"));
  const std::string native = " Reading in native format...", little = " Reading in little_endian format...",
                    big = " Reading in big_endian format...";
  // Little-endian is found at once and remembered; big-endian is rejected by orders 1 and 2
  // (its count read the wrong way exceeds the file), then remembered; a little-endian file
  // after it fails the remembered order and the search starts again.
  const std::tuple<const char *, Lines, int> steps[] = {
      {"le", {native}, 1}, {"le", {native}, 1}, {"be", {native, native, little, big}, 3},
      {"be", {big}, 3}, {"solid", {big, native}, 1}};
  RunState rs;
  for (const auto &[file, formats, order] : steps) {
    std::string out = readcapture(rs, dir + "/" + file + ".stl");
    EXPECT_EQ(formatlines(out), formats) << file;
    EXPECT_EQ(rs.stlbyteorder, order) << file;
    EXPECT_TRUE(hasline(out, " Binary STL file") && hasline(out, " Number of triangles = 12"));
    expectsoup(rs, s, true);
  }
  // readstlraw: the corners move to stlvrt, three columns per triangle.
  RunState rr;
  rr.stlpath = dir + "/be.stl";
  captured([&] { wf::readstlraw(rr, true); });
  EXPECT_EQ(rr.nvrt, 36);
  EXPECT_TRUE(rr.rawvrt.empty() && rr.stltri.empty());
  rr.rawvrt = rr.stlvrt;
  expectsoup(rr, s, true);
}

TEST(ReadStl, ShortTruncatedAndCorruptFiles) {
  // Text whose vertex lines are in capitals or indented by a tab, with four vertex lines for
  // one facet, or with a number that does not read in the second pass, is no text; binary
  // files of no triangles, too short, truncated, or with an absurd or negative count. Every
  // byte order fails.
  std::string dir = tempdir("rdbad");
  Soup s = tetrahedron(5.0);
  std::string caps = asciistl(s), tabs = caps, broken = caps;
  for (size_t p = 0; (p = caps.find("vertex", p)) != std::string::npos;) caps.replace(p, 6, "VERTEX");
  for (size_t p = 0; (p = tabs.find("      vertex", p)) != std::string::npos;) tabs.replace(p, 6, "\t");
  broken.replace(broken.find("vertex 5"), 8, "vertex x");
  const std::string full = binarystl(s), cut = full.substr(0, full.size() - 30);
  const std::string cases[] = {caps, tabs, broken,
                               "solid x\n facet normal 0 0 1\n  outer loop\n   vertex 0 0 0\n"
                               "   vertex 1 0 0\n   vertex 0 1 0\n   vertex 1 1 0\n  endloop\n endfacet\n",
                               binarystl({}), std::string(50, 'x'), cut,
                               binarystl(s, false, "h", 0x7FFFFFFF), binarystl(s, false, "h", 0xFFFFFFF0u)};
  bool aborted = false;
  for (size_t i = 0; i < std::size(cases); ++i) {
    writefile(dir + "/bad.stl", cases[i]);
    RunState rs, rq;
    std::string out = readcapture(rs, dir + "/bad.stl", false, &aborted);
    EXPECT_TRUE(aborted && hasline(out, "  Code 130")) << i << "\n" << out;
    EXPECT_EQ(rs.stlbyteorder, 4) << i;  // the search ran to its end
    EXPECT_EQ(formatlines(out).size(), 4u) << i;  // no text, and no byte order reads it
    // Quiet: the run stops all the same, without a coded message.
    EXPECT_FALSE(contains(readcapture(rq, dir + "/bad.stl", true, &aborted), "Code")) << i;
    EXPECT_TRUE(aborted) << i;
  }
  // A count whose triple wraps to a positive number while the count itself is negative:
  // vertices but no triangles, message 131. A missing file is message 30.
  writefile(dir + "/wrap.stl", binarystl(s, false, "h", 0xAAAAAAABu));
  RunState rw, rm;
  EXPECT_TRUE(hasline(readcapture(rw, dir + "/wrap.stl", false, &aborted), "  Code 131") && aborted);
  EXPECT_EQ(rw.nrawvrt, 1);
  EXPECT_TRUE(hasline(readcapture(rm, dir + "/missing.stl", false, &aborted), "  Code 30") && aborted);
}

TEST(ReadStl, RepairedSibling) {
  std::string dir = tempdir("rdrepair");
  const Soup original = tetrahedron(1.0), repaired = cube(2.0);
  writefile(dir + "/part.v2.stl", binarystl(original));
  writefile(dir + "/part.v2_ls_repair.stl", binarystl(repaired));
  RunState rs;
  std::string out = readcapture(rs, dir + "/part.v2.stl", true);  // the two lines come even when quiet
  EXPECT_EQ(rs.stlpath, dir + "/part.v2_ls_repair.stl");
  expectsoup(rs, repaired, true);
  EXPECT_EQ(splitlines(out), Lines({" Detected repaired STL.", " Reading " + rs.stlpath + " instead..."}));
  // A name without a dot, or with a dot in first place only, looks for "_ls_repair.stl" in
  // the current folder.
  std::string here = std::filesystem::current_path().string();
  ASSERT_EQ(chdir(dir.c_str()), 0);
  writefile("nodot", binarystl(original));
  writefile(".hidden", binarystl(original));
  readcapture(rs, "nodot", true);
  expectsoup(rs, original, true);  // no sibling yet
  writefile("_ls_repair.stl", binarystl(repaired));
  for (const char *name : {"nodot", ".hidden"}) {
    readcapture(rs, name, true);
    EXPECT_EQ(rs.stlpath, "_ls_repair.stl") << name;
    expectsoup(rs, repaired, true);
  }
  ASSERT_EQ(chdir(here.c_str()), 0);
}

TEST(WriteStl, BinaryFormsByteExact) {
  std::string dir = tempdir("wrbin");
  Soup s = cubes(1);
  RunState rs;
  setmesh(rs, s);
  rs.outstlpath = dir + "/out.stl";
  EXPECT_EQ(captured([&] { wf::writestl(rs, 'b', true); }),
            " Finished writing binary STL file " + rs.outstlpath + "\n");
  std::string b = readfile(rs.outstlpath);
  ASSERT_EQ(b.size(), 84 + 50 * 12u);
  const std::string banner = "generated by Corvanta Tessero Thermo Mechanics";
  EXPECT_EQ(b.substr(0, 84),
            "Binary STL file " + banner + std::string(18, ' ') + std::string("\x0c\0\0\0", 4));
  for (size_t t = 0; t < 12; ++t) {
    EXPECT_EQ(b.substr(84 + 50 * t, 12), std::string(12, '\0')) << "normal of triangle " << t;
    for (int k = 0; k < 9; ++k)
      EXPECT_EQ(floatat(b, 96 + 50 * t + 4 * k), static_cast<float>(s[9 * t + k])) << t;
    EXPECT_EQ(b.substr(132 + 50 * t, 2), std::string(2, '\0'));
  }
  // Form c over the same name replaces the file, silently; only the header differs.
  EXPECT_EQ(captured([&] { wf::writestl(rs, 'c', true); }), "");
  std::string c = readfile(rs.outstlpath);
  EXPECT_EQ(c.substr(0, 80), "Non-native binary STL file " + banner + std::string(7, ' '));
  EXPECT_EQ(c.substr(80), b.substr(80));

  // Not indexed: the corners are three columns per triangle. Beyond single precision: an
  // infinity in the binary form, the field in the text form, whose normal is zero whatever
  // nrgtri holds. No triangles: 84 bytes.
  RunState rr;
  rr.stlvrt = s;
  rr.ntri = 12;
  rr.outstlpath = dir + "/raw.stl";
  captured([&] { wf::writestl(rr, 'b', false); });
  EXPECT_EQ(readfile(rr.outstlpath), b);
  rr.stlvrt = {1e39, -1e39, 0, 1, 0, 0, 0, 1, 0};
  rr.ntri = 1;
  rr.nrgtri = {7, 7, 7};
  captured([&] { wf::writestl(rr, 'b', false); });
  EXPECT_EQ(floatat(readfile(rr.outstlpath), 96), std::numeric_limits<float>::infinity());
  EXPECT_EQ(floatat(readfile(rr.outstlpath), 100), -std::numeric_limits<float>::infinity());
  captured([&] { wf::writestl(rr, 'd', false); });
  Lines lines = splitlines(readfile(rr.outstlpath));
  ASSERT_EQ(lines.size(), 9u);
  EXPECT_EQ(lines[1], "  facet normal   0.000000E+00  0.000000E+00  0.000000E+00");
  EXPECT_EQ(lines[3], "      vertex   1.000000E+39 -1.000000E+39  0.000000E+00");
  rr.ntri = 0;
  captured([&] { wf::writestl(rr, 'b', false); });
  EXPECT_EQ(readfile(rr.outstlpath).size(), 84u);
}

TEST(WriteStl, AsciiFormsAndFailures) {
  std::string dir = tempdir("wrascii");
  Soup s = tetrahedron(2.5);
  s.insert(s.end(), {1, 1, 1, 1, 1, 1, 3, 3, 3});  // a degenerate triangle: zero normal
  RunState rs;
  setmesh(rs, s);
  rs.outstlpath = dir + "/out.stl";
  writefile(rs.outstlpath, std::string(100000, 'z'));  // an earlier, longer file
  auto fields = [](const double *v) { return wf::scitext(v[0]) + wf::scitext(v[1]) + wf::scitext(v[2]); };
  for (char form : {'a', 'd'}) {
    EXPECT_EQ(captured([&] { wf::writestl(rs, form, true); }), "") << form;
    std::string want = "solid vcg\n";
    for (size_t t = 0; t < 5; ++t) {
      want += "  facet normal " + fields(&rs.nrgtri[3 * t]) + "\n    outer loop\n";
      for (int c = 0; c < 3; ++c) want += "      vertex " + fields(&s[9 * t + 3 * c]) + "\n";
      want += form == 'a' ? "    end loop\n  end facet\n" : "    endloop\n  endfacet\n";
    }
    EXPECT_EQ(readfile(rs.outstlpath), want + "endsolid vcg\n") << form;
    // The raw cross product, twice the area long; zero for the degenerate triangle.
    EXPECT_TRUE(contains(want, "  facet normal   0.000000E+00  0.000000E+00 -6.250000E+00\n"));
    EXPECT_TRUE(contains(want, "  facet normal   0.000000E+00  0.000000E+00  0.000000E+00\n"));
    RunState rd;  // our reader takes it back
    EXPECT_TRUE(hasline(readcapture(rd, rs.outstlpath), " ASCII STL file"));
    expectsoup(rd, s, false, true);
  }
  // A form that is none of a, b, c, d is message 319 and writes nothing; a folder that does
  // not exist is message 31 for every form.
  bool aborted = false;
  rs.outstlpath = dir + "/none.stl";
  EXPECT_TRUE(hasline(captured([&] { wf::writestl(rs, 'x', true); }, &aborted), "  Code 319") && aborted);
  EXPECT_FALSE(wf::fileexists(rs.outstlpath));
  rs.outstlpath = dir + "/no/such/folder/out.stl";
  for (char form : {'a', 'b', 'c', 'd'}) {
    std::string out = captured([&] { wf::writestl(rs, form, true); }, &aborted);
    EXPECT_TRUE(aborted && hasline(out, "  Code 31")) << form;
  }
}

TEST(WriteStl, IndependentToolAgrees) {
  if (std::system("admesh --help >/dev/null 2>&1") != 0) GTEST_SKIP() << "admesh is not installed";
  std::string dir = tempdir("wradmesh");
  auto admesh = [&](const std::string &args) {
    EXPECT_EQ(std::system(("admesh " + args + " >" + dir + "/admesh.txt 2>&1").c_str()), 0) << args;
    return readfile(dir + "/admesh.txt");
  };
  Soup s = cubes(20);
  RunState rs;
  setmesh(rs, s);
  // admesh reads each of our forms with the same facet count, every facet connected on all
  // three edges, and no edge running the wrong way. Form a is left out: admesh's text parser
  // does not accept its spaced closing keywords ("end loop").
  const std::pair<const char *, long> expect[] = {
      {"Number of facets", rs.ntri}, {"Total disconnected facets", 0}, {"Facets with 1 disconnected edge", 0},
      {"Backwards edges", 0}, {"Degenerate facets", 0}};
  for (char form : {'b', 'c', 'd'}) {
    rs.outstlpath = dir + "/ours_" + form + ".stl";
    captured([&] { wf::writestl(rs, form, true); });
    const std::string sum = admesh("-e " + rs.outstlpath);
    for (const auto &[label, value] : expect) {
      long got = -1;  // the number after the colon of the line that begins with label
      for (const auto &l : splitlines(sum))
        if (l.rfind(label, 0) == 0) got = std::strtol(l.c_str() + l.find(':') + 1, nullptr, 10);
      EXPECT_EQ(got, value) << form << " " << label << "\n" << sum;
    }
  }
  // Files written by admesh, binary and text, read back with the same triangles.
  writefile(dir + "/input.stl", binarystl(s));
  admesh("-c --write-binary-stl=" + dir + "/adm_b.stl --write-ascii-stl=" + dir + "/adm_a.stl " + dir +
         "/input.stl");
  for (const std::string name : {"/adm_b.stl", "/adm_a.stl"}) {
    RunState rd;
    const std::string out = readcapture(rd, dir + name);
    EXPECT_TRUE(hasline(out, name == "/adm_a.stl" ? " ASCII STL file" : " Binary STL file"));
    expectsoup(rd, s, true);
  }
}
