// SPDX-License-Identifier: GPL-2.0-or-later
// The coloured 3MF package: colour scale, members, the zip through minizip, and read-backs with
// lib3MF's 3MF reader and unzip.
#include "outtest.h"

namespace {

const char *members[] = {"_rels/.rels", "3D/_rels/3dmodel.model.rels", "History/history.xml", "[Content_Types].xml",
                         "3D/3dmodel.model"};

std::string colourhex(int index) {
  int r, g, b;
  wf::colourscale(index, r, g, b);
  char s[8];
  std::snprintf(s, sizeof s, "%02X%02X%02X", r, g, b);
  return s;
}

std::string runstep(wf::RunState &rs) { return wfo::captured([&] { wf::write3mfstep(rs); }); }

TEST(ColourScale, RunBoundariesAndIndexRule) {
  const std::pair<int, const char *> scale[] = {{0, "0000FF"},   {254, "00FEFF"}, {255, "00FFFF"}, {509, "00FF01"},
                                                {510, "00FF00"}, {764, "FEFF00"}, {765, "FFFF00"}, {1020, "FF0000"}};
  for (auto [i, rgb] : scale) EXPECT_EQ(colourhex(i), rgb) << i;
  // The largest integer not above the scaled value; 0 over 0 gives the smallest integer.
  const struct { float m, lo, hi; int32_t index; } rule[] = {
      {0, 0, 4, 0}, {4, 0, 4, 1020}, {1, 0, 4, 255}, {3, 0, 4, 765}, {1, 0, 3, 340}, {0.999f, 0, 3, 339}, {2, 2, 2, INT32_MIN}};
  for (auto r : rule) EXPECT_EQ(wf::colourindex(r.m, r.lo, r.hi), r.index) << r.m << " " << r.hi;
}

// Console, signals, the suite's own history member, the model records, and the zip.
TEST(Package3mf, MembersConsoleSignalsAndZip) {
  wfo::InTempDir dir("3mf_members");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  fs::create_directories("a");
  rs.outstlpath = "a/part_warp.stl";
  std::string out = runstep(rs), folder = "a/part_warp_color";
  std::string expect = " Finished writing 3dmodel file " + folder + "/3D/3dmodel.model\n\n\nzip:  starting\n"
                       "zip:  creating \"" + folder + ".3mf\"\n";
  for (const char *m : members)
    expect += "zip:  file \"" + folder + "/" + m + "\" is " + std::to_string(fs::file_size(folder + "/" + m)) + " bytes\n";
  EXPECT_EQ(out, expect + "zip:  done\n Finished writing 3MF file " + folder + ".3mf\n");
  EXPECT_EQ(sig.text(), wfo::finishedevent(folder + "/3D/3dmodel.model") + wfo::finishedevent(folder + ".3mf"));
  // What lib3MF's reader does not look at: relationship ids, the suite's own history relation,
  // content type and member.
  for (auto [member, text] : {std::pair{"/_rels/.rels", "Target=\"/3D/3dmodel.model\" Id=\"rel0\" />\n"},
                              {"/3D/_rels/3dmodel.model.rels", "/history/2018/06\" Target=\"/History/history.xml\" Id=\"rel1\" />\n"},
                              {"/[Content_Types].xml", "\t<Default Extension=\"kardoimport\" ContentType=\"application/kardoimport\" />\n"}})
    EXPECT_TRUE(wft::contains(wft::readfile(folder + member), text)) << member;
  EXPECT_EQ(wft::readfile(folder + "/History/history.xml"),
            "<root>\n\t<history partnumber=\"00000000-0000-0000-0000-000000000001\">\n"
            "\t\t<history_node identifier=\"tessero_modify\">\n\t\t\t<history_item key=\"date_raw\" value=\"185485.63\"/>\n"
            "\t\t\t<history_item key=\"date\" value=\"28.02.1991 13:37\"/>\n\t\t</history_node>\n\t</history>\n</root>\n");

  // The model to the byte, in what lib3MF's reader would accept in other shapes too: tabs,
  // attribute order, number form, the item's partnumber holding the object name. The start tag
  // is one record of 585 characters.
  const std::string starttag =
      "<model xmlns=\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\" unit=\"millimeter\" xml:lang=\"en-US\""
      " xmlns:m=\"http://schemas.microsoft.com/3dmanufacturing/material/2015/02\""
      " xmlns:p=\"http://schemas.microsoft.com/3dmanufacturing/production/2015/06\""
      " xmlns:l=\"http://schemas.corvanta.com/zqm/loadcase/2016/08\""
      " xmlns:t=\"http://schemas.corvanta.com/zqm/tetrahedron/2017/01\""
      " xmlns:b=\"http://schemas.microsoft.com/3dmanufacturing/beamlattice/2017/02\""
      " xmlns:bt=\"http://schemas.corvanta.com/zqm/beamlatticetag/2017/02\""
      " xmlns:s=\"http://schemas.microsoft.com/3dmanufacturing/slice/2015/07\">";
  EXPECT_EQ(starttag.size(), 585u);
  EXPECT_EQ(wf::modelstarttag(), starttag);
  std::string colours;
  for (int i = 0; i < wf::ncolours; ++i) colours += "\t\t\t<m:color color=\"#" + colourhex(i) + "\" />\n";
  EXPECT_EQ(wft::readfile(folder + "/3D/3dmodel.model"),
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" + starttag + "\n\t<resources>\n\t\t<m:colorgroup id=\"2\">\n" +
                colours +
                "\t\t</m:colorgroup>\n"
                "\t\t<object id=\"1\" name=\"tessero-sim-result\" partnumber=\"00000000-0000-0000-0000-000000000001\" "
                "type=\"model\" p:UUID=\"00000000-0000-0000-0000-000000000001\" pid=\"2\" pindex=\"0\">\n"
                "\t\t\t<mesh>\n\t\t\t\t<vertices>\n"
                "\t\t\t\t\t<vertex x=\"    0.000000E+00\" y=\"    0.000000E+00\" z=\"    0.000000E+00\" />\n"
                "\t\t\t\t\t<vertex x=\"    1.100000E+01\" y=\"    0.000000E+00\" z=\"    0.000000E+00\" />\n"
                "\t\t\t\t\t<vertex x=\"    0.000000E+00\" y=\"    1.200000E+01\" z=\"    0.000000E+00\" />\n"
                "\t\t\t\t\t<vertex x=\"    0.000000E+00\" y=\"    0.000000E+00\" z=\"    1.400000E+01\" />\n"
                "\t\t\t\t</vertices>\n\t\t\t\t<triangles>\n"
                // Magnitudes 0, 1, 2, 4: indices 0, 255, 510 and 1020.
                "\t\t\t\t\t<triangle v1=\"0\" v2=\"2\" v3=\"1\" pid=\"2\" p1=\"0\" p2=\"510\" p3=\"255\" />\n"
                "\t\t\t\t\t<triangle v1=\"0\" v2=\"1\" v3=\"3\" pid=\"2\" p1=\"0\" p2=\"255\" p3=\"1020\" />\n"
                "\t\t\t\t\t<triangle v1=\"0\" v2=\"3\" v3=\"2\" pid=\"2\" p1=\"0\" p2=\"1020\" p3=\"510\" />\n"
                "\t\t\t\t\t<triangle v1=\"1\" v2=\"2\" v3=\"3\" pid=\"2\" p1=\"255\" p2=\"510\" p3=\"1020\" />\n"
                "\t\t\t\t</triangles>\n\t\t\t</mesh>\n\t\t</object>\n\t</resources>\n"
                "\t<build p:UUID=\"00000000-0000-0000-0000-000000000002\">\n"
                "\t\t<item objectid=\"1\" partnumber=\"tessero-sim-result\" p:UUID=\"00000000-0000-0000-0000-000000000003\" />\n"
                "\t</build>\n</model>\n");

  // The zip: a clean test by unzip; entries in their order, deflated, of the members' sizes,
  // stamped with the members' write times in local time (to the even second, as DOS keeps it).
  int status = 0;
  std::string test = wfo::shell("unzip -t " + folder + ".3mf", &status), onfile;
  EXPECT_TRUE(status == 0 && wft::contains(test, "No errors detected")) << test;
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
  EXPECT_EQ(wfo::shell("unzip -Z -T " + folder + ".3mf | awk 'NF == 8 {print $4, $6, $7, $8}'"), onfile);
}

// A second run replaces the members and the zip. A surface of zero displacement has 0 over 0
// as its scale and the smallest integer at every corner. Otherwise the scale runs between the
// surface's own extremes: magnitudes 1, 2, 3, 5 give indices 0, 255, 510, 1020, and lib3MF's
// reader takes the package without a warning. A surface without triangles has an empty
// <triangles> element.
TEST(Package3mf, RerunsScaleExtremesAndNoTriangles) {
  wfo::InTempDir dir("3mf_again");
  wf::RunState rs;
  wfo::tetra(rs);
  rs.stlvrt = rs.prewarpvertices;
  rs.outstlpath = "r.stl";
  runstep(rs);
  size_t n = 0;
  for (const std::string &line : wft::splitlines(wfo::shell("unzip -p r_color.3mf 3D/3dmodel.model")))
    if (wft::contains(line, "<triangle ") && ++n)
      EXPECT_TRUE(line.ends_with(" p1=\"-2147483648\" p2=\"-2147483648\" p3=\"-2147483648\" />")) << line;
  EXPECT_EQ(n, 4u);

  rs.stlvrt = {0, 0, 1, 12, 0, 0, 0, 13, 0, 0, 0, 15};
  EXPECT_TRUE(runstep(rs).ends_with("zip:  done\n Finished writing 3MF file r_color.3mf\n"));
  std::string model = wfo::shell("unzip -p r_color.3mf 3D/3dmodel.model");
  EXPECT_EQ(model, wft::readfile("r_color/3D/3dmodel.model"));
  for (const char *rec : {"<triangle v1=\"0\" v2=\"2\" v3=\"1\" pid=\"2\" p1=\"0\" p2=\"510\" p3=\"255\" />\n",
                          "<triangle v1=\"1\" v2=\"2\" v3=\"3\" pid=\"2\" p1=\"255\" p2=\"510\" p3=\"1020\" />\n"})
    EXPECT_TRUE(wft::contains(model, rec)) << rec;
  wfo::Lib3mfMesh mesh("r_color.3mf");
  EXPECT_TRUE(mesh.ok && mesh.nv == 4 && mesh.nt == 4 && mesh.warnings == 0) << mesh.nv << " " << mesh.nt;
  rs.ntri = 0;
  runstep(rs);
  EXPECT_TRUE(wft::contains(wfo::shell("unzip -p r_color.3mf 3D/3dmodel.model"),
                            "z=\"    1.500000E+01\" />\n\t\t\t\t</vertices>\n\t\t\t\t<triangles>\n\t\t\t\t</triangles>\n"));
}

// A failed zip is reported and the run goes on; the zip64 flag starts at exactly 0xFFFFFFFF
// bytes.
TEST(Package3mf, ZipFailureAndZip64Flag) {
  wfo::InTempDir dir("3mf_zipfail");
  wf::RunState rs;
  wfo::Signals sig(rs);
  wfo::tetra(rs);
  fs::create_directories("p_color.3mf");  // a folder where the zip should go
  rs.outstlpath = "p.stl";
  EXPECT_TRUE(runstep(rs).ends_with("zip:  starting\nzip:  error opening \"p_color.3mf\"\n ERROR zipping\n"));
  EXPECT_EQ(sig.text(), wfo::finishedevent("p_color/3D/3dmodel.model"));

  std::FILE *f = std::fopen("big", "wb");
  bool sparse = ftruncate(fileno(f), 0xFFFFFFFFLL) == 0;
  std::fclose(f);
  std::vector<int> flags;
  std::string out = wfo::captured([&] {
    for (const char *p : {"p_color/History/history.xml", "absent", "big"}) flags.push_back(wf::iszip64file(p, "pre: "));
  });
  fs::remove("big");
  if (!sparse) GTEST_SKIP() << "no sparse file";
  EXPECT_EQ(flags, std::vector<int>({0, 0, 1}));
  EXPECT_EQ(out, "pre: file \"p_color/History/history.xml\" is 258 bytes\npre: file \"big\" is 4294967295 bytes\n");
}

}  // namespace
