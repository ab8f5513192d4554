// SPDX-License-Identifier: GPL-2.0-or-later
// The repair client: the console lines and statuses of repairsurface on real and on substituted
// component operations, and repairsurfaces with its skips, names, extended choice and messages.
#include "repair/repairclient.h"

#include "repair/repairops.h"
#include "repair/stlfixtures.h"

using namespace wft;
using namespace wf;

namespace {

int nfree = 0, nfreecontext = 0, nissane = 0;

struct Client : InFolderTest {
  void TearDown() override {
    repairops() = componentops();
    InFolderTest::TearDown();
  }
  std::string surfaces(bool tolerate, bool checkorient) {
    return console([&] { repairsurfaces(rs, tolerate, checkorient); });
  }
};

}  // namespace

TEST_F(Client, StatusesLastLinesAndReleasedHandles) {
  writebinary("part.stl", opencube());
  writebinary("strip.stl", mobius());
  writebinary("lone.stl", {Tri{{0, 0, 0, 1, 0, 0, 0, 1, 0}}, Tri{{5, 5, 5, 6, 5, 5, 5, 6, 5}}});
  using Edit = void (*)(RepairOps &);
  // clang-format off
  const struct {
    const char *infile, *outfile;
    int extended;
    Edit edit;
    int status;
    std::vector<std::string> last;
    int meshes, contexts;  // handles released
    bool hex = false;      // numbers follow the console's mode; the tolerance goes through %g
    double tolerance = 0.01;
  } cases[] = {
      {"part.stl", "out.stl", 0, nullptr, 0,
       {"Starting Tessero default repair...", "infile = part.stl", "outfile = out.stl",
        "Version 2019", "Loading mesh...", "facecount: 11", "Status: 0",
        "Repairing mesh with tolerance 0.01 ...", "facecount: 12", "Status: 1",
        "Saving repaired STL...", "Finished repair"}, 1, 1},
      {"part.stl", "out.stl", 0, nullptr, 0,
       {"Version 7E3", "Loading mesh...", "facecount: B", "Status: 0",
        "Repairing mesh with tolerance 0.0123457 ...", "facecount: C", "Status: 1",
        "Saving repaired STL...", "Finished repair"}, 1, 1, true, 0.0123456789},
      // A twisted strip needs the extended repair; only the low byte of the flag counts.
      {"strip.stl", "out.stl", 0x100, nullptr, -3, {"Status: 0", "Repair failed."}, 1, 1},
      {"strip.stl", "out.stl", 1, nullptr, 0,
       {"Status: 0", "Default repair failed.  Trying extended repair...", "Status: 1",
        "Saving repaired STL...", "Finished repair"}, 1, 1},
      // The default repair removes lone triangles, which leaves the extended one nothing.
      {"lone.stl", "out.stl", 1, nullptr, -1,
       {"Default repair failed.  Trying extended repair...",
        "fatal error: extended repair: empty mesh, no facets left to repair"}, 1, 1},
      {"nothere.stl", "out.stl", 0, nullptr, -1,
       {"Loading mesh...",
        "fatal error: cannot open STL file 'nothere.stl': No such file or directory"}, 0, 1},
      {"part.stl", "no/folder/out.stl", 0, nullptr, -1,
       {"Saving repaired STL...",
        "fatal error: cannot write STL file 'no/folder/out.stl': No such file or directory"}, 1, 1},
      {"part.stl", "out.stl", 0, [](RepairOps &o) { o.getversion = [] { return 2018; }; }, -1,
       {"Version 2018", "fatal error: invalid version"}, 0, 0},
      {"part.stl", "out.stl", 0,
       [](RepairOps &o) { o.initcontext = [](MeshRepairContext **) { return 7; }; }, -1,
       {"Version 2019", "fatal error: could not init dll: 7"}, 0, 0},
      {"part.stl", "out.stl", 0,
       [](RepairOps &o) { o.initcontext = [](MeshRepairContext **c) { return *c = nullptr, 0; }; },
       -1, {"Version 2019", "fatal error: no context"}, 0, 0},
      // A failing soundness call after the repair still prints its result first.
      {"part.stl", "out.stl", 0,
       [](RepairOps &o) {
         o.issane = [](MeshRepairMesh *m, int *r) {
           int s = meshrepair_issane(m, r);
           return ++nissane == 2 ? 5 : s;
         };
       },
       -1, {"Status: 1", "fatal error: "}, 1, 1},
  };
  // clang-format on
  for (const auto &c : cases) {
    RepairOps ops = componentops();
    ops.free = [](MeshRepairMesh *m) { ++nfree, meshrepair_free(m); };
    ops.freecontext = [](MeshRepairContext *x) { ++nfreecontext, meshrepair_freecontext(x); };
    if (c.edit) c.edit(ops);
    repairops() = ops;
    nfree = nfreecontext = nissane = 0;
    rs.conhex = c.hex;
    std::filesystem::remove("out.stl");
    int status = 99;
    const auto lines = splitlines(
        console([&] { status = repairsurface(rs, c.infile, c.outfile, c.tolerance, c.extended); }));
    SCOPED_TRACE(std::string(c.infile) + ": " + c.last.back());
    EXPECT_EQ(status, c.status);
    ASSERT_GE(lines.size(), c.last.size());
    EXPECT_EQ(std::vector<std::string>(lines.end() - long(c.last.size()), lines.end()), c.last);
    EXPECT_EQ(fileexists("out.stl"), c.status == 0);
    if (c.status == 0) EXPECT_EQ(admeshfaults(dir + "/out.stl"), "");
    EXPECT_EQ(nfree, c.meshes);
    EXPECT_EQ(nfreecontext, c.contexts);
  }
}

TEST_F(Client, SurfacesSkipsNamesAndMessages) {
  writebinary("a.stl", cube());
  writebinary("b.stl", opencube());
  writebinary("plain", opencube());
  std::filesystem::create_directory("sub.d");
  writebinary("sub.d/plain", opencube());
  writebinary("strip.stl", mobius());
  auto names = [&] {
    std::vector<std::string> v;
    for (int32_t i = 0; i < rs.stlfiles.n; ++i) v.push_back(rtrim(rs.stlfiles[size_t(i)]));
    return v;
  };
  // A watertight surface is skipped; the extension is cut at the last dot of the whole path,
  // folders included; type 3 asks for the extended repair.
  setlist({"a.stl", "b.stl", "plain", "sub.d/plain", "strip.stl"}, {1, 1, 1, 1, 3},
          {-1, 0, 0, 0, 0});
  std::string out = surfaces(false, false);
  EXPECT_EQ(names(), (std::vector<std::string>{"a.stl", "b_ls_repair.stl", "plain_ls_repair.stl",
                                               "sub_ls_repair.stl", "strip_ls_repair.stl"}));
  EXPECT_FALSE(fileexists("a_ls_repair.stl"));
  EXPECT_TRUE(contains(out, "Default repair failed.  Trying extended repair...")) << out;
  EXPECT_EQ(signals(), "");

  // With the orientation asked for, a watertight surface that is not oriented is repaired.
  setlist({"a.stl", "b.stl"}, {1, 1}, {-1, -1});
  rs.surforiented = {0, -1};
  surfaces(false, true);
  EXPECT_EQ(names(), (std::vector<std::string>{"a_ls_repair.stl", "b.stl"}));

  // A file that does not exist keeps its whole name before the suffix. Not tolerated, a failure
  // (message 1011) is followed by message 46 after the loop, and the run ends.
  setlist({"gone.stl", "b.stl"}, {1, 1}, {0, 0});
  EXPECT_THROW(surfaces(false, false), RunAborted);
  const std::string sig = signals();
  EXPECT_TRUE(contains(sig,
                       "{\"message\": {\"type\": \"critical warning\", \"code\": 1011, "
                       "\"variables\": [\"gone.stl\"]"))
      << sig;
  EXPECT_NE(sig.find("\"code\": 46"), std::string::npos) << sig;
  EXPECT_LT(sig.find("\"code\": 1011"), sig.find("\"code\": 46")) << sig;
  EXPECT_EQ(names(), (std::vector<std::string>{"gone.stl_ls_repair.stl", "b_ls_repair.stl"}))
      << "the loop finishes first";
}
