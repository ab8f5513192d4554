// SPDX-License-Identifier: GPL-2.0-or-later
// The coloured 3MF package: members, colour scale, names, the zip through minizip, and a
// read-back with lib3MF's 3MF reader, unzip and minizip's unzip interface.
#include <Model/COM/NMR_DLLInterfaces.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unzip.h>

#include <cmath>
#include <ctime>
#include <filesystem>
#include <map>

#include "control/messages.h"
#include "outputs/colourscale.h"
#include "outputs/package3mf.h"
#include "outputs/packagetext.h"
#include "outtest.h"

namespace fs = std::filesystem;

namespace {

const char *members[] = {"_rels/.rels", "3D/_rels/3dmodel.model.rels", "History/history.xml",
                         "[Content_Types].xml", "3D/3dmodel.model"};

std::string colourhex(int index) {
  int r, g, b;
  wf::colourscale(index, r, g, b);
  char s[8];
  std::snprintf(s, sizeof s, "%02X%02X%02X", r, g, b);
  return s;
}

// Index of an sRGB colour on the scale, -1 when it is not on it.
int indexofcolour(int r, int g, int b) {
  for (int i = 0; i < wf::ncolours; ++i) {
    int rr, gg, bb;
    wf::colourscale(i, rr, gg, bb);
    if (rr == r && gg == g && bb == b) return i;
  }
  return -1;
}

std::string runstep(wf::RunState &rs) {
  testing::internal::CaptureStdout();
  wf::write3mfstep(rs);
  return testing::internal::GetCapturedStdout();
}

TEST(ColourScale, RunBoundaries) {
  EXPECT_EQ(colourhex(0), "0000FF");
  EXPECT_EQ(colourhex(254), "00FEFF");
  EXPECT_EQ(colourhex(255), "00FFFF");
  EXPECT_EQ(colourhex(509), "00FF01");
  EXPECT_EQ(colourhex(510), "00FF00");
  EXPECT_EQ(colourhex(764), "FEFF00");
  EXPECT_EQ(colourhex(765), "FFFF00");
  EXPECT_EQ(colourhex(1020), "FF0000");
  // Every entry is distinct, so a colour read back names its index.
  std::map<std::string, int> seen;
  for (int i = 0; i < wf::ncolours; ++i) EXPECT_TRUE(seen.emplace(colourhex(i), i).second) << i;
}

TEST(ColourScale, IndexRule) {
  EXPECT_EQ(wf::colourindex(0.0f, 0.0f, 4.0f), 0);
  EXPECT_EQ(wf::colourindex(4.0f, 0.0f, 4.0f), 1020);
  EXPECT_EQ(wf::colourindex(1.0f, 0.0f, 4.0f), 255);
  EXPECT_EQ(wf::colourindex(3.0f, 0.0f, 4.0f), 765);
  EXPECT_EQ(wf::colourindex(1.0f, 0.0f, 3.0f), 340);
  EXPECT_EQ(wf::colourindex(0.999f, 0.0f, 3.0f), 339);  // the largest integer not above
  EXPECT_EQ(wf::colourindex(2.0f, 2.0f, 2.0f), INT32_MIN);  // 0 over 0
}

TEST(Package3mf, OffWritesNothing) {
  wfo::InTempDir dir("3mf_off");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.o3dmflag = false;
  rs.outstlpath = "part_warp.stl";
  EXPECT_EQ(runstep(rs), "");
  EXPECT_FALSE(fs::exists("part_warp_color"));
  EXPECT_FALSE(fs::exists("part_warp_color.3mf"));
}

TEST(Package3mf, ModelStartTagHas585Characters) {
  std::string_view tag = wf::modelstarttag();
  EXPECT_EQ(tag.size(), 585u);
  EXPECT_EQ(tag.substr(0, 13), "<model xmlns=");
  EXPECT_TRUE(wft::contains(std::string(tag),
                            "\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\" unit=\"millimeter\" xml:lang=\"en-US\" xmlns:m="));
  // The prefixes in their order.
  size_t pos = 0;
  for (const char *p : {" xmlns:m=\"", " xmlns:p=\"", " xmlns:l=\"", " xmlns:t=\"", " xmlns:b=\"",
                        " xmlns:bt=\"", " xmlns:s=\""}) {
    size_t at = tag.find(p, pos);
    ASSERT_NE(at, std::string_view::npos) << p;
    pos = at + 1;
  }
  EXPECT_EQ(tag.back(), '>');
}

TEST(Package3mf, MembersConsoleAndSignals) {
  wfo::InTempDir dir("3mf_members");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  fs::create_directories("a");
  rs.outstlpath = "a/part_warp.stl";
  std::string out = runstep(rs);
  EXPECT_EQ(rs.outstlpath, "a/part_warp.stl");
  const std::string folder = "a/part_warp_color";

  // Console: the model line, two empty lines, the zip lines, the package line.
  std::string expect = " Finished writing 3dmodel file " + folder + "/3D/3dmodel.model\n\n\n"
                       "zip:  starting\nzip:  creating \"" + folder + ".3mf\"\n";
  for (const char *m : members) {
    std::string path = folder + "/" + m;
    expect += "zip:  file \"" + path + "\" is " + std::to_string(fs::file_size(path)) + " bytes\n";
  }
  expect += "zip:  done\n Finished writing 3MF file " + folder + ".3mf\n";
  EXPECT_EQ(out, expect);
  EXPECT_EQ(sig.text(), wfo::finishedevent(folder + "/3D/3dmodel.model") + "\n" +
                            wfo::finishedevent(folder + ".3mf") + "\n");

  EXPECT_EQ(wft::readfile(folder + "/_rels/.rels"),
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
            "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">\n"
            "\t<Relationship Type=\"http://schemas.microsoft.com/3dmanufacturing/2013/01/3dmodel\" "
            "Target=\"/3D/3dmodel.model\" Id=\"rel0\" />\n"
            "</Relationships>\n");
  auto rels = wft::splitlines(wft::readfile(folder + "/3D/_rels/3dmodel.model.rels"));
  ASSERT_EQ(rels.size(), 4u);
  EXPECT_EQ(rels[1], std::string(wf::relationshipsstarttag()));
  EXPECT_TRUE(rels[2].starts_with("\t<Relationship Type=\"http"));
  EXPECT_TRUE(rels[2].ends_with("/zqm/tessero/history/2018/06\" Target=\"/History/history.xml\" Id=\"rel1\" />"));
  EXPECT_EQ(wft::readfile(folder + "/History/history.xml"),
            "<root>\n\t<history partnumber=\"00000000-0000-0000-0000-000000000001\">\n"
            "\t\t<history_node identifier=\"tessero_modify\">\n"
            "\t\t\t<history_item key=\"date_raw\" value=\"185485.63\"/>\n"
            "\t\t\t<history_item key=\"date\" value=\"28.02.1991 13:37\"/>\n"
            "\t\t</history_node>\n\t</history>\n</root>\n");
  auto types = wft::splitlines(wft::readfile(folder + "/[Content_Types].xml"));
  ASSERT_EQ(types.size(), 11u);
  EXPECT_EQ(types[1], "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">");
  EXPECT_EQ(types[4], "\t<Default Extension=\"model\" ContentType=\"application/vnd.ms-package.3dmanufacturing-3dmodel+xml\" />");
  EXPECT_EQ(types[8], "\t<Default Extension=\"kardoimport\" ContentType=\"application/kardoimport\" />");
  EXPECT_EQ(types[10], "</Types>");

  auto model = wft::splitlines(wft::readfile(folder + "/3D/3dmodel.model"));
  ASSERT_EQ(model.size(), 2u + 2 + 1021 + 1 + 1 + 1 + 1 + 4 + 1 + 1 + 4 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1);
  EXPECT_EQ(model[0], "<?xml version=\"1.0\" encoding=\"utf-8\"?>");
  EXPECT_EQ(model[1], std::string(wf::modelstarttag()));
  EXPECT_EQ(model[2], "\t<resources>");
  EXPECT_EQ(model[3], "\t\t<m:colorgroup id=\"2\">");
  EXPECT_EQ(model[4], "\t\t\t<m:color color=\"#0000FF\" />");
  EXPECT_EQ(model[4 + 765], "\t\t\t<m:color color=\"#FFFF00\" />");
  EXPECT_EQ(model[4 + 1020], "\t\t\t<m:color color=\"#FF0000\" />");
  size_t k = 4 + 1021;
  EXPECT_EQ(model[k++], "\t\t</m:colorgroup>");
  EXPECT_EQ(model[k++], "\t\t<object id=\"1\" name=\"tessero-sim-result\" partnumber=\"00000000-0000-0000-0000-000000000001\" type=\"model\" p:UUID=\"00000000-0000-0000-0000-000000000001\" pid=\"2\" pindex=\"0\">");
  EXPECT_EQ(model[k++], "\t\t\t<mesh>");
  EXPECT_EQ(model[k++], "\t\t\t\t<vertices>");
  EXPECT_EQ(model[k++], "\t\t\t\t\t<vertex x=\"    0.000000E+00\" y=\"    0.000000E+00\" z=\"    0.000000E+00\" />");
  EXPECT_EQ(model[k++], "\t\t\t\t\t<vertex x=\"    1.100000E+01\" y=\"    0.000000E+00\" z=\"    0.000000E+00\" />");
  k += 2;
  EXPECT_EQ(model[k++], "\t\t\t\t</vertices>");
  EXPECT_EQ(model[k++], "\t\t\t\t<triangles>");
  // Magnitudes 0, 1, 2, 4: indices 0, 255, 510 and 1020.
  EXPECT_EQ(model[k++], "\t\t\t\t\t<triangle v1=\"0\" v2=\"2\" v3=\"1\" pid=\"2\" p1=\"0\" p2=\"510\" p3=\"255\" />");
  EXPECT_EQ(model[k++], "\t\t\t\t\t<triangle v1=\"0\" v2=\"1\" v3=\"3\" pid=\"2\" p1=\"0\" p2=\"255\" p3=\"1020\" />");
  k += 2;
  EXPECT_EQ(model[k++], "\t\t\t\t</triangles>");
  EXPECT_EQ(model[k++], "\t\t\t</mesh>");
  EXPECT_EQ(model[k++], "\t\t</object>");
  EXPECT_EQ(model[k++], "\t</resources>");
  EXPECT_EQ(model[k++], "\t<build p:UUID=\"00000000-0000-0000-0000-000000000002\">");
  EXPECT_EQ(model[k++], "\t\t<item objectid=\"1\" partnumber=\"tessero-sim-result\" p:UUID=\"00000000-0000-0000-0000-000000000003\" />");
  EXPECT_EQ(model[k++], "\t</build>");
  EXPECT_EQ(model[k++], "</model>");
}

// The zip: entries in their order, deflated, DOS times from the members' write times, and a
// clean test by unzip.
TEST(Package3mf, ZipEntriesAndDates) {
  wfo::InTempDir dir("3mf_zip");
  wf::RunState rs;
  wfo::grid(rs, 20, 10);
  rs.outstlpath = "g_warp.stl";
  runstep(rs);
  int status = 0;
  std::string test = wfo::shell("unzip -t g_warp_color.3mf", &status);
  EXPECT_EQ(status, 0) << test;
  EXPECT_TRUE(wft::contains(test, "No errors detected")) << test;

  unzFile uf = unzOpen("g_warp_color.3mf");
  ASSERT_NE(uf, nullptr);
  unz_global_info global;
  ASSERT_EQ(unzGetGlobalInfo(uf, &global), UNZ_OK);
  EXPECT_EQ(global.number_entry, 5u);
  int i = 0;
  for (int err = unzGoToFirstFile(uf); err == UNZ_OK; err = unzGoToNextFile(uf), ++i) {
    unz_file_info info;
    char name[256];
    ASSERT_EQ(unzGetCurrentFileInfo(uf, &info, name, sizeof name, nullptr, 0, nullptr, 0), UNZ_OK);
    ASSERT_LT(i, 5);
    EXPECT_STREQ(name, members[i]);
    EXPECT_EQ(info.compression_method, 8u);
    std::string path = std::string("g_warp_color/") + members[i];
    EXPECT_EQ(info.uncompressed_size, fs::file_size(path));
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    std::tm tm{};
    localtime_r(&st.st_mtime, &tm);
    EXPECT_EQ(info.tmu_date.tm_year, static_cast<unsigned>(tm.tm_year + 1900));
    EXPECT_EQ(info.tmu_date.tm_mon, static_cast<unsigned>(tm.tm_mon));
    EXPECT_EQ(info.tmu_date.tm_mday, static_cast<unsigned>(tm.tm_mday));
    EXPECT_EQ(info.tmu_date.tm_hour, static_cast<unsigned>(tm.tm_hour));
    EXPECT_EQ(info.tmu_date.tm_min, static_cast<unsigned>(tm.tm_min));
    EXPECT_EQ(info.tmu_date.tm_sec, static_cast<unsigned>(tm.tm_sec / 2 * 2));
    // The content is the member on disk.
    ASSERT_EQ(unzOpenCurrentFile(uf), UNZ_OK);
    std::string content(info.uncompressed_size, '\0');
    EXPECT_EQ(unzReadCurrentFile(uf, content.data(), static_cast<unsigned>(content.size())),
              static_cast<int>(content.size()));
    EXPECT_EQ(unzCloseCurrentFile(uf), UNZ_OK) << "crc check";
    EXPECT_EQ(content, wft::readfile(path));
  }
  EXPECT_EQ(i, 5);
  unzClose(uf);
}

// lib3MF's reader on our package: the mesh and the colour of every corner.
TEST(Package3mf, ReadBackWithLib3mf) {
  wfo::InTempDir dir("3mf_lib3mf");
  wf::RunState rs;
  wfo::grid(rs, 9, 6);
  rs.outstlpath = "g_warp.stl";
  runstep(rs);

  using namespace NMR;
  PLib3MFModel *model = nullptr;
  ASSERT_EQ(lib3mf_createmodel(&model), 0);
  PLib3MFModelReader *reader = nullptr;
  ASSERT_EQ(lib3mf_model_queryreader(model, "3mf", &reader), 0);
  ASSERT_EQ(lib3mf_reader_readfromfileutf8(reader, "g_warp_color.3mf"), 0);
  DWORD warnings = 99;
  ASSERT_EQ(lib3mf_reader_getwarningcount(reader, &warnings), 0);
  EXPECT_EQ(warnings, 0u);
  PLib3MFModelResourceIterator *it = nullptr;
  ASSERT_EQ(lib3mf_model_getmeshobjects(model, &it), 0);
  BOOL more = false;
  ASSERT_EQ(lib3mf_resourceiterator_movenext(it, &more), 0);
  ASSERT_TRUE(more);
  PLib3MFModelResource *mesh = nullptr;
  ASSERT_EQ(lib3mf_resourceiterator_getcurrent(it, &mesh), 0);
  DWORD nv = 0, nt = 0;
  ASSERT_EQ(lib3mf_meshobject_getvertexcount(mesh, &nv), 0);
  ASSERT_EQ(lib3mf_meshobject_gettrianglecount(mesh, &nt), 0);
  EXPECT_EQ(nv, static_cast<DWORD>(rs.nvrt));
  EXPECT_EQ(nt, static_cast<DWORD>(rs.ntri));
  std::vector<MODELMESHVERTEX> verts(nv);
  std::vector<MODELMESHTRIANGLE> tris(nt);
  ASSERT_EQ(lib3mf_meshobject_getvertices(mesh, verts.data(), nv, nullptr), 0);
  ASSERT_EQ(lib3mf_meshobject_gettriangleindices(mesh, tris.data(), nt, nullptr), 0);
  for (DWORD v = 0; v < nv; ++v)
    for (int k = 0; k < 3; ++k)
      EXPECT_NEAR(verts[v].m_fPosition[k], rs.stlvrt[3 * v + k], 1e-5 * (1 + std::fabs(rs.stlvrt[3 * v + k])));

  // Colour indices computed here from the rule: magnitude in single precision, scaled to
  // 0..1020 between the surface's own smallest and largest magnitude.
  std::vector<float> mag(static_cast<size_t>(rs.nvrt));
  for (int v = 0; v < rs.nvrt; ++v) {
    float d[3];
    for (int k = 0; k < 3; ++k) d[k] = static_cast<float>(rs.stlvrt[3 * v + k] - rs.prewarpvertices[3 * v + k]);
    mag[v] = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
  }
  float lo = *std::min_element(mag.begin(), mag.end()), hi = *std::max_element(mag.begin(), mag.end());
  PLib3MFPropertyHandler *props = nullptr;
  ASSERT_EQ(lib3mf_meshobject_createpropertyhandler(mesh, &props), 0);
  bool sawlow = false, sawhigh = false;
  for (DWORD t = 0; t < nt; ++t) {
    for (int k = 0; k < 3; ++k) EXPECT_EQ(tris[t].m_nIndices[k], static_cast<DWORD>(rs.stltri[3 * t + k] - 1));
    eModelPropertyType type;
    ASSERT_EQ(lib3mf_propertyhandler_getpropertytype(props, t, &type), 0);
    EXPECT_EQ(type, MODELPROPERTYTYPE_COLOR);
    MODELMESH_TRIANGLECOLOR_SRGB colours;
    ASSERT_EQ(lib3mf_propertyhandler_getcolor(props, t, &colours), 0);
    for (int k = 0; k < 3; ++k) {
      int v = rs.stltri[3 * t + k] - 1;
      int expect = static_cast<int>(std::floor((mag[v] - lo) * 1020.0f / (hi - lo)));
      const MODELMESHCOLOR_SRGB &c = colours.m_Colors[k];
      EXPECT_EQ(indexofcolour(c.m_Red, c.m_Green, c.m_Blue), expect) << "triangle " << t << " corner " << k;
      sawlow |= expect == 0;
      sawhigh |= expect == 1020;
    }
  }
  EXPECT_TRUE(sawlow && sawhigh);
  lib3mf_release(props);
  lib3mf_release(mesh);
  lib3mf_release(it);
  lib3mf_release(reader);
  lib3mf_release(model);
}

TEST(Package3mf, ZeroDisplacementGivesTheSmallestInteger) {
  wfo::InTempDir dir("3mf_zero");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.stlvrt = rs.prewarpvertices;
  rs.outstlpath = "z.stl";
  std::string out = runstep(rs);
  EXPECT_TRUE(wft::contains(out, "zip:  done"));
  std::string model = wft::readfile("z_color/3D/3dmodel.model");
  size_t n = 0;
  for (size_t at = model.find("<triangle "); at != std::string::npos; at = model.find("<triangle ", at + 1)) {
    size_t end = model.find('\n', at);
    std::string rec = model.substr(at, end - at);
    EXPECT_TRUE(wft::contains(rec, "p1=\"-2147483648\" p2=\"-2147483648\" p3=\"-2147483648\"")) << rec;
    ++n;
  }
  EXPECT_EQ(n, 4u);
  int status = 0;
  wfo::shell("unzip -t z_color.3mf", &status);
  EXPECT_EQ(status, 0);
}

TEST(Package3mf, SurfaceWithoutTriangles) {
  wfo::InTempDir dir("3mf_notri");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.ntri = 0;
  rs.stltri.clear();
  rs.outstlpath = "e.stl";
  runstep(rs);
  std::string model = wft::readfile("e_color/3D/3dmodel.model");
  EXPECT_TRUE(wft::contains(model, "\t\t\t\t<triangles>\n\t\t\t\t</triangles>\n"));
  EXPECT_TRUE(fs::exists("e_color.3mf"));
}

TEST(Package3mf, FolderNamesFromTheLastDot) {
  wfo::InTempDir dir("3mf_names");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.outstlpath = "nodot";
  runstep(rs);
  EXPECT_TRUE(fs::exists("_color/3D/3dmodel.model"));
  EXPECT_TRUE(fs::exists("_color.3mf"));
  EXPECT_EQ(rs.outstlpath, "nodot");
  fs::remove_all("_color");
  fs::remove("_color.3mf");
  rs.outstlpath = ".stl";
  runstep(rs);
  EXPECT_TRUE(fs::exists("_color.3mf"));
  fs::create_directories("x.d");
  rs.outstlpath = "x.d/part";
  runstep(rs);
  EXPECT_TRUE(fs::exists("x_color/History/history.xml"));
  EXPECT_TRUE(fs::exists("x_color.3mf"));
  EXPECT_EQ(rs.outstlpath, "x.d/part");
}

TEST(Package3mf, SecondRunReplacesMembersAndZip) {
  wfo::InTempDir dir("3mf_again");
  wf::RunState rs;
  wfo::grid(rs, 30, 30);
  rs.outstlpath = "r.stl";
  runstep(rs);
  auto bigzip = fs::file_size("r_color.3mf");
  wfo::tetra(rs);
  runstep(rs);
  EXPECT_LT(fs::file_size("r_color.3mf"), bigzip);
  std::string inzip = wfo::shell("unzip -p r_color.3mf 3D/3dmodel.model");
  EXPECT_EQ(inzip, wft::readfile("r_color/3D/3dmodel.model"));
  // Header, colour group, object and mesh openings, 4 vertices, 4 triangles, closings.
  EXPECT_EQ(wft::splitlines(inzip).size(), 2u + 2 + 1021 + 1 + 3 + 4 + 2 + 4 + 1 + 7);
}

TEST(Package3mf, ZipFailureIsReportedAndTheRunGoesOn) {
  wfo::InTempDir dir("3mf_zipfail");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  fs::create_directories("p_color.3mf");  // a folder where the zip should go
  rs.outstlpath = "p.stl";
  std::string out = runstep(rs);
  EXPECT_TRUE(wft::contains(out, "zip:  starting\nzip:  error opening \"p_color.3mf\"\n ERROR zipping\n")) << out;
  EXPECT_FALSE(wft::contains(out, "Finished writing 3MF file"));
  EXPECT_EQ(sig.text(), wfo::finishedevent("p_color/3D/3dmodel.model") + "\n");
  EXPECT_TRUE(fs::exists("p_color/3D/3dmodel.model"));
}

TEST(Package3mf, ZipPackageMissingMember) {
  wfo::InTempDir dir("3mf_missing");
  wf::RunState rs;
  fs::create_directories("f");
  wft::writefile("f/one.txt", "first member\n");
  char list[] = "one.txt\nmissing.txt\none.txt\n";
  testing::internal::CaptureStdout();
  int status = wf::zippackage(rs, "out.zip", "f", list);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(status, -1);
  EXPECT_EQ(out, "zip:  starting\nzip:  creating \"out.zip\"\nzip:  file \"f/one.txt\" is 13 bytes\n"
                 "zip:  error in opening \"f/missing.txt\" for reading\n");
  EXPECT_STREQ(list, "one.txt") << "the list is split in place";
}

TEST(Package3mf, ZipPackageLeadingSlashesAreSkipped) {
  wfo::InTempDir dir("3mf_slash");
  wf::RunState rs;
  fs::create_directories("f/sub");
  wft::writefile("f/sub/a.txt", "alpha");
  char list[] = "/sub/a.txt\n";
  testing::internal::CaptureStdout();
  EXPECT_EQ(wf::zippackage(rs, "s.zip", "f", list), 0);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(wfo::shell("unzip -Z1 s.zip"), "sub/a.txt\n");
}

TEST(Package3mf, Zip64Test) {
  wfo::InTempDir dir("3mf_zip64");
  wft::writefile("small", "12345");
  testing::internal::CaptureStdout();
  EXPECT_EQ(wf::iszip64file("small", "pre: "), 0);
  EXPECT_EQ(wf::iszip64file("absent", "pre: "), 0);
  // A sparse file of exactly 0xFFFFFFFF bytes is already a zip64 member.
  std::FILE *f = std::fopen("big", "wb");
  ASSERT_NE(f, nullptr);
  bool sparse = ftruncate(fileno(f), 0xFFFFFFFFLL) == 0;
  std::fclose(f);
  int big = sparse ? wf::iszip64file("big", "") : -1;
  std::string out = testing::internal::GetCapturedStdout();
  fs::remove("big");
  std::string expect = "pre: file \"small\" is 5 bytes\n";
  if (sparse) expect += "file \"big\" is 4294967295 bytes\n";
  EXPECT_EQ(out, expect);
  if (sparse) EXPECT_EQ(big, 1);
}

TEST(Package3mf, MemberOpenFailuresNameTheModel) {
  wfo::InTempDir dir("3mf_openfail");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::catalogue(rs);
  wfo::tetra(rs);
  fs::create_directories("q_color");
  wft::writefile("q_color/_rels", "a file where a folder belongs");
  rs.outstlpath = "q.stl";
  testing::internal::CaptureStdout();
  EXPECT_THROW(wf::write3mfstep(rs), wf::RunAborted);
  testing::internal::GetCapturedStdout();
  std::string s = sig.text();
  EXPECT_TRUE(wft::contains(s, wfo::finishedevent("q_color/3D/3dmodel.model"))) << s;
  EXPECT_TRUE(wft::contains(s, "\"code\": 31, \"variables\": [\"q_color/3D/3dmodel.model\"")) << s;
  // The failed member is _rels/.rels, but the message names the model member.
  EXPECT_FALSE(wft::contains(s, ".rels")) << s;
}

}  // namespace
