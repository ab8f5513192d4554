// SPDX-License-Identifier: GPL-3.0-or-later
// The coloured 3MF package where no regression job takes it: a model of many blocks and deflate
// chunks, one without triangles, values out of the ordinary, the bounded buffer, two threads, the
// zip made from the member's file, the zip64 flag, the folder's name, a surface of one magnitude,
// members and model files that cannot be written. Read back by unzip, lib3MF and row by row.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <omp.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>
#include <optional>
#include <tuple>
#include <vector>

#include <Model/COM/NMR_DLLInterfaces.h>

#include "base/textio.h"
#include "outputs/colourscale.h"
#include "outputs/deflate.h"
#include "outputs/outcommon.h"
#include "outputs/package3mf.h"
#include "outputs/packagetext.h"
#include "outputs/zippackage.h"
#include "reporting.h"
#include "shapes.h"
#include "testutil.h"

namespace fs = std::filesystem;

namespace {

const char *members[] = {"_rels/.rels", "3D/_rels/3dmodel.model.rels", "History/history.xml", "[Content_Types].xml",
                         "3D/3dmodel.model"};

// A shell command run in the current folder: its status and output.
wft::RunResult shell(const std::string &cmd) { return wft::runprogram("/bin/sh", {"-c", cmd}, fs::current_path()); }

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

// A note of the zip as "event name number".
std::string notetext(const wf::ZipNote &n) {
  return std::to_string(static_cast<int>(n.event)) + " " + n.name + " " + std::to_string(n.number);
}

// A package as written: its files and the zip's notes.
struct Written {
  wf::PackageFiles files;
  std::vector<wf::ZipNote> notes;
};
Written writepackage(const wf::SurfaceMesh &m, const std::string &folder) {
  Written w;
  w.files = wf::write3mf(m, wf::dispsingle(m, "test"), folder, {}, [&](const wf::ZipNote &n) { w.notes.push_back(n); });
  return w;
}

std::vector<std::string> notetexts(const std::vector<wf::ZipNote> &notes) {
  std::vector<std::string> r;
  for (const wf::ZipNote &n : notes) r.push_back(notetext(n));
  return r;
}

// The rows of a model member read back: every vertex row the mesh's coordinates to the six
// digits written, every triangle row its corners less one, as many of each as the mesh has.
// Returns the rows that do not match, "" when all do. (The colour table and the colours are the
// regression set's.)
std::string rowsthatdiffer(const std::string &text, const wf::SurfaceMesh &m) {
  size_t nv = 0, nt = 0;
  std::string bad;
  for (const std::string &l : wft::splitlines(text)) {
    double x[3];
    int v[3];
    if (std::sscanf(l.c_str(), " <vertex x=\"%lf\" y=\"%lf\" z=\"%lf\" />", &x[0], &x[1], &x[2]) == 3) {
      for (size_t k = 0; k < 3 && 3 * nv + k < m.vrt.size(); ++k)
        if (!(std::fabs(x[k] - m.vrt[3 * nv + k]) <= 6e-7 * std::fabs(m.vrt[3 * nv + k]))) bad += l + "\n";
      ++nv;
    } else if (std::sscanf(l.c_str(), " <triangle v1=\"%d\" v2=\"%d\" v3=\"%d\"", &v[0], &v[1], &v[2]) == 3) {
      for (size_t k = 0; k < 3; ++k)
        if (3 * nt + k >= m.tri.size() || v[k] != m.tri[3 * nt + k] - 1) bad += l + "\n";
      ++nt;
    }
  }
  if (nv != static_cast<size_t>(m.nvrt) || nt != static_cast<size_t>(m.ntri))
    bad += "counts " + std::to_string(nv) + " " + std::to_string(nt) + "\n";
  return bad;
}

// A surface with what a model member meets at its edges: coordinates that are not numbers,
// infinite, of three-digit exponents and negative zero; vertices without coordinates (written
// at the origin); corners naming no vertex, at the ends of the 32-bit range (colour 0); more
// triangles counted than stored.
wf::SurfaceMesh oddities() {
  wf::SurfaceMesh m;
  const double inf = std::numeric_limits<double>::infinity();
  m.vrt = {std::nan(""), inf, -inf, 1e300, -1.5e-200, -0.0, 123456.789, -9.999999e99, 1e-5};
  m.prewarp = {0, 0, 0, 1, 2, 3, 120000.0, -9.9e99, 0};
  m.nvrt = 5;
  m.tri = {1, 2, 3, 0, -7, 6, INT_MAX, -INT_MAX, 2, 5, 4, 1};
  m.ntri = 6;
  return m;
}

// A zip's bytes with the DOS dates and times of its entries (local and central) set to zero.
std::string undated(std::string zip) {
  auto u16 = [&](size_t at) {
    return static_cast<size_t>(static_cast<unsigned char>(zip[at]) | static_cast<unsigned char>(zip[at + 1]) << 8);
  };
  auto u32 = [&](size_t at) { return u16(at) | u16(at + 2) << 16; };
  const size_t end = zip.rfind("PK\x05\x06");
  if (end == std::string::npos) return "<no zip>";
  size_t cd = u32(end + 16);
  for (size_t k = u16(end + 10); k > 0 && cd + 46 <= zip.size(); --k) {
    std::memset(zip.data() + cd + 12, 0, 4);
    const size_t local = u32(cd + 42);
    if (local + 14 <= zip.size()) std::memset(zip.data() + local + 10, 0, 4);
    cd += 46 + u16(cd + 28) + u16(cd + 30) + u16(cd + 32);
  }
  return zip;
}

struct NamedMesh {
  const char *name;
  wf::SurfaceMesh mesh;
};

struct Threads {
  int old = omp_get_max_threads();
  explicit Threads(int n) { omp_set_num_threads(n); }
  ~Threads() { omp_set_num_threads(old); }
};

}  // namespace

// The zip's entries are stamped with the members' write times and pass unzip's test (their order,
// contents and the zip's notes are the regression set's); lib3MF's reader takes every package
// without a warning, a model of several compressed chunks and one without triangles included.
TEST(Package3mf, ReadBackByUnzipAndLib3mf) {
  wft::InTempDir dir("3mf_readback");
  wf::SurfaceMesh flat = wft::movedtetra();
  flat.ntri = 0;
  const NamedMesh cases[] = {{"tetra", wft::movedtetra()}, {"sheet", sheet(300)}, {"empty", flat}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    const std::string folder = std::string(c.name) + "_color";
    const Written w = writepackage(c.mesh, folder);
    EXPECT_EQ(std::pair(w.files.zipstatus, w.files.zipname), std::pair(0, folder + ".3mf"));
    const wft::RunResult test = shell("unzip -t " + folder + ".3mf");
    EXPECT_TRUE(test.status == 0 && wft::contains(test.out, "No errors detected")) << test.out;
    std::string onfile;
    for (const char *m : members) {
      struct stat st;
      ASSERT_EQ(stat((folder + "/" + m).c_str(), &st), 0);
      std::tm t{};
      localtime_r(&st.st_mtime, &t);
      t.tm_sec &= ~1;
      char when[32];
      std::strftime(when, sizeof when, "%Y%m%d.%H%M%S", &t);
      onfile += std::to_string(st.st_size) + " defN " + when + " " + m + "\n";
    }
    EXPECT_EQ(shell("unzip -Z -T " + folder + ".3mf | awk 'NF == 8 {print $4, $6, $7, $8}'").out, onfile);
    Lib3mfMesh read(folder + ".3mf");
    EXPECT_EQ(std::tuple(read.ok, read.warnings, read.nv, read.nt),
              std::tuple(true, DWORD{0}, DWORD(c.mesh.nvrt), DWORD(c.mesh.ntri)));
  }
  EXPECT_GT(fs::file_size("sheet_color/3D/3dmodel.model"), 8u << 20);  // three chunks or more
  EXPECT_TRUE(
      wft::contains(wft::readfile("empty_color/3D/3dmodel.model"), "\t\t\t\t<triangles>\n\t\t\t\t</triangles>\n"));
}

// The zip64 flag starts at exactly 0xFFFFFFFF bytes, and a file that cannot be opened has no
// size. (A zip that cannot be made is a test of the package's step, tests/steps.)
TEST(Package3mf, Zip64Flag) {
  wft::InTempDir dir("3mf_zip64");
  wft::writefile("small", std::string(258, 'x'));
  std::FILE *f = std::fopen("big", "wb");
  const bool sparse = ftruncate(fileno(f), 0xFFFFFFFFLL) == 0;
  std::fclose(f);
  std::vector<int> flags;
  std::vector<std::optional<long long>> sizes;
  for (const char *p : {"small", "absent", "big"}) {
    std::optional<long long> bytes = 7;
    flags.push_back(wf::iszip64file(p, &bytes));
    sizes.push_back(bytes);
  }
  fs::remove("big");
  if (!sparse) GTEST_SKIP() << "no sparse file";
  EXPECT_EQ(flags, std::vector<int>({0, 0, 1}));
  EXPECT_EQ(sizes, std::vector<std::optional<long long>>({258, std::nullopt, 4294967295LL}));
}

// The folder is cut at the last dot of the whole path, also in a folder's name; a surface of one
// displacement magnitude (here none at all) gets -2147483648 at every corner and is written all
// the same; a member that cannot be opened after the model is reported under the model's name.
TEST(Package3mf, FolderNamesOneMagnitudeAndFailedMembers) {
  EXPECT_EQ(wf::packagefolder("job_1_warp.stl"), "job_1_warp_color");
  EXPECT_EQ(wf::packagefolder("out.v2/part.stl"), "out.v2/part_color");
  EXPECT_EQ(wf::packagefolder("out.v2/part"), "out_color");
  EXPECT_EQ(wf::packagefolder("part"), "_color");

  wft::InTempDir dir("3mf_oddities");
  EXPECT_EQ(wf::colourindex(2.5f, 2.5f, 2.5f), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(wf::colourindex(4.0f, 0.0f, 4.0f), 1020);
  wf::SurfaceMesh still = wft::movedtetra();
  still.vrt = still.prewarp;
  EXPECT_EQ(writepackage(still, "still_color").files.zipstatus, 0);
  const std::string model = wft::readfile("still_color/3D/3dmodel.model");
  const std::string corners = " p1=\"-2147483648\" p2=\"-2147483648\" p3=\"-2147483648\" />";
  size_t found = 0;
  for (size_t p = model.find(corners); p != std::string::npos; p = model.find(corners, p + 1)) ++found;
  EXPECT_EQ(found, 4u) << model;

  fs::create_directories("broken_color");
  wft::writefile("broken_color/History", "a file where the folder belongs");
  const std::string fatal = wft::fatalof([&] { writepackage(wft::movedtetra(), "broken_color"); });
  EXPECT_TRUE(fatal.starts_with("31 broken_color/3D/3dmodel.model ")) << fatal;
  EXPECT_TRUE(fs::exists("broken_color/3D/3dmodel.model") && fs::exists("broken_color/_rels/.rels"));
}

// The model member formatted in blocks side by side reads back row by row, and is the same text
// to the byte whether it is held whole or goes through the bounded buffer, on one and on two
// threads (the sheet has many blocks, more than one stripe of the buffer).
TEST(Package3mf, ModelBlocksReadBackRowByRow) {
  wft::InTempDir dir("3mf_blocks");
  const NamedMesh cases[] = {{"tetra", wft::movedtetra()}, {"sheet", sheet(300)}, {"oddities", oddities()}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<float> disp = wf::dispsingle(c.mesh, "test");
    std::string first;
    for (int threads : {1, 2}) {
      Threads t(threads);
      const std::string path = std::string(c.name) + std::to_string(threads);
      wf::Deflated packed;
      ASSERT_TRUE(wf::writemodel(c.mesh, disp, path + ".whole", "report", &packed));
      EXPECT_FALSE(wf::writemodel(c.mesh, disp, path + ".bounded", "report"));
      if (first.empty()) first = wft::readfile(path + ".whole");
      EXPECT_TRUE(wft::readfile(path + ".whole") == first) << threads;
      EXPECT_TRUE(wft::readfile(path + ".bounded") == first) << threads;
      EXPECT_EQ(packed.size, first.size());
    }
    if (c.name != std::string("oddities")) {
      EXPECT_EQ(rowsthatdiffer(first, c.mesh), "");
    }
  }
  // The rows of an ordinary surface are the regression set's; these are the edges of the form.
  const std::string odd = wft::readfile("oddities1.whole");
  EXPECT_TRUE(wft::contains(odd, "<vertex x=\"             NaN\" y=\"        Infinity\" z=\"       -Infinity\" />\n"));
  EXPECT_TRUE(
      wft::contains(odd, "<triangle v1=\"2147483646\" v2=\"-2147483648\" v3=\"1\" pid=\"2\" p1=\"0\" p2=\"0\""));
}

// The zip stores the model as deflated from memory: it is the zip that reads the member back
// from its file, byte for byte, with the same notes; and the package is the same on one and on
// two threads (the entries' dates aside, which follow the files' write times).
TEST(Package3mf, ZipFromMemoryIsTheZipReadBack) {
  wft::InTempDir dir("3mf_frommemory");
  const wf::SurfaceMesh m = sheet(300);
  std::string zips[2];
  for (int threads : {1, 2}) {
    Threads t(threads);
    const std::string folder = "t" + std::to_string(threads) + "_color";
    std::vector<std::string> notes = notetexts(writepackage(m, folder).notes);
    zips[threads - 1] = wft::readfile(folder + ".3mf");
    std::vector<wf::ZipNote> readback;
    char list[] =
        "_rels/.rels\n3D/_rels/3dmodel.model.rels\nHistory/history.xml\n[Content_Types].xml\n3D/3dmodel.model\n";
    ASSERT_EQ(wf::zippackage("readback.3mf", folder.c_str(), list, nullptr,
                             [&](const wf::ZipNote &n) { readback.push_back(n); }),
              0);
    EXPECT_TRUE(wft::readfile("readback.3mf") == zips[threads - 1]);
    ASSERT_EQ(notes.size(), 8u);  // starting, created, the five members, done
    notes[1] = notetext({wf::ZipEvent::created, "readback.3mf", 0});
    EXPECT_EQ(notetexts(readback), notes);
  }
  EXPECT_TRUE(undated(zips[0]) == undated(zips[1]));
  EXPECT_NE(undated(zips[0]), "<no zip>");
}

// The model member's file: one that cannot be opened is message 31 naming the report path, one
// that cannot be written message 200 naming the file with the system's error, whether the text
// is held whole or goes through the bounded buffer, on one and on two threads.
TEST(Package3mf, ModelFileFailures) {
  const wf::SurfaceMesh m = sheet(40);
  const std::vector<float> disp = wf::dispsingle(m, "test");
  for (int threads : {1, 2}) {
    Threads t(threads);
    for (bool whole : {true, false}) {
      wf::Deflated packed;
      wf::Deflated *to = whole ? &packed : nullptr;
      const std::string missing = wft::tempdir("3mf_fail") + "/absent/3D/3dmodel.model";
      EXPECT_EQ(wft::fatalof([&] { wf::writemodel(m, disp, missing, "the model", to); }), "31 the model 2 the model");
      EXPECT_EQ(wft::fatalof([&] { wf::writemodel(m, disp, "/dev/full", "the model", to); }), "200 /dev/full 28");
    }
  }
}
