// SPDX-License-Identifier: GPL-3.0-or-later
// The coloured 3MF package: the zip read back by unzip and by lib3MF's reader (a model of
// several deflate chunks, a tetrahedron, and a model without triangles), a zip that cannot be
// made, the zip64 flag, the folder's name, the colours of a surface of one magnitude, and a
// member that cannot be opened.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <limits>

#include <Model/COM/NMR_DLLInterfaces.h>

#include "outputs/colourscale.h"
#include "outputs/outcommon.h"
#include "outputs/package3mf.h"
#include "outputs/zippackage.h"
#include "reporting.h"
#include "testutil.h"

namespace fs = std::filesystem;

namespace {

const char *members[] = {"_rels/.rels", "3D/_rels/3dmodel.model.rels", "History/history.xml", "[Content_Types].xml",
                         "3D/3dmodel.model"};

struct InTempDir {
  fs::path old = fs::current_path();
  explicit InTempDir(const std::string &tag) { fs::current_path(wft::tempdir(tag)); }
  ~InTempDir() { fs::current_path(old); }
};

std::string shell(const std::string &cmd, int *status = nullptr) {
  std::string out;
  std::FILE *p = popen((cmd + " 2>&1").c_str(), "r");
  for (int c; (c = std::fgetc(p)) != EOF;) out += static_cast<char>(c);
  const int rc = pclose(p);
  if (status) *status = rc;
  return out;
}

// The first mesh object of a 3MF file as lib3MF's reader sees it; ok is false on any failure.
struct Lib3mfMesh {
  NMR::PLib3MFBase *model = nullptr, *reader = nullptr, *it = nullptr, *mesh = nullptr;
  DWORD nv = 0, nt = 0, warnings = 99;
  bool ok = false;
  explicit Lib3mfMesh(const std::string &path) {
    using namespace NMR;
    BOOL more = false;
    ok = lib3mf_createmodel(&model) == 0 && lib3mf_model_queryreader(model, "3mf", &reader) == 0 &&
         lib3mf_reader_readfromfileutf8(reader, path.c_str()) == 0 &&
         lib3mf_reader_getwarningcount(reader, &warnings) == 0 && lib3mf_model_getmeshobjects(model, &it) == 0 &&
         lib3mf_resourceiterator_movenext(it, &more) == 0 && more &&
         lib3mf_resourceiterator_getcurrent(it, &mesh) == 0 && lib3mf_meshobject_getvertexcount(mesh, &nv) == 0 &&
         lib3mf_meshobject_gettrianglecount(mesh, &nt) == 0;
  }
  ~Lib3mfMesh() {
    for (NMR::PLib3MFBase *h : {mesh, it, reader, model})
      if (h) NMR::lib3mf_release(h);
  }
};

// A tetrahedron with corners (0,0,0), (10,0,0), (0,10,0), (0,0,10), moved by (0,0,0), (1,0,0),
// (0,2,0), (0,0,4): displacement magnitudes 0, 1, 2, 4.
wf::SurfaceMesh tetra() {
  wf::SurfaceMesh m;
  m.nvrt = m.ntri = 4;
  m.prewarp = {0, 0, 0, 10, 0, 0, 0, 10, 0, 0, 0, 10};
  m.vrt = {0, 0, 0, 11, 0, 0, 0, 12, 0, 0, 0, 14};
  m.tri = {1, 3, 2, 1, 2, 4, 1, 4, 3, 2, 3, 4};
  return m;
}

// A sheet of n x n squares with a bumpy displacement: a model member of several megabytes.
wf::SurfaceMesh sheet(int n) {
  wf::SurfaceMesh m;
  for (int j = 0; j <= n; ++j)
    for (int i = 0; i <= n; ++i) {
      m.prewarp.insert(m.prewarp.end(), {0.1 * i, 0.1 * j, 0.0});
      m.vrt.insert(m.vrt.end(), {0.1 * i, 0.1 * j, 0.01 * std::sin(0.3 * i) * std::cos(0.2 * j)});
    }
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int32_t a = j * (n + 1) + i + 1, b = a + 1, c = a + n + 1, d = c + 1;
      m.tri.insert(m.tri.end(), {a, b, d, a, d, c});
    }
  m.nvrt = (n + 1) * (n + 1);
  m.ntri = 2 * n * n;
  return m;
}

std::string writepackage(const wf::SurfaceMesh &m, const std::string &folder) {
  wft::CapturedReporter cap;
  wf::write3mf(cap.rep, m, wf::dispsingle(m, "test"), folder);
  return cap.text();
}

}  // namespace

// The zip holds the members in their order, deflated, stamped with the members' write times,
// and unzips to the members byte for byte; lib3MF's reader takes every package without a
// warning, a model of several compressed chunks and one without triangles included.
TEST(Package3mf, ReadBackByUnzipAndLib3mf) {
  InTempDir dir("3mf_readback");
  wf::SurfaceMesh flat = tetra();
  flat.ntri = 0;
  const struct {
    const char *name;
    wf::SurfaceMesh mesh;
  } cases[] = {{"tetra", tetra()}, {"sheet", sheet(300)}, {"empty", flat}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    const std::string folder = std::string(c.name) + "_color";
    const std::string out = writepackage(c.mesh, folder);
    EXPECT_TRUE(out.ends_with("zip:  done\n Finished writing 3MF file " + folder + ".3mf\n")) << out;
    int status = 0;
    const std::string test = shell("unzip -t " + folder + ".3mf", &status);
    EXPECT_TRUE(status == 0 && wft::contains(test, "No errors detected")) << test;
    std::string onfile;
    for (const char *m : members) {
      std::string pattern;  // unzip takes brackets as a wildcard class
      for (const char *ch = m; *ch; ++ch) pattern += (*ch == '[' || *ch == ']') ? std::string("\\") + *ch : std::string(1, *ch);
      EXPECT_EQ(shell("unzip -p " + folder + ".3mf '" + pattern + "'"), wft::readfile(folder + "/" + m)) << m;
      struct stat st;
      ASSERT_EQ(stat((folder + "/" + m).c_str(), &st), 0);
      std::tm t{};
      localtime_r(&st.st_mtime, &t);
      t.tm_sec &= ~1;
      char when[32];
      std::strftime(when, sizeof when, "%Y%m%d.%H%M%S", &t);
      onfile += std::to_string(st.st_size) + " defN " + when + " " + m + "\n";
    }
    EXPECT_EQ(shell("unzip -Z -T " + folder + ".3mf | awk 'NF == 8 {print $4, $6, $7, $8}'"), onfile);
    Lib3mfMesh read(folder + ".3mf");
    EXPECT_TRUE(read.ok);
    EXPECT_EQ(read.warnings, 0u);
    EXPECT_EQ(read.nv, static_cast<DWORD>(c.mesh.nvrt));
    EXPECT_EQ(read.nt, static_cast<DWORD>(c.mesh.ntri));
  }
  EXPECT_GT(fs::file_size("sheet_color/3D/3dmodel.model"), 8u << 20);  // three chunks or more
  EXPECT_TRUE(wft::contains(wft::readfile("empty_color/3D/3dmodel.model"),
                            "\t\t\t\t<triangles>\n\t\t\t\t</triangles>\n"));
}

// A failed zip is reported and the run goes on; the zip64 flag starts at exactly 0xFFFFFFFF
// bytes.
TEST(Package3mf, ZipFailureAndZip64Flag) {
  InTempDir dir("3mf_zipfail");
  fs::create_directories("p_color.3mf");  // a folder where the zip should go
  EXPECT_TRUE(writepackage(tetra(), "p_color").ends_with("zip:  starting\nzip:  error opening \"p_color.3mf\"\n ERROR zipping\n"));
  EXPECT_TRUE(fs::is_directory("p_color.3mf"));
  std::FILE *f = std::fopen("big", "wb");
  const bool sparse = ftruncate(fileno(f), 0xFFFFFFFFLL) == 0;
  std::fclose(f);
  std::vector<int> flags;
  wft::CapturedReporter cap;
  for (const char *p : {"p_color/History/history.xml", "absent", "big"}) flags.push_back(wf::iszip64file(cap.rep, p, "pre: "));
  fs::remove("big");
  if (!sparse) GTEST_SKIP() << "no sparse file";
  EXPECT_EQ(flags, std::vector<int>({0, 0, 1}));
  EXPECT_EQ(cap.text(), "pre: file \"p_color/History/history.xml\" is 258 bytes\npre: file \"big\" is 4294967295 bytes\n");
}

// The folder is cut at the last dot of the whole path, also in a folder's name; a surface of one
// displacement magnitude (here none at all) gets -2147483648 at every corner and is written all
// the same; a member that cannot be opened after the model is reported under the model's name.
TEST(Package3mf, FolderNamesOneMagnitudeAndFailedMembers) {
  EXPECT_EQ(wf::packagefolder("job_1_warp.stl"), "job_1_warp_color");
  EXPECT_EQ(wf::packagefolder("out.v2/part.stl"), "out.v2/part_color");
  EXPECT_EQ(wf::packagefolder("out.v2/part"), "out_color");
  EXPECT_EQ(wf::packagefolder("part"), "_color");

  InTempDir dir("3mf_oddities");
  EXPECT_EQ(wf::colourindex(2.5f, 2.5f, 2.5f), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(wf::colourindex(4.0f, 0.0f, 4.0f), 1020);
  wf::SurfaceMesh still = tetra();
  still.vrt = still.prewarp;
  EXPECT_TRUE(writepackage(still, "still_color").ends_with(" Finished writing 3MF file still_color.3mf\n"));
  const std::string model = wft::readfile("still_color/3D/3dmodel.model");
  const std::string corners = " p1=\"-2147483648\" p2=\"-2147483648\" p3=\"-2147483648\" />";
  size_t found = 0;
  for (size_t p = model.find(corners); p != std::string::npos; p = model.find(corners, p + 1)) ++found;
  EXPECT_EQ(found, 4u) << model;

  fs::create_directories("broken_color");
  wft::writefile("broken_color/History", "a file where the folder belongs");
  const std::string fatal = wft::fatalof([&] { writepackage(tetra(), "broken_color"); });
  EXPECT_TRUE(fatal.starts_with("31 broken_color/3D/3dmodel.model ")) << fatal;
  EXPECT_TRUE(fs::exists("broken_color/3D/3dmodel.model"));
  EXPECT_TRUE(fs::exists("broken_color/_rels/.rels"));
}
