// SPDX-License-Identifier: GPL-3.0-or-later
// The coloured 3MF package: the zip read back by unzip and by lib3MF's reader (a model of
// several deflate chunks, a tetrahedron, and a model without triangles), a zip that cannot be
// made, the zip64 flag, the folder's name, the colours of a surface of one magnitude, and a
// member that cannot be opened; the model member formatted in blocks against a plain row-by-row
// formatting (values out of the ordinary, both ways of writing, one and two threads), its
// stream against a deflate of the file read back, the zip from memory against the zip read
// back, and the failures of the model member's file.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <isa-l/igzip_lib.h>
#include <omp.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>

#include <Model/COM/NMR_DLLInterfaces.h>

#include "base/textio.h"
#include "outputs/colourscale.h"
#include "outputs/deflate.h"
#include "outputs/outcommon.h"
#include "outputs/package3mf.h"
#include "outputs/packagetext.h"
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

// The model member formatted a record at a time into one text, the plain way.
std::string modelrowbyrow(const wf::SurfaceMesh &mesh, const std::vector<float> &disp) {
  std::string t;
  auto rec = [&](int tabs, const std::string &text) {
    t += std::string(static_cast<size_t>(tabs), '\t') + text + "\n";
  };
  auto field = [](double v) {
    char f[16];
    wf::scifield(f, v, 16, 6);
    return std::string(f, 16);
  };
  rec(0, "<?xml version=\"1.0\" encoding=\"utf-8\"?>");
  rec(0, std::string(wf::modelstarttag()));
  rec(1, "<resources>");
  rec(2, "<m:colorgroup id=\"2\">");
  for (int i = 0; i < wf::ncolours; ++i) {
    int r, g, b;
    wf::colourscale(i, r, g, b);
    char hex[8];
    std::snprintf(hex, sizeof hex, "%02X%02X%02X", r, g, b);
    rec(3, std::string("<m:color color=\"#") + hex + "\" />");
  }
  rec(2, "</m:colorgroup>");
  const std::string uuid1(wf::uuid1), name(wf::objectname);
  rec(2, "<object id=\"1\" name=\"" + name + "\" partnumber=\"" + uuid1 + "\" type=\"model\" p:UUID=\"" + uuid1 +
             "\" pid=\"2\" pindex=\"0\">");
  rec(3, "<mesh>");
  rec(4, "<vertices>");
  const size_t n = mesh.nvrt > 0 ? static_cast<size_t>(mesh.nvrt) : 0;
  for (size_t i = 0; i < n; ++i) {
    const bool has = 3 * i + 2 < mesh.vrt.size();
    rec(5, "<vertex x=\"" + field(has ? mesh.vrt[3 * i] : 0.0) + "\" y=\"" + field(has ? mesh.vrt[3 * i + 1] : 0.0) +
               "\" z=\"" + field(has ? mesh.vrt[3 * i + 2] : 0.0) + "\" />");
  }
  rec(4, "</vertices>");
  std::vector<float> mag(n, 0.0f);
  for (size_t i = 0; i < n && 3 * i + 2 < disp.size(); ++i)
    mag[i] =
        std::sqrt(disp[3 * i] * disp[3 * i] + disp[3 * i + 1] * disp[3 * i + 1] + disp[3 * i + 2] * disp[3 * i + 2]);
  float lo = n ? mag[0] : 0.0f, hi = lo;
  for (float m : mag) lo = std::min(lo, m), hi = std::max(hi, m);
  auto colour = [&](int32_t v) {
    return v >= 1 && static_cast<size_t>(v) <= n ? wf::colourindex(mag[static_cast<size_t>(v - 1)], lo, hi) : 0;
  };
  rec(4, "<triangles>");
  const size_t nt = std::min(mesh.ntri > 0 ? static_cast<size_t>(mesh.ntri) : 0, mesh.tri.size() / 3);
  for (size_t i = 0; i < nt; ++i) {
    const int32_t *c = &mesh.tri[3 * i];
    rec(5, "<triangle v1=\"" + std::to_string(c[0] - 1) + "\" v2=\"" + std::to_string(c[1] - 1) + "\" v3=\"" +
               std::to_string(c[2] - 1) + "\" pid=\"2\" p1=\"" + std::to_string(colour(c[0])) + "\" p2=\"" +
               std::to_string(colour(c[1])) + "\" p3=\"" + std::to_string(colour(c[2])) + "\" />");
  }
  rec(4, "</triangles>");
  rec(3, "</mesh>");
  rec(2, "</object>");
  rec(1, "</resources>");
  rec(1, "<build p:UUID=\"" + std::string(wf::uuid2) + "\">");
  rec(2, "<item objectid=\"1\" partnumber=\"" + name + "\" p:UUID=\"" + std::string(wf::uuid3) + "\" />");
  rec(1, "</build>");
  rec(0, "</model>");
  return t;
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

// CRC-32 as zip stores it, bit by bit.
uint32_t crc32bits(const std::string &s) {
  uint32_t c = 0xFFFFFFFFu;
  for (unsigned char b : s) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return ~c;
}

// A raw deflate stream inflated (ISA-L's inflate); "<failed>" when it does not end as a stream.
std::string inflated(const std::vector<unsigned char> &stream, size_t size) {
  std::string out(size + 1, '\0');
  inflate_state st;
  isal_inflate_init(&st);
  st.crc_flag = ISAL_DEFLATE;
  st.next_in = const_cast<unsigned char *>(stream.data());
  st.avail_in = static_cast<uint32_t>(stream.size());
  st.next_out = reinterpret_cast<unsigned char *>(out.data());
  st.avail_out = static_cast<uint32_t>(out.size());
  if (isal_inflate(&st) != ISAL_DECOMP_OK || st.block_state != ISAL_BLOCK_FINISH) return "<failed>";
  out.resize(out.size() - st.avail_out);
  return out;
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

struct Threads {
  int old = omp_get_max_threads();
  explicit Threads(int n) { omp_set_num_threads(n); }
  ~Threads() { omp_set_num_threads(old); }
};

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
      for (const char *ch = m; *ch; ++ch)
        pattern += (*ch == '[' || *ch == ']') ? std::string("\\") + *ch : std::string(1, *ch);
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
  EXPECT_TRUE(
      wft::contains(wft::readfile("empty_color/3D/3dmodel.model"), "\t\t\t\t<triangles>\n\t\t\t\t</triangles>\n"));
}

// A failed zip is reported and the run goes on; the zip64 flag starts at exactly 0xFFFFFFFF
// bytes.
TEST(Package3mf, ZipFailureAndZip64Flag) {
  InTempDir dir("3mf_zipfail");
  fs::create_directories("p_color.3mf");  // a folder where the zip should go
  EXPECT_TRUE(writepackage(tetra(), "p_color")
                  .ends_with("zip:  starting\nzip:  error opening \"p_color.3mf\"\n ERROR zipping\n"));
  EXPECT_TRUE(fs::is_directory("p_color.3mf"));
  std::FILE *f = std::fopen("big", "wb");
  const bool sparse = ftruncate(fileno(f), 0xFFFFFFFFLL) == 0;
  std::fclose(f);
  std::vector<int> flags;
  wft::CapturedReporter cap;
  for (const char *p : {"p_color/History/history.xml", "absent", "big"})
    flags.push_back(wf::iszip64file(cap.rep, p, "pre: "));
  fs::remove("big");
  if (!sparse) GTEST_SKIP() << "no sparse file";
  EXPECT_EQ(flags, std::vector<int>({0, 0, 1}));
  EXPECT_EQ(cap.text(),
            "pre: file \"p_color/History/history.xml\" is 258 bytes\npre: file \"big\" is 4294967295 bytes\n");
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

// The model member formatted in blocks side by side is the row-by-row text to the byte, whether
// the whole text is held (and deflated) or goes through the bounded buffer, on one and on two
// threads; its stream is the deflate of that text (the stream of the text read back from the
// file), inflates to it, and carries its CRC.
TEST(Package3mf, ModelBlocksAreTheRowByRowText) {
  InTempDir dir("3mf_blocks");
  wf::SurfaceMesh still = sheet(20);
  still.vrt = still.prewarp;  // one magnitude: every colour -2147483648
  const struct {
    const char *name;
    wf::SurfaceMesh mesh;
  } cases[] = {{"tetra", tetra()}, {"sheet", sheet(300)}, {"oddities", oddities()}, {"still", still}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<float> disp = wf::dispsingle(c.mesh, "test");
    const std::string want = modelrowbyrow(c.mesh, disp);
    wf::Deflated first;
    for (int threads : {1, 2}) {
      SCOPED_TRACE(threads);
      Threads t(threads);
      const std::string path = std::string(c.name) + std::to_string(threads);
      wf::Deflated packed;
      ASSERT_TRUE(wf::writemodel(c.mesh, disp, path + ".whole", "report", &packed));
      EXPECT_FALSE(wf::writemodel(c.mesh, disp, path + ".bounded", "report"));
      EXPECT_TRUE(wft::readfile(path + ".whole") == want);
      EXPECT_TRUE(wft::readfile(path + ".bounded") == want);
      EXPECT_EQ(packed.size, want.size());
      EXPECT_EQ(packed.crc, crc32bits(want));
      EXPECT_TRUE(inflated(packed.data, want.size()) == want);
      wf::Deflated readback;
      ASSERT_TRUE(wf::deflateraw(reinterpret_cast<const unsigned char *>(want.data()), want.size(), readback));
      EXPECT_TRUE(packed.data == readback.data);
      if (threads == 1)
        first = packed;
      else
        EXPECT_TRUE(packed.data == first.data);
    }
  }
  EXPECT_TRUE(wft::contains(wft::readfile("oddities1.whole"),
                            "<vertex x=\"             NaN\" y=\"        Infinity\" z=\"       -Infinity\" />\n"));
  EXPECT_TRUE(wft::contains(wft::readfile("oddities1.whole"),
                            "<triangle v1=\"2147483646\" v2=\"-2147483648\" v3=\"1\" pid=\"2\" p1=\"0\" p2=\"0\""));
  EXPECT_TRUE(wft::contains(wft::readfile("still1.whole"), "p1=\"-2147483648\" p2=\"-2147483648\" p3=\"-2147483648\""));
  EXPECT_GT(fs::file_size("sheet1.whole"), 2 * wf::deflatechunk);
}

// The zip stores the model as deflated from memory: it is the zip that reads the member back
// from its file, byte for byte, with the same console lines; and the package is the same on one
// and on two threads (the entries' dates aside, which follow the files' write times).
TEST(Package3mf, ZipFromMemoryIsTheZipReadBack) {
  InTempDir dir("3mf_frommemory");
  const wf::SurfaceMesh m = sheet(300);
  std::string zips[2], lines[2];
  for (int threads : {1, 2}) {
    Threads t(threads);
    const std::string folder = "t" + std::to_string(threads) + "_color";
    const std::string out = writepackage(m, folder);
    lines[threads - 1] = out.substr(out.find("zip:  starting"));
    zips[threads - 1] = wft::readfile(folder + ".3mf");
    for (const char *member : members)
      EXPECT_TRUE(wft::readfile(folder + "/" + member) == wft::readfile("t1_color/" + std::string(member))) << member;
    wft::CapturedReporter cap;
    char list[] =
        "_rels/.rels\n3D/_rels/3dmodel.model.rels\nHistory/history.xml\n[Content_Types].xml\n3D/3dmodel.model\n";
    ASSERT_EQ(wf::zippackage(cap.rep, "readback.3mf", folder.c_str(), list), 0);
    EXPECT_TRUE(wft::readfile("readback.3mf") == zips[threads - 1]);
    std::string expect = lines[threads - 1];
    const std::string name = folder + ".3mf";
    expect.replace(expect.find(name), name.size(), "readback.3mf");
    EXPECT_EQ(cap.text(), expect.substr(0, expect.find(" Finished writing 3MF")));
  }
  for (size_t at; (at = lines[1].find("t2_color")) != std::string::npos;) lines[1].replace(at, 8, "t1_color");
  EXPECT_EQ(lines[1], lines[0]);
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
