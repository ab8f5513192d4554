// SPDX-License-Identifier: GPL-3.0-or-later
// The steps of a surface as the console shows them, where no job of the regression set shows
// them: the read (the repaired sibling, the byte orders tried, the form), the preparation's
// warnings, the warp's node-count warning, the coloured package and its zip, the plain 3MF
// conversion and the repair. What the algorithms compute is tested with them.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "app/steps.h"
#include "base/text.h"
#include "base/textio.h"
#include "outputs/outcommon.h"
#include "reporting.h"
#include "shapes.h"
#include "testutil.h"

using namespace wft;
using Lines = std::vector<std::string>;

namespace {

struct Read {
  wf::RawSurface raw;
  std::string out, fatal, path;
};

// One read as a step of the run; the memory is carried from read to read as the run does, and
// r.path is the file it names afterwards.
Read readcapture(const std::string &path, wf::StlMemory &memory) {
  Read r;
  CapturedReporter cap;
  r.fatal = fatalof([&] { r.raw = wf::readstlstep(cap.rep, path, memory); });
  r.path = memory.path;
  r.out = cap.text();
  return r;
}

Lines formatlines(const std::string &out) {
  Lines r;
  for (const auto &l : splitlines(out))
    if (contains(l, "Reading in ")) r.push_back(l);
  return r;
}

bool hasline(const std::string &out, const std::string &line) { return contains("\n" + out, "\n" + line + "\n"); }

struct Prepared {
  wf::PreparedSurface prep;
  std::string out;
};

// The soup as just read from path, then the preparation step of the surface "part.stl" (the
// console read after the step: a braced list is evaluated in order).
Prepared preparecapture(const Soup &s, const std::string &path = "part.stl") {
  wf::RawSurface raw = rawof(s);
  CapturedReporter cap;
  return {wf::preparesurfacestep(cap.rep, raw, {}, "part.stl", path), cap.text()};
}

}  // namespace

// Reads as the steps of one run, the memory carried from read to read: both byte orders, a header
// that begins with "solid" with trailing bytes, text (which leaves the memory alone), a file with
// its repaired sibling, and files that no byte order reads (every attempt said, then "Binary STL
// file" all the same, then message 130; the last order tried is remembered).
TEST(SurfaceSteps, ReadLinesAndTheByteOrderMemory) {
  const std::string dir = tempdir("stepread");
  const Soup s = cube(3.0, -1.5, 0.25, 7.0);
  const std::string full = binarystl(tetrahedron(5.0));
  writefile(dir + "/le.stl", binarystl(s, false));
  writefile(dir + "/be.stl", binarystl(s, true));
  writefile(dir + "/solid.stl", binarystl(s, false, "solid pretending to be text", -1, "tail"));
  writefile(dir + "/text.stl", asciistl(s));
  writefile(dir + "/part.v2.stl", full);
  writefile(dir + "/part.v2_ls_repair.stl", binarystl(s, true));
  writefile(dir + "/junk.stl", std::string(50, 'x'));
  writefile(dir + "/cut.stl", full.substr(0, full.size() - 30));
  const std::string native = " Reading in native format...", little = " Reading in little_endian format...",
                    big = " Reading in big_endian format...", other = " Reading in non-native format...";
  const std::tuple<std::string, std::string, Lines, int> steps[] = {
      {"le", "le", {native}, 1},
      {"le", "le", {native}, 1},
      {"be", "be", {native, native, little, big}, 3},
      {"be", "be", {big}, 3},
      {"text", "text", {}, 3},
      {"solid", "solid", {big, native}, 1},
      {"part.v2", "part.v2_ls_repair", {native, native, little, big}, 3},
      {"junk", "", {big, native, little, big, other}, 4},
      {"cut", "", {other, native, little, big, other}, 4}};
  wf::StlMemory memory;
  for (const auto &[file, read, formats, want] : steps) {
    const Read r = readcapture(dir + "/" + file + ".stl", memory);
    EXPECT_EQ(formatlines(r.out), formats) << file;
    EXPECT_EQ(memory.byteorder, want) << file;
    if (read.empty()) {
      EXPECT_EQ(r.fatal, "130") << r.out;
      EXPECT_TRUE(r.out.ends_with(other + "\n Binary STL file\n")) << r.out;
      continue;
    }
    const std::string path = dir + "/" + read + ".stl";
    ASSERT_EQ(r.fatal, "none") << r.out;
    EXPECT_EQ(r.path, path);
    EXPECT_TRUE(hasline(r.out, formats.empty() ? " ASCII STL file" : " Binary STL file")) << r.out;
    EXPECT_TRUE(hasline(r.out, " Number of triangles = 12"));
    EXPECT_TRUE(hasline(r.out, " Finished reading " + path)) << r.out;
    if (read != file) {
      EXPECT_TRUE(r.out.starts_with(" Reading " + dir + "/" + file + ".stl\n Detected repaired STL.\n Reading " + path +
                                    " instead...\n" + native + "\n"))
          << r.out;
    }
    ASSERT_EQ(r.raw.vrt.size(), s.size());
    for (size_t i = 0; i < s.size(); ++i) ASSERT_EQ(float(r.raw.vrt[i]), float(s[i])) << file << " " << i;
  }
}

TEST(SurfaceSteps, FlippedOpenAndOverloaded) {
  // A tetrahedron with one triangle turned: three inverse edges, named by the path read.
  Soup s = tetrahedron();
  std::swap_ranges(s.begin() + 12, s.begin() + 15, s.begin() + 15);
  Prepared p = preparecapture(s, "dir/part.stl");
  EXPECT_FALSE(p.prep.check.oriented);
  EXPECT_TRUE(contains(p.out,
                       "\n *** WARNING: 1\n STL file dir/part.stl has 3 inversely oriented edges.\n"
                       " Consider repairing the STL with Tessero before continuing.\n \n"));
  // A single triangle: the plain block and the numbered warning (their words are the regression
  // set's), no orientation check; they give the job's name of the surface, not the path read.
  p = preparecapture({0, 0, 0, 1, 0, 0, 0, 1, 0}, "elsewhere/part_ls_repair.stl");
  EXPECT_EQ(p.prep.check.status, -1);
  EXPECT_TRUE(contains(p.out, "\n\n WARNING\n STL file part.stl is not watertight.\n Edges with   1 triangle  = 3\n"));
  EXPECT_TRUE(contains(p.out, " *** WARNING: 1\n STL file part.stl has non-manifold edges\n"));
  EXPECT_FALSE(contains(p.out, "inversely"));
  // Three triangles on one edge (no job of the regression set has one).
  p = preparecapture({0, 0, 0, 4, 0, 0, 1, 3, 0, 4, 0, 0, 0, 0, 0, 1, -3, 0, 1, 0, 3, 0, 0, 0, 4, 0, 0});
  EXPECT_TRUE(contains(p.out, " Edges with   2 triangles = 0\n Edges with > 2 triangles = 1\n"));
  // Two closed tetrahedra on one edge: no open edge, yet not watertight.
  Soup two = tetrahedron();
  for (size_t k = 0; k < 36; k += 3) two.insert(two.end(), {two[k], -two[k + 1], -two[k + 2]});
  p = preparecapture(two);
  EXPECT_EQ(std::pair(p.prep.counts.open, p.prep.counts.over), std::pair(int64_t{0}, int64_t{1}));
  EXPECT_TRUE(contains(p.out, " is not watertight.\n")) << p.out;
}

// The query set takes the box of the file read, its name's trailing blanks cut. (Its lines are
// the regression set's, refg and scng.)
TEST(SurfaceSteps, QuerySetTakesTheBoxRead) {
  const std::string dir = tempdir("stepquery");
  writefile(dir + "/ref.stl", binarystl(cube(2.0, 1.0, -3.0, 0.5)));
  CapturedReporter cap;
  wf::StlMemory memory;
  const wf::QuerySet set = wf::querysetstep(cap.rep, "Processing reference geometry", dir + "/ref.stl   ", memory);
  EXPECT_EQ(memory.path, dir + "/ref.stl");
  EXPECT_EQ(std::vector<double>(set.bbox, set.bbox + 6), (std::vector<double>{1, -3, 0.5, 3, -1, 2.5}));
}

TEST(SurfaceSteps, RaisedToleranceWarning) {
  // All corners equal: the tolerance rises to the machine precision, said before the merge.
  Prepared p = preparecapture({3, 3, 3, 3, 3, 3, 3, 3, 3});
  const std::string warning =
      " *** WARNING: 1\n Absolute tolerance must be greater than:\n"
      " 2.220446049250313e-16\n \n Increasing tolerance to 2.220446049250313e-16\n \n";
  const size_t at = p.out.find(warning);
  ASSERT_NE(at, std::string::npos) << p.out;
  EXPECT_LT(p.out.find(" Absolute tolerance = "), at);
  EXPECT_EQ(p.out.find(" Equivalencing vertices\n"), at + warning.size());
  p = preparecapture({0, 0, 0, 0x1p20, 0, 0, 0, 1e-20, 0});
  EXPECT_TRUE(contains(p.out, " Increasing tolerance to " + wf::numtext(0x1p-43) + "\n"));
}

// The warning on the number of averaged nodes (here 2 of 8, above a tenth) comes before the warp's
// first line, and only with the node check. (The warp's other lines are the regression set's.)
TEST(SurfaceSteps, NodeCountWarningBeforeTheWarp) {
  wf::Simulation sim;
  sim.nnodes = 8;
  for (int k = 0; k < 24; ++k) sim.nodexyz.push_back(((k / 3 >> k % 3) & 1) * 4.0 - 1.0);
  sim.nodedisp.assign(24, 0.0);
  sim.nodeactive.assign(8, 255);
  wf::NodeGrid grid = wf::gridlayout(sim.nodexyz.data(), sim.nnodes);
  wf::filenodes(grid, sim.nodexyz.data(), sim.nnodes);
  wf::WarpField field{.sim = &sim, .grid = &grid, .params = {}};
  field.params.navg = 2;
  const std::string warning =
      "\n WARNING:  number of nodes for weighted averaging is\n           greater than 10% of the total number of\n"
      "           nodes\n\n";
  for (bool nodecheck : {true, false}) {
    wf::PreparedSurface prep = preparedof(cube(1.0));
    CapturedReporter cap;
    wf::warpstep(cap.rep, field, nodecheck, 0.0, wf::WarpScales{}, wf::RefineParams{}, prep.mesh, prep.edges);
    const std::string out = cap.text();
    EXPECT_TRUE(out.starts_with((nodecheck ? warning : "") + " Displacing original STL vertices ...\n")) << out;
  }
}

// The package's lines once the console has turned to hexadecimal: the sizes of the zip's members
// stay decimal (the lines themselves, in decimal, are the regression set's). A zip that cannot
// be made: its two lines and "ERROR zipping", no warning, the members in place.
TEST(OutputSteps, PackageLinesInHexadecimalAndAFailedZip) {
  namespace fs = std::filesystem;
  const std::string dir = tempdir("steppackage");
  const wf::Folder in(dir);
  const wf::SurfaceMesh m = movedtetra();
  CapturedReporter cap;
  cap.rep.hexstatus(0);
  wf::package3mfstep(cap.rep, m, wf::dispsingle(m, "test"), "h_color", in);
  const std::string out = cap.text();
  const size_t bytes = fs::file_size(dir + "/h_color/3D/3dmodel.model");
  ASSERT_GT(bytes, 9u);
  EXPECT_TRUE(contains(out, "zip:  file \"h_color/3D/3dmodel.model\" is " + std::to_string(bytes) + " bytes\n")) << out;
  EXPECT_TRUE(out.ends_with("zip:  done\n Finished writing 3MF file h_color.3mf\n")) << out;

  fs::create_directories(dir + "/p_color.3mf");  // a folder where the zip should go
  wf::package3mfstep(cap.rep, m, wf::dispsingle(m, "test"), "p_color", in);
  EXPECT_TRUE(cap.text().ends_with("zip:  starting\nzip:  error opening \"p_color.3mf\"\n ERROR zipping\n"));
  for (const char *member :
       {"_rels/.rels", "3D/_rels/3dmodel.model.rels", "History/history.xml", "[Content_Types].xml", "3D/3dmodel.model"})
    EXPECT_TRUE(fs::exists(dir + "/p_color/" + member)) << member;  // the members stay
  EXPECT_EQ(cap.rep.warnings() + cap.rep.criticals(), 0);
}

// The converter's lines on a file it converts: the title between two rules, the read and the
// write with their times, the end. A file lib3MF cannot parse (its lines are the regression
// set's) turns the console's integers to hexadecimal for good.
TEST(OutputSteps, PlainConversionLines) {
  const std::string dir = tempdir("stepplain");
  const wf::Folder in(dir);
  writefile(dir + "/part.stl", binarystl(cube(2.0)));
  const std::string rule(66, '-');
  CapturedReporter cap;
  EXPECT_EQ(wf::plain3mfstep(cap.rep, "part.stl", in), 0);
  EXPECT_EQ(splitlines(maskafter(cap.text(), "elapsed time: ", "0123456789", "<n>")),
            Lines({rule, "3MF Model Converter", rule, "reading part.stl...", "<n>ms", "writing part.3mf...", "<n>ms",
                   "done converting 3MF"}));
  EXPECT_TRUE(std::filesystem::is_regular_file(dir + "/part.3mf"));
  EXPECT_EQ(cap.rep.numbermode(), wf::NumberMode::decimal);
  writefile(dir + "/bad.3mf", "not a zip at all");
  EXPECT_EQ(wf::plain3mfstep(cap.rep, "bad.3mf", in), -8);
  const std::string out = cap.text();
  EXPECT_TRUE(contains(out, "\ncould not parse file: ")) << out;
  EXPECT_EQ(cap.rep.numbermode(), wf::NumberMode::hexadecimal);
}

// The repair's lines: a cube with a facet gone is repaired by the default repair and saved, its
// counts in the console's number mode (in decimal they are the regression set's). Facets that
// bound nothing stay unsound: without the extended repair the repair ends there, with it the
// extended repair is said and tried; either way a critical warning, and the repaired name stands
// for the surface. A file that cannot be loaded ends in the component's words.
TEST(RepairSteps, RepairLinesInTheirOrder) {
  const std::string dir = tempdir("steprepair");
  const wf::Folder in(dir);
  Soup open = cube(10.0);
  open.resize(open.size() - 9);
  writefile(dir + "/open.stl", binarystl(open));
  {
    CapturedReporter cap;
    cap.rep.hexstatus(0);
    EXPECT_EQ(wf::repairstep(cap.rep, "open.stl    ", 0.01, false, in), "open_ls_repair.stl");
    EXPECT_EQ(
        splitlines(cap.text()),
        Lines({"Starting Tessero default repair...", "infile = open.stl", "outfile = open_ls_repair.stl", "Version 7E3",
               "Loading mesh...", "facecount: B", "Status: 0", "Repairing mesh with tolerance 0.01 ...", "facecount: C",
               "Status: 1", "Saving repaired STL...", "Finished repair"}));
    EXPECT_EQ(cap.rep.criticals(), 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(dir + "/open_ls_repair.stl"));
  }
  writefile(dir + "/dust.stl", binarystlbytes(scatteredfacets(20, 3)));
  for (bool tsre : {false, true}) {
    SCOPED_TRACE(tsre);
    CapturedReporter cap;
    EXPECT_EQ(wf::repairstep(cap.rep, "dust.stl", 0.5, tsre, in), "dust_ls_repair.stl");
    const Lines lines = splitlines(cap.text());
    const auto at = std::find(lines.begin(), lines.end(), "Repairing mesh with tolerance 0.5 ...");
    ASSERT_NE(at, lines.end());
    ASSERT_GE(lines.end() - at, 3);
    Lines tail(at + 2, lines.end());
    // The critical warning follows the repair's last line.
    tail.resize(std::find(tail.begin(), tail.end(), "") - tail.begin());
    EXPECT_EQ(tail, tsre ? Lines({"Status: 0", "Default repair failed.  Trying extended repair...", "Status: 0",
                                  "Repair failed."})
                         : Lines({"Status: 0", "Repair failed."}));
    EXPECT_EQ(cap.rep.criticals(), 1);
  }

  CapturedReporter cap;
  EXPECT_EQ(wf::repairstep(cap.rep, "absent.stl", 0.01, false, in), "absent.stl_ls_repair.stl");
  const std::string out = cap.text();
  EXPECT_TRUE(contains(out, "outfile = absent.stl_ls_repair.stl\nVersion 2019\nLoading mesh...\nfatal error: ")) << out;
  EXPECT_EQ(cap.rep.criticals(), 1);
}

// A whole-job run at the last increment drops a surface not chosen by its fraction (1036) and a
// chosen one not of type 1 (1037), each a critical warning naming it.
TEST(InputSteps, SurfacesDroppedFromAWholeJobAreCriticalWarnings) {
  wf::Settings settings;
  settings.astlflag = true;
  settings.incoffset = -1;
  wf::JobFiles files;
  files.stlfiles.v = {"a.stl", "b.stl", "c.stl"};
  files.stltype.v = {3, 1, 2};
  files.stlfraction.v = {1.0f, 1.0f, 0.5f};
  files.stlfiles.n = files.stltype.n = files.stlfraction.n = 3;
  files.selectbyfraction = true;
  CapturedReporter cap;
  cap.rep.loadcatalogue(WARPFORGE_SOURCE_DIR "/data/simsolver.arb");
  cap.text();
  wf::selectsurfacesstep(cap.rep, settings, 3, files);
  const std::string out = cap.text();
  EXPECT_EQ(cap.rep.criticals(), 2);
  ASSERT_LT(out.find("Code 1036"), out.find("Code 1037")) << out;
  EXPECT_LT(out.find("c.stl"), out.find("Code 1037")) << out;
  EXPECT_GT(out.find("a.stl"), out.find("Code 1037")) << out;
  EXPECT_EQ(files.nsurfaces, 1);
}
