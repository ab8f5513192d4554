// SPDX-License-Identifier: GPL-2.0-or-later
// The plain 3MF conversion through lib3MF (*O3MF).
#include <regex>

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

// The console of f with the elapsed times as N and lib3MF's error statuses as X.
template <class F>
std::string console(F f) {
  std::string out = std::regex_replace(wfo::captured(f), std::regex("elapsed time: [0-9]+ms"), "elapsed time: Nms");
  return std::regex_replace(out, std::regex("(could not [a-z ]+: )[0-9A-F]+\n"), "$1X\n");
}

std::string converted(const std::string &in, const std::string &out) {
  return "reading " + in + "...\nelapsed time: Nms\nwriting " + out + "...\nelapsed time: Nms\ndone converting 3MF\n";
}

// The step (marked *) converts the surface beside it; another extension, and the blank-padded
// path of 8192 characters that the post-warp check leaves (its extension carries the blanks and
// matches no reader), give its warning, and the run goes on. The extension is lowered and
// compared whole; a status printed in hexadecimal leaves the console in hexadecimal; a library
// before 1.5 or after 1.x is refused. No signal is sent.
TEST(Convert3mf, StepAndStatuses) {
  auto v200 = [](uint32_t *a, uint32_t *b, uint32_t *c) { return *a = 2, *b = 0, *c = 0, 0; };
  auto v149 = [](uint32_t *a, uint32_t *b, uint32_t *c) { return *a = 1, *b = 4, *c = 9, 0; };
  auto fails = [](uint32_t *, uint32_t *, uint32_t *) { return int(0x80004005u); };
  const std::string padded = "job_1_warp.stl" + std::string(8192 - 14, ' ');
  const std::string warning = " Warning:  3MF conversion was not successful.\n\n";
  const struct { std::string in, out; int status; std::string text; wf::lib3mfversionfn query = nullptr; } cases[] = {
      {"*out.d/PART_WARP.STL", "out.d/PART_WARP.3mf", 0, converted("out.d/PART_WARP.STL", "out.d/PART_WARP.3mf")},
      {"out.d/PART_WARP.3mf", "copy.3mf", 0, converted("out.d/PART_WARP.3mf", "copy.3mf")},  // the case before
      {"*part.obj", "part.3mf", -5, "unknown input file extension:.obj\n" + warning},
      {"*" + padded, "job_1_warp.3mf", -5, "unknown input file extension:" + padded.substr(10) + "\n" + warning},
      {"noext", "3mf", -5, "unknown input file extension:\n"},
      {"bad.stl", "bad.3mf", -8, "reading bad.stl...\ncould not parse file: X\n"},
      {"part.stl", "nofolder/part.3mf", -10,
       "reading part.stl...\nelapsed time: Nms\nwriting nofolder/part.3mf...\ncould not write file: X\n"},
      {"part.stl", "v.3mf", -2, "invalid 3MF Library major version: 1\n", v200},
      {"part.stl", "v.3mf", -3, "invalid 3MF Library minor version: 5\n", v149},
      {"part.stl", "v.3mf", -1, "could not get 3MF Library version: 80004005\n", fails}};
  wfo::InTempDir dir("c3mf_status");
  fs::create_directories("out.d");
  for (const char *name : {"out.d/PART_WARP.STL", "part.obj", "job_1_warp.stl", "noext", "part.stl"})
    writetetrastl(name);
  wft::writefile("bad.stl", "this is no STL");
  for (const auto &c : cases) {
    SCOPED_TRACE(c.in.substr(0, 20) + " -> " + c.out);
    const bool step = c.in[0] == '*';
    wf::RunState rs;
    wfo::Signals sig(rs);
    rs.o3mfflag = true;
    rs.outstlpath = c.in.substr(step);
    wf::lib3mfversionquery = c.query ? c.query : wf::lib3mfinterfaceversion;
    int status = c.status;
    std::string out = console([&] {
      if (step) wf::convert3mfstep(rs);
      else status = wf::convertto3mf(rs, c.in.c_str(), c.out.c_str());
    });
    wf::lib3mfversionquery = wf::lib3mfinterfaceversion;
    EXPECT_EQ(out, banner + c.text);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(sig.text(), "");
    EXPECT_EQ(rs.outstlpath, c.in.substr(step));
    wfo::Lib3mfMesh mesh(c.out);  // the STL reader merges the corners
    EXPECT_EQ(std::pair(mesh.nv, mesh.nt), c.status == 0 ? std::pair(4u, 4u) : std::pair(0u, 0u));
    EXPECT_EQ(rs.conhex, c.status < -5 || c.status == -1);
    if (rs.conhex) EXPECT_EQ(wf::conint(rs, 255), "FF");
  }
}

}  // namespace
