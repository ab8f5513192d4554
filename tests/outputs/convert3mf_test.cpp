// SPDX-License-Identifier: GPL-2.0-or-later
// The plain 3MF conversion through lib3MF (*O3MF).
#include "outtest.h"

namespace {

const std::string banner = std::string(66, '-') + "\n3MF Model Converter\n" + std::string(66, '-') + "\n";

// A binary STL of a closed tetrahedron, normals zero.
void writetetrastl(const std::string &path) {
  const float corners[4][9] = {{0, 0, 0, 0, 10, 0, 10, 0, 0}, {0, 0, 0, 10, 0, 0, 0, 0, 10},
                               {0, 0, 0, 0, 0, 10, 0, 10, 0}, {10, 0, 0, 0, 10, 0, 0, 0, 10}};
  std::string s(80, ' ');
  s.append("\4\0\0\0", 4);
  for (const auto &c : corners) s.append(12, '\0').append(reinterpret_cast<const char *>(c), sizeof c).append(2, '\0');
  wft::writefile(path, s);
}

// The step converts the surface beside it and sends no signal. Another extension, and the
// blank-padded path of 8192 characters that the post-warp check leaves (its extension carries
// the blanks and matches no reader), give the warning, and the run goes on.
TEST(Convert3mf, Step) {
  wfo::InTempDir dir("c3mf_step");
  fs::create_directories("out.d");
  for (const char *name : {"out.d/part_warp.stl", "part.obj", "job_1_warp.stl"}) writetetrastl(name);
  std::string padded = "job_1_warp.stl" + std::string(8192 - 14, ' ');
  for (const std::string &path : {std::string("out.d/part_warp.stl"), std::string("part.obj"), padded}) {
    wf::RunState rs;
    wfo::Signals sig(rs);
    rs.o3mfflag = true;
    rs.outstlpath = path;
    std::string out = wfo::captured([&] { wf::convert3mfstep(rs); });
    EXPECT_EQ(sig.text(), "");
    EXPECT_EQ(rs.outstlpath, path);
    if (path != "out.d/part_warp.stl") {
      EXPECT_EQ(out, banner + "unknown input file extension:" + path.substr(path.rfind('.')) +
                         "\n Warning:  3MF conversion was not successful.\n\n");
      continue;
    }
    auto lines = wft::splitlines(out);
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines[3] + lines[5] + lines[7], "reading out.d/part_warp.stl...writing out.d/part_warp.3mf...done converting 3MF");
    for (int i : {4, 6}) EXPECT_TRUE(lines[i].starts_with("elapsed time: ") && lines[i].ends_with("ms")) << lines[i];
  }
  EXPECT_EQ(wfo::Lib3mfMesh("out.d/part_warp.3mf").nv, 4u) << "the STL reader merges the corners";
  EXPECT_FALSE(fs::exists("part.3mf") || fs::exists("job_1_warp.3mf"));
}

// The extension is lowered and compared whole; a status printed in hexadecimal leaves the
// console in hexadecimal.
TEST(Convert3mf, Statuses) {
  const struct { const char *in, *out; int status; const char *text; } cases[] = {
      {"PART.STL", "PART.3mf", 0, "done converting 3MF\n"},
      {"PART.3mf", "copy.3mf", 0, "done converting 3MF\n"},  // the file of the case before
      {"part.obj", "part.3mf", -5, "unknown input file extension:.obj\n"},
      {"noext", "3mf", -5, "unknown input file extension:\n"},
      {"bad.stl", "bad.3mf", -8, "reading bad.stl...\ncould not parse file: "},
      {"part.stl", "nofolder/part.3mf", -10, "writing nofolder/part.3mf...\ncould not write file: "}};
  wfo::InTempDir dir("c3mf_status");
  for (const char *name : {"PART.STL", "part.obj", "noext", "part.stl"}) writetetrastl(name);
  wft::writefile("bad.stl", "this is no STL");
  for (const auto &c : cases) {
    wf::RunState rs;
    int status = 1;
    std::string out = wfo::captured([&] { status = wf::convertto3mf(rs, c.in, c.out); });
    EXPECT_EQ(status, c.status) << c.in;
    size_t at = out.find(c.text);
    ASSERT_TRUE(out.starts_with(banner) && at != std::string::npos) << out;
    EXPECT_EQ(wfo::Lib3mfMesh(c.out).nt, c.status == 0 ? 4u : 0u) << c.out;
    std::string code = out.substr(at + std::strlen(c.text));
    EXPECT_EQ(rs.conhex, c.status < -5) << c.in;
    if (rs.conhex) EXPECT_TRUE(code.find_first_not_of("0123456789ABCDEF") == code.size() - 1 && wf::conint(rs, 255) == "FF") << code;
  }
}

TEST(Convert3mf, LibraryVersions) {
  wfo::InTempDir dir("c3mf_version");
  writetetrastl("part.stl");
  const struct { wf::lib3mfversionfn query; int status; const char *text; } cases[] = {
      {[](uint32_t *a, uint32_t *b, uint32_t *c) { return *a = 2, *b = 0, *c = 0, 0; }, -2, "invalid 3MF Library major version: 1\n"},
      {[](uint32_t *a, uint32_t *b, uint32_t *c) { return *a = 1, *b = 4, *c = 9, 0; }, -3, "invalid 3MF Library minor version: 5\n"},
      {[](uint32_t *, uint32_t *, uint32_t *) { return int(0x80004005u); }, -1, "could not get 3MF Library version: 80004005\n"}};
  for (const auto &c : cases) {
    wf::RunState rs;
    wf::lib3mfversionquery = c.query;
    int status = 1;
    std::string out = wfo::captured([&] { status = wf::convertto3mf(rs, "part.stl", "part.3mf"); });
    wf::lib3mfversionquery = wf::lib3mfinterfaceversion;
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(out, banner + c.text);
    EXPECT_EQ(rs.conhex, c.status == -1);
  }
  EXPECT_FALSE(fs::exists("part.3mf"));
}

}  // namespace
