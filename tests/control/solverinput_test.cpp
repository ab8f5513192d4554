// SPDX-License-Identifier: GPL-3.0-or-later
// The solver input file (its five cards among the solver's own, defaults, read errors), and the
// choice of the increment, its mesh, and the surfaces the loop processes.
#include <gtest/gtest.h>

#include <filesystem>

#include "control/solverinput.h"
#include "reporting.h"
#include "testutil.h"

using namespace wf;
using strings = std::vector<std::string>;
using ints = std::vector<int32_t>;

namespace {

template <class T>
void setlist(List<T> &l, std::vector<T> v) {
  l.n = static_cast<int32_t>(v.size());
  l.v = std::move(v);
}

struct SolverInput : ::testing::Test {
  Settings settings;
  JobFiles files;
  wft::InTempDir dir{"solverinput"};
  void readfrom(const std::string &text) {
    wft::writefile("job.in", text);
    settings.inpuflag = true;
    files = JobFiles();
    files.inputfile = "job";
    readsolverinput(settings, files);
  }
  // Surfaces s1.stl, s2.stl, ... with their types and fractions.
  void surfaces(ints types, std::vector<float> fractions) {
    strings names;
    for (size_t j = 1; j <= types.size(); ++j) names.push_back("s" + std::to_string(j) + ".stl");
    setlist(files.stlfiles, names);
    setlist(files.stltype, types);
    setlist(files.stlfraction, fractions);
  }
};

}  // namespace

TEST_F(SolverInput, FailuresAreCodedAndNameTheFile) {
  // No number behind *OFNS or *STLS, or no line at all: no coded message exists for it, the run
  // ends as a failure of the I/O layer.
  for (const char *text :
       {"*OFNS\n*STLF\na.stl\n", "*STLS\nabc\n", "*STLS\n\n", "*OFNS\n", "*STLS\n# only a comment\n"})
    EXPECT_EQ(wft::fatalof([&] { readfrom(text); }).rfind("I/O layer: I/O error: job.in: no ", 0), 0u) << text;
  EXPECT_EQ(wft::fatalof([&] { readfrom("*OFNS\n10\n"); }), "190");
  std::filesystem::remove("job.in");
  EXPECT_EQ(wft::fatalof([&] { readsolverinput(settings, files); }), "30 job.in job.in");
}

TEST_F(SolverInput, IncrementAndTheLatestMeshAtItsTime) {
  // Three increments at times 1, 2, 3; meshes at 0, 2, 2 and 5: equal times keep the first, a
  // time equal to t counts.
  CaseInfo info;
  info.ninc = 3;
  info.resulttimes = {1.0, 2.0, 3.0};
  info.resultnums = {10, 20, 30};
  auto meshes = [&](std::vector<double> times) {
    info.nmesh = static_cast<int32_t>(times.size());
    info.meshtimes = times;
    info.meshnums = {100, 200, 300, 400};
    info.meshnums.resize(times.size());
  };
  meshes({0.0, 2.0, 2.0, 5.0});
  for (auto [off, result, mesh] :
       {std::tuple{1, 10, 100}, {2, 20, 200}, {3, 30, 200}, {-1, 30, 200}, {-2, 20, 200}, {-3, 10, 100}}) {
    selectincrement(info, off, files);
    EXPECT_EQ(std::pair(files.resultfilenumber, files.meshfilenumber), std::pair(result, mesh)) << off;
  }
  meshes({2.5, 0.5, 1.5});  // not in time order: the largest time not after t wins
  selectincrement(info, -2, files);
  EXPECT_EQ(files.meshfilenumber, 300);

  for (int off : {0, 4, -4, -2147483647 - 1})
    EXPECT_EQ(wft::fatalof([&] { selectincrement(info, off, files); }), "194 1 3") << off;
  meshes({1.5, 4.0});  // every mesh is later than the chosen increment
  EXPECT_EQ(wft::fatalof([&] { selectincrement(info, 1, files); }), "195 1");
  meshes({});
  EXPECT_EQ(wft::fatalof([&] { selectincrement(info, -1, files); }), "195 3");
  info.ninc = 1;  // one increment: the default offset -2 is out of range
  EXPECT_EQ(wft::fatalof([&] { selectincrement(info, -2, files); }), "194 1 1");
}

TEST_F(SolverInput, SurfacesOfTheLoop) {
  // Types 3, 1, 2, 1: s2 and s4 always count; s1 (above 0.999 in single precision) only with
  // *SSTL, s3 (0.999 itself) never. With *SSTL s1, s2, s4 are numbered 1 to 3, else s2, s4.
  // The last increment is offset -1 or ninc; with no increments (no *INPU) also offset 0.
  struct Case {
    bool astl, istl, sstl;
    int ninc, off;
    ints chosen, want;  // want empty: the run ends with `fatal`
    std::string fatal;
    int warnings;     // 1036 for s3 (never chosen), then 1037 for s1 (not of type 1)
    bool byfraction;  // selection by fraction afterwards
  };
  const Case cases[] = {
      {false, false, false, 3, -2, {}, {1}, "", 0, false},  // the first selected surface only
      {true, false, false, 3, -2, {}, {1, 2}, "", 0, false},
      {true, false, true, 3, -2, {}, {1, 2, 3}, "", 1, true},
      {true, false, true, 3, -1, {}, {1, 2}, "", 2, false},
      {true, false, true, 3, 3, {}, {1, 2}, "", 2, false},
      {false, true, false, 3, -1, {2, 1}, {2, 1}, "", 0, false},
      {false, true, false, 3, -1, {3}, {}, "192 2", 0, false},
      {false, true, true, 3, -2, {1, 2}, {1, 2}, "", 0, true},  // refused at the last increment only
      {false, true, true, 3, 3, {2, 1}, {}, "370 s1.stl", 0, true},
      {false, true, true, 0, 0, {1}, {}, "370 s1.stl", 0, true},
  };
  const strings allwarnings = {"1036 s3.stl", "1037 s1.stl"};
  for (const Case &c : cases) {
    SCOPED_TRACE(&c - cases);
    surfaces({3, 1, 2, 1}, {0.9995f, 0.1f, 0.999f, 1});
    setlist(files.stlids, c.chosen);
    settings.astlflag = c.astl, settings.istlflag = c.istl, settings.incoffset = c.off;
    files.selectbyfraction = c.sstl;
    strings warned;
    const std::string got = wft::fatalof([&] {
      selectsurfaces(settings, c.ninc, files, [&](int code, const std::string &surface) {
        warned.push_back(std::to_string(code) + " " + surface);
      });
    });
    EXPECT_EQ(got, c.want.empty() ? c.fatal : "none");
    EXPECT_EQ(warned, strings(allwarnings.begin(), allwarnings.begin() + c.warnings));
    if (c.want.empty()) continue;
    EXPECT_EQ(std::pair(files.nsurfaces, files.stlids.entries()), std::pair(int32_t(c.want.size()), c.want));
    EXPECT_EQ(files.selectbyfraction, c.byfraction);
  }
  files.stltype.n = files.stlfraction.n = 1;  // beyond the *STLM rows: processed by default
  files.selectbyfraction = false;
  EXPECT_EQ((ints{isselected(files, 0), isselected(files, 3), isselected(files, 5)}), (ints{0, 1, 0}));
  files.selectbyfraction = files.ssssflag = true;  // *SSTL together with *SSSS is refused
  EXPECT_EQ(wft::fatalof([&] { selectsurfaces(settings, 3, files); }), "371");
  surfaces({}, {});
  EXPECT_EQ(wft::fatalof([&] { selectsurfaces(settings, 3, files); }), "191");
}
