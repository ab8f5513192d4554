// SPDX-License-Identifier: GPL-2.0-or-later
// The plain 3MF conversion through lib3MF (*O3MF).
#include <Model/COM/NMR_DLLInterfaces.h>

#include <filesystem>

#include "control/messages.h"
#include "outputs/convert3mf.h"
#include "outputs/lib3mfversion.h"
#include "outtest.h"

namespace fs = std::filesystem;

namespace {

const std::string rule(66, '-');
const std::string banner = rule + "\n3MF Model Converter\n" + rule + "\n";

// A closed tetrahedron of four triangles.
const std::vector<float> tetracorners = {0, 0, 0, 0, 10, 0, 10, 0, 0,  0, 0, 0, 10, 0, 0, 0, 0, 10,
                                         0, 0, 0, 0, 0, 10, 0, 10, 0,  10, 0, 0, 0, 10, 0, 0, 0, 10};

// Vertex and triangle counts of the first mesh object of a 3MF file, through lib3MF.
bool read3mf(const std::string &path, unsigned &nv, unsigned &nt) {
  using namespace NMR;
  PLib3MFModel *model = nullptr;
  if (lib3mf_createmodel(&model) != 0) return false;
  PLib3MFModelReader *reader = nullptr;
  bool ok = lib3mf_model_queryreader(model, "3mf", &reader) == 0 &&
            lib3mf_reader_readfromfileutf8(reader, path.c_str()) == 0;
  PLib3MFModelResourceIterator *it = nullptr;
  BOOL more = false;
  PLib3MFModelResource *mesh = nullptr;
  ok = ok && lib3mf_model_getmeshobjects(model, &it) == 0 &&
       lib3mf_resourceiterator_movenext(it, &more) == 0 && more &&
       lib3mf_resourceiterator_getcurrent(it, &mesh) == 0;
  DWORD v = 0, t = 0;
  ok = ok && lib3mf_meshobject_getvertexcount(mesh, &v) == 0 &&
       lib3mf_meshobject_gettrianglecount(mesh, &t) == 0;
  nv = v, nt = t;
  if (mesh) lib3mf_release(mesh);
  if (it) lib3mf_release(it);
  if (reader) lib3mf_release(reader);
  lib3mf_release(model);
  return ok;
}

std::string runstep(wf::RunState &rs) {
  testing::internal::CaptureStdout();
  wf::convert3mfstep(rs);
  return testing::internal::GetCapturedStdout();
}

// Restores the real version query after a test that replaced it.
struct VersionOverride {
  explicit VersionOverride(wf::lib3mfversionfn f) { wf::lib3mfversionquery = f; }
  ~VersionOverride() { wf::lib3mfversionquery = wf::lib3mfinterfaceversion; }
};

TEST(Convert3mf, OffDoesNothing) {
  wfo::InTempDir dir("c3mf_off");
  wfo::writebinarystl("part.stl", tetracorners);
  wf::RunState rs;
  rs.outstlpath = "part.stl";
  EXPECT_EQ(runstep(rs), "");
  EXPECT_FALSE(fs::exists("part.3mf"));
}

TEST(Convert3mf, ConvertsTheWrittenSurface) {
  wfo::InTempDir dir("c3mf_ok");
  fs::create_directories("out.d");
  wfo::writebinarystl("out.d/part_warp.stl", tetracorners);
  wf::RunState rs;
  wfo::Signals sig(rs);
  rs.o3mfflag = true;
  rs.outstlpath = "out.d/part_warp.stl";
  std::string out = runstep(rs);
  auto lines = wft::splitlines(out);
  ASSERT_EQ(lines.size(), 8u) << out;
  EXPECT_EQ(out.substr(0, banner.size()), banner);
  EXPECT_EQ(lines[3], "reading out.d/part_warp.stl...");
  EXPECT_TRUE(lines[4].starts_with("elapsed time: ") && lines[4].ends_with("ms")) << lines[4];
  EXPECT_EQ(lines[5], "writing out.d/part_warp.3mf...");
  EXPECT_TRUE(lines[6].starts_with("elapsed time: ") && lines[6].ends_with("ms"));
  EXPECT_EQ(lines[7], "done converting 3MF");
  EXPECT_FALSE(wft::contains(out, "Warning"));
  EXPECT_EQ(sig.text(), "") << "the conversion sends no signal event";
  unsigned nv = 0, nt = 0;
  ASSERT_TRUE(read3mf("out.d/part_warp.3mf", nv, nt));
  EXPECT_EQ(nt, 4u);
  EXPECT_EQ(nv, 4u) << "the STL reader merges the corners";
  EXPECT_FALSE(rs.conhex);
  // A 3MF file is a valid input too.
  testing::internal::CaptureStdout();
  EXPECT_EQ(wf::convertto3mf(rs, "out.d/part_warp.3mf", "copy.3mf"), 0);
  testing::internal::GetCapturedStdout();
  ASSERT_TRUE(read3mf("copy.3mf", nv, nt));
  EXPECT_EQ(nt, 4u);
}

TEST(Convert3mf, UpperCaseExtensionIsAccepted) {
  wfo::InTempDir dir("c3mf_upper");
  wfo::writebinarystl("PART.STL", tetracorners);
  wf::RunState rs;
  rs.o3mfflag = true;
  rs.outstlpath = "PART.STL";
  std::string out = runstep(rs);
  EXPECT_TRUE(wft::contains(out, "done converting 3MF")) << out;
  unsigned nv = 0, nt = 0;
  EXPECT_TRUE(read3mf("PART.3mf", nv, nt));
  EXPECT_EQ(nt, 4u);
}

TEST(Convert3mf, OtherExtensionGivesMinus5AndTheWarning) {
  wfo::InTempDir dir("c3mf_ext");
  wfo::writebinarystl("part.obj", tetracorners);
  wf::RunState rs;
  testing::internal::CaptureStdout();
  EXPECT_EQ(wf::convertto3mf(rs, "part.obj", "part.3mf"), -5);
  EXPECT_EQ(wf::convertto3mf(rs, "noext", "3mf"), -5);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            banner + "unknown input file extension:.obj\n" + banner + "unknown input file extension:\n");
  rs.o3mfflag = true;
  rs.outstlpath = "part.obj";
  EXPECT_EQ(runstep(rs), banner + "unknown input file extension:.obj\n"
                                  " Warning:  3MF conversion was not successful.\n\n");
  EXPECT_FALSE(fs::exists("part.3mf"));
}

// After the post-warp check the path is a blank-padded field of 8192 characters; its
// extension then carries the blanks and matches no reader.
TEST(Convert3mf, PaddedPathGivesMinus5) {
  wfo::InTempDir dir("c3mf_pad");
  wfo::writebinarystl("job_1_warp.stl", tetracorners);
  wf::RunState rs;
  wfo::Signals sig(rs);
  rs.o3mfflag = true;
  rs.outstlpath = "job_1_warp.stl";
  rs.outstlpath.resize(8192, ' ');
  std::string out = runstep(rs);
  std::string ext = ".stl" + std::string(8192 - 14, ' ');
  EXPECT_EQ(out, banner + "unknown input file extension:" + ext + "\n"
                 " Warning:  3MF conversion was not successful.\n\n");
  EXPECT_FALSE(fs::exists("job_1_warp.3mf"));
  EXPECT_EQ(sig.text(), "");
  EXPECT_EQ(rs.outstlpath.size(), 8192u);
}

TEST(Convert3mf, UnreadableFileGivesMinus8InHexAndLeavesTheConsoleInHex) {
  wfo::InTempDir dir("c3mf_parse");
  wft::writefile("bad.stl", "this is no STL");
  wf::RunState rs;
  testing::internal::CaptureStdout();
  int status = wf::convertto3mf(rs, "bad.stl", "bad.3mf");
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(status, -8);
  auto lines = wft::splitlines(out);
  ASSERT_EQ(lines.size(), 5u) << out;
  EXPECT_EQ(lines[3], "reading bad.stl...");
  ASSERT_TRUE(lines[4].starts_with("could not parse file: ")) << lines[4];
  std::string hex = lines[4].substr(22);
  EXPECT_FALSE(hex.empty());
  EXPECT_EQ(hex.find_first_not_of("0123456789ABCDEF"), std::string::npos) << hex;
  EXPECT_TRUE(rs.conhex);
  EXPECT_EQ(wf::conint(rs, 255), "FF");
  EXPECT_FALSE(fs::exists("bad.3mf"));
}

TEST(Convert3mf, FailedWriteGivesMinus10) {
  wfo::InTempDir dir("c3mf_write");
  wfo::writebinarystl("part.stl", tetracorners);
  wf::RunState rs;
  testing::internal::CaptureStdout();
  int status = wf::convertto3mf(rs, "part.stl", "nofolder/part.3mf");
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(status, -10);
  EXPECT_TRUE(wft::contains(out, "writing nofolder/part.3mf...\ncould not write file: ")) << out;
  EXPECT_TRUE(rs.conhex);
  // The run goes on: the next conversion works.
  testing::internal::CaptureStdout();
  EXPECT_EQ(wf::convertto3mf(rs, "part.stl", "part.3mf"), 0);
  testing::internal::GetCapturedStdout();
}

TEST(Convert3mf, LibraryVersions) {
  wfo::InTempDir dir("c3mf_version");
  wfo::writebinarystl("part.stl", tetracorners);
  wf::RunState rs;
  {
    VersionOverride v([](uint32_t *a, uint32_t *b, uint32_t *c) { *a = 2, *b = 0, *c = 0; return 0; });
    testing::internal::CaptureStdout();
    EXPECT_EQ(wf::convertto3mf(rs, "part.stl", "part.3mf"), -2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), banner + "invalid 3MF Library major version: 1\n");
  }
  {
    VersionOverride v([](uint32_t *a, uint32_t *b, uint32_t *c) { *a = 1, *b = 4, *c = 9; return 0; });
    testing::internal::CaptureStdout();
    EXPECT_EQ(wf::convertto3mf(rs, "part.stl", "part.3mf"), -3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), banner + "invalid 3MF Library minor version: 5\n");
  }
  EXPECT_FALSE(fs::exists("part.3mf"));
  EXPECT_FALSE(rs.conhex);
  {
    VersionOverride v([](uint32_t *, uint32_t *, uint32_t *) { return static_cast<int>(0x80004005u); });
    testing::internal::CaptureStdout();
    EXPECT_EQ(wf::convertto3mf(rs, "part.stl", "part.3mf"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), banner + "could not get 3MF Library version: 80004005\n");
    EXPECT_TRUE(rs.conhex);
  }
  // The linked library passes the checks.
  uint32_t a = 0, b = 0, c = 0;
  EXPECT_EQ(wf::lib3mfinterfaceversion(&a, &b, &c), 0);
  EXPECT_EQ(a, 1u);
  EXPECT_GE(b, 5u);
}

}  // namespace
