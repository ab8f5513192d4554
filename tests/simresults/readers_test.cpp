// SPDX-License-Identifier: GPL-3.0-or-later
// The solver's result files: the case file (early ends, the cloud layout),
// the geometry file in both forms (ids on and off, padded names, broken files) and the
// displacement file (both forms, early ends). A broken file must end in the coded
// read message that names it, before anything out of proportion is allocated.
#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "reporting.h"
#include "simresults/readcase.h"
#include "simresults/readgeo.h"
#include "simresults/readvariable.h"
#include "testutil.h"

using namespace wf;
using ints = std::vector<int32_t>;

namespace {

// Every test runs in its own empty folder, which is the current folder while it runs.
struct InFolder : ::testing::Test {
  wft::InTempDir dir{"simres"};
  std::vector<std::string> told;  // the moments of the case reads, "stage set value name"
  void SetUp() override { std::filesystem::create_directories("results"); }
  CaseInfo readtelling(const std::string &path) {
    return readcase(path, Folder(), [&](const CaseEvent &e) {
      told.push_back(std::to_string(static_cast<int>(e.stage)) + " " + std::to_string(e.set) + " " +
                     std::to_string(e.value) + " " + e.name);
    });
  }
};

// Sequential binary records as the solver writes them.
struct Records {
  std::string b;
  void rec(const void *p, size_t n) {
    const int32_t m = static_cast<int32_t>(n);
    b.append(reinterpret_cast<const char *>(&m), 4).append(static_cast<const char *>(p), n);
    b.append(reinterpret_cast<const char *>(&m), 4);
  }
  void text(std::string s) {
    s.resize(80, ' ');
    rec(s.data(), 80);
  }
  void i(int32_t v) { rec(&v, 4); }
  template <class T>
  void vals(const std::vector<T> &v) {
    rec(v.data(), sizeof(T) * v.size());
  }
};

// A Fatal's "code variables..." begins with want (the code, then the variables the test names).
bool begins(const std::string &got, const std::string &want) { return (got + " ").rfind(want + " ", 0) == 0; }

// Two hexahedra sharing a face: 12 nodes.
struct Geo {
  std::string first = "C Binary";
  bool extents = true;
  std::vector<float> xyz[3];
  ints nodeids, elemids;  // empty: "off"
  ints conn = {1, 2, 5, 4, 7, 8, 11, 10, 2, 3, 6, 5, 8, 9, 12, 11};
  int32_t nn = 12, ne = 2;  // the counts written
  Geo() {
    for (int i = 0; i < 12; ++i) {
      xyz[0].push_back(0.1f * static_cast<float>(i % 3));
      xyz[1].push_back(0.3f * static_cast<float>(i / 3 % 2));
      xyz[2].push_back(1.7f * static_cast<float>(i / 6));
    }
  }
  std::string binary() const {
    Records r;
    for (const char *t : {first.c_str(), "description one", "description two"}) r.text(t);
    r.text(nodeids.empty() ? "node id off" : "node id given");
    r.text(elemids.empty() ? "element id off" : "element id given");
    if (extents) r.text("extents"), r.vals(std::vector<float>{0, 0.2f, 0, 0.3f, 0, 1.7f});
    r.text("part"), r.i(1), r.text("two hexahedra"), r.text("coordinates"), r.i(nn);
    if (!nodeids.empty()) r.vals(nodeids);
    r.vals(xyz[0]), r.vals(xyz[1]), r.vals(xyz[2]), r.text("hexa8"), r.i(ne);
    if (!elemids.empty()) r.vals(elemids);
    r.vals(conn);
    return r.b;
  }
  // Text form: ids on under a word other than "off" and other than that of the binary form.
  std::string text() const {
    std::string s = "description one\ndescription two\n";
    s += std::string(nodeids.empty() ? "node id off\n" : "node id assign\n") +
         (elemids.empty() ? "element id off\n" : "element id given\n");
    if (extents) s += "extents\n 0.0 0.2\n 0.0 0.3\n 0.0 1.7\n";
    s += "part\n         1\ntwo hexahedra\ncoordinates\n" + std::to_string(nn) + "\n";
    char b[32];
    for (int32_t id : nodeids) s += std::to_string(id) + "\n";
    for (const auto &c : xyz)
      for (float v : c) s.append(b, static_cast<size_t>(std::snprintf(b, sizeof b, "%12.9g\n", double(v))));
    s += "hexa8\n" + std::to_string(ne) + "\n";
    for (int32_t id : elemids) s += std::to_string(id) + "\n";
    for (size_t k = 0; k < conn.size(); ++k) s += " " + std::to_string(conn[k]) + (k % 8 == 7 ? "\n" : "");
    return s;
  }
};

using ReadCase = InFolder;
using ReadGeo = InFolder;
using ReadVariable = InFolder;

}  // namespace

TEST_F(ReadCase, EarlyEndsAndBadNumbersNameTheFile) {
  const std::string set = "time set: 1\nnumber of steps: ", imp = set + "1\nfilename start number: ";
  for (const auto &[text, code] : std::vector<std::pair<std::string, std::string>>{
           {"", "28"},
           {imp + "1\nfilename increment: 1\ntime values:\n1\n", "28"},  // one set only
           {set + "2\nfilename numbers:\n1\n", "28"},                    // too few numbers
           {set + "2\nfilename numbers:\n1\ntime values:\n1\n2\n", "29"},
           {set + "many\n", "29"},
           {set + "-1\n", "28"},                             // taken as it stands: the next word is not found
           {set + "2000000000\nfilename numbers:\n", "28"},  // read as far as the file goes
           {set + "2000000000\nfilename numbers:\n1 2\nx\n", "29"},
           {set + "\n", "28"},
           {imp + "\nfilename increment: 1\n", "28"},  // a blank number
           {imp + "1\nfilename increment:\n", "28"},
           {imp + "1\n", "28"},
           {imp + "x\nfilename increment: 1\n", "29"},
           {imp + "1\nfilename increment: 1\ntime values:\nlate\n", "29"}}) {
    SCOPED_TRACE(text);
    wft::writefile("bad.case", text);
    EXPECT_PRED2(begins, wft::fatalof([&] { readcase("bad.case"); }), code + " bad.case");
  }
  // A negative count of steps is taken as it stands, with empty lists.
  wft::writefile("neg.case", set + "-3\nfilename start number: 1\nfilename increment: 1\ntime values:\n" + set +
                                 "1\nfilename numbers:\n4\ntime values:\n0\n");
  const CaseInfo neg = readtelling("neg.case");
  EXPECT_EQ(std::tuple(neg.ninc, neg.resultnums.size(), neg.resulttimes.size(), neg.nmesh), std::tuple(-3, 0u, 0u, 1));
  // The moments in order: the file, the count, implicit numbering with start and step, the
  // second set's count and its explicit numbering.
  EXPECT_EQ(told, (std::vector<std::string>{"1 0 0 neg.case", "2 0 -3 neg.case", "3 0 0 neg.case", "4 0 1 neg.case",
                                            "5 0 1 neg.case", "2 1 1 neg.case", "6 1 0 neg.case"}));
}

TEST_F(ReadCase, MissingCaseAndTheCloudDescriptor) {
  // No case file and no descriptor: the three lines, then message 30.
  EXPECT_PRED2(begins, wft::fatalof([&] { readtelling("job.case"); }), "30 job.case");
  EXPECT_EQ(told, std::vector<std::string>{"0 0 0 job.case"});
  // With a descriptor (named by the text before the last "_mechanical"; no word: ".awskel") the
  // case is read from the cloud folder under the fixed stem, with the suffix form of the name.
  const std::string body =
      "time set: 1\nnumber of steps: 1\nfilename start number: 4\nfilename increment: 1\n"
      "time values:\n7\ntime set: 2\nnumber of steps: 1\nfilename numbers:\n3\ntime values:\n0\n";
  std::filesystem::create_directories("cloud/run/sim");
  wft::writefile("cloud/run/sim/kelmechanical.case", body);
  wft::writefile("cloud/run/sim/kelmechanical_c.case", body);
  wft::writefile("p_mechanical.awskel", R"({"outputDir": "cloud/run", "other": 1})");
  wft::writefile(".awskel", R"({"outputDir": "cloud/run"})");
  for (auto [given, read] : {std::pair{"p_mechanical_mechanical.case", "kelmechanical.case"},
                             {"p_mechanical_mechanical_c.case", "kelmechanical_c.case"},
                             {"other.case", "kelmechanical.case"}}) {
    told.clear();
    const CaseInfo c = readtelling(given);
    EXPECT_EQ(std::tuple(c.cloudlayout, c.cloudprefix, c.cloudstem, c.resultnums[0]),
              std::tuple(true, "cloud/run/sim/", "kelmechanical", 4))
        << given;
    ASSERT_GE(told.size(), 2u);
    EXPECT_EQ(told[1], "1 0 0 cloud/run/sim/" + std::string(read));
  }
  // A descriptor without "outputDir", or no JSON at all: an empty folder part, not found.
  for (const char *json : {R"({"somethingElse": "x"})", "not json {"}) {
    wft::writefile("q.awskel", json);
    EXPECT_PRED2(begins, wft::fatalof([&] { readcase("q_mechanical.case"); }), "30 /sim/kelmechanical.case");
  }
}

// Ids on are read past (no code of the program reads the ids or their index; an id of 2e9 must
// not size the index by itself), whatever word other than "off" says so.
TEST_F(ReadGeo, BothFormsWithIdsOnAndOff) {
  Geo ids, off, textids, none;
  ids.first = "Fortran Binary";
  ids.nodeids = {5, 2, 9, 1, 0, -3, 12, 11, 10, 8, 7, 2000000000};
  ids.elemids = {-1, 4};
  off.extents = textids.extents = false;
  textids.nodeids = ids.nodeids;
  textids.elemids = {3, 1};
  none.conn.clear();  // no elements
  none.ne = 0;
  // Records padded with NUL characters, as C writers leave them, read as blank-padded (all but
  // the first, which decides the form).
  std::string nul = off.binary();
  std::fill(nul.begin() + 88 * 3 + 15, nul.begin() + 88 * 3 + 84, '\0');  // behind "node id off"
  const std::tuple<std::string, bool, const Geo &> cases[] = {{ids.binary(), true, ids},
                                                              {off.binary(), true, off},
                                                              {nul, true, off},
                                                              {textids.text(), false, textids},
                                                              {none.binary(), true, none}};
  const CaseInfo info;
  for (const auto &[body, binary, g] : cases) {
    SCOPED_TRACE(body.substr(0, 20));
    wft::writefile("results/job_3.geo", body);
    Simulation sim;
    ASSERT_EQ(meshfilename(info, "job", 3), "results/job_3.geo");
    readgeofile("results/job_3.geo", sim);
    std::vector<double> xyz;
    for (size_t i = 0; i < 12; ++i) xyz.insert(xyz.end(), {g.xyz[0][i], g.xyz[1][i], g.xyz[2][i]});
    EXPECT_EQ(std::tuple(sim.nodexyz, sim.nnodes, sim.nelems, sim.elemconn, sim.resultsbinary),
              std::tuple(xyz, 12, g.ne, g.conn, binary));
    EXPECT_LT(sim.nodeindex.size(), 100000000u);
  }
}

TEST_F(ReadGeo, FileNamesPaddedAndCloud) {
  // The plain number first, then zero-padded widths 1 to 10, each shadowing the later ones.
  wft::writefile("results/job_00-4.geo", "");
  for (auto [name, number] : {std::pair{"results/job_003.geo", 3},
                              {"results/job_03.geo", 3},
                              {"results/job_3.geo", 3},
                              {"results/job_0000000012.geo", 12},
                              {"results/job_-004.geo", -4}}) {
    wft::writefile(name, "");
    EXPECT_EQ(findresultfile("results/job_", number, ".geo"), name);
  }
  EXPECT_PRED2(begins, wft::fatalof([&] { findresultfile("results/job_", 7, ".geo"); }),
               "30 results/job_0000000007.geo");
  // In the cloud layout the mesh lies below the cloud folder, under the fixed stem.
  CaseInfo info;
  info.cloudlayout = true;
  info.cloudprefix = "out/sim/";
  info.cloudstem = "kelmechanical";
  std::filesystem::create_directories("out/sim/results");
  wft::writefile("out/sim/results/kelmechanical_02.geo", Geo().binary());
  Simulation sim;
  const std::string name = meshfilename(info, "job", 2);
  EXPECT_EQ(name, "out/sim/results/kelmechanical_02.geo");
  readgeofile(name, sim);
  EXPECT_EQ(sim.nnodes, 12);
}

TEST_F(ReadGeo, BrokenFilesEndInCodedReadErrors) {
  const std::string good = Geo().binary();
  auto marker = [&](size_t at, int32_t v) { return std::string(good).replace(at, 4, reinterpret_cast<char *>(&v), 4); };
  Geo big, negative, manyelems, longer, texthuge;
  big.nn = 2000000000;
  negative.nn = -5;
  manyelems.ne = 300000000;
  longer.xyz[1].push_back(1.0f);  // a coordinate record one value longer than the count
  texthuge.nn = 900000000;
  std::string textword = Geo().text(), nomarkers = "C Binary" + std::string(72, ' ') + std::string(400, '\x01');
  const std::string aftercount = good.substr(0, good.find("hexa8") - 12 * 4 * 3 - 8 * 3 - 4);
  // It ends with the node count's record: 4, the count 12, 4.
  ASSERT_EQ(aftercount.substr(aftercount.size() - 12), std::string("\4\0\0\0\14\0\0\0\4\0\0\0", 12));
  const std::string textaftercount = textword.substr(0, textword.find("coordinates\n12\n") + 15);
  ASSERT_EQ(textaftercount.substr(textaftercount.size() - 4), "\n12\n");
  textword.replace(textword.find("hexa8"), 5, "hexa8\nabc");
  // The first record's name padded with NUL bytes: only blanks are trimmed, so the file is taken
  // as text, and fails as text.
  std::string nulname = good;
  std::fill(nulname.begin() + 12, nulname.begin() + 84, '\0');
  for (auto [what, body, code] : std::vector<std::tuple<const char *, std::string, const char *>>{
           {"empty", "", "28"},
           {"cut in the header", good.substr(0, 200), "28"},
           {"cut inside a header record", good.substr(0, 90 + 88 * 2), "28"},
           {"cut in the coordinates", good.substr(0, 900), "28"},
           {"cut right after the node count", aftercount, "28"},
           {"cut in the element type line", good.substr(0, good.size() - 150), "28"},
           {"cut in the connectivity", good.substr(0, good.size() - 10), "28"},
           {"leading marker too short", marker(88, 12), "29"},
           {"negative marker", marker(88, -80), "29"},
           {"node count beyond the file", big.binary(), "29"},
           {"negative node count", negative.binary(), "29"},
           {"element count beyond the file", manyelems.binary(), "29"},
           {"text: a word among the numbers", textword, "29"},
           {"text: count beyond the file", texthuge.text(), "29"},
           {"text: cut right after the node count", textaftercount, "28"},
           {"C Binary without record markers", nomarkers, "28"},  // read as text: no second line
           {"C Binary padded with NUL bytes", nulname, "28"}}) {
    SCOPED_TRACE(what);
    wft::writefile("results/job_3.geo", body);
    Simulation sim;
    EXPECT_PRED2(begins, wft::fatalof([&] { readgeofile("results/job_3.geo", sim); }),
                 std::string(code) + " results/job_3.geo");
  }
  // A sequential read takes what it needs of a record: a record longer than the count, or one
  // whose trailing length differs from its leading one, reads as the count has it.
  for (const std::string &body : {longer.binary(), marker(88 + 84, 81)}) {
    wft::writefile("results/job_3.geo", body);
    Simulation sim;
    EXPECT_EQ(wft::fatalof([&] { readgeofile("results/job_3.geo", sim); }), "none");
    EXPECT_EQ(sim.nnodes, 12);
    EXPECT_EQ(sim.nodexyz[4], Geo().xyz[1][1]);
  }
}

namespace {

// Component c of node i.
float value(int c, int i) { return 0.1f * static_cast<float>(c + 1) - 0.37f * static_cast<float>(i); }

// Five nodes, ncomp components; binary records (one value more than the nodes with extra), or
// text with perline values to a line.
std::string varfile(bool binary, int ncomp, int perline = 1, int extra = 0) {
  Records r;
  std::string s = "Displacement of increment 2\npart\n         1\ncoordinates\n";
  r.text("Displacement of increment 2"), r.text("part"), r.i(1), r.text("coordinates");
  char b[32];
  for (int c = 0; c < ncomp; ++c) {
    std::vector<float> v;
    for (int i = 0; i < 5 + extra; ++i) {
      v.push_back(value(c, i));
      s.append(b, static_cast<size_t>(std::snprintf(b, sizeof b, " %12.9g", double(v.back()))));
      if ((i + 1) % perline == 0 || i == 4) s += "\n";
    }
    r.vals(v);
  }
  return binary ? r.b : s;
}

const std::string dispfile = "results/job00_2.dis.ens";

}  // namespace

// The displacements (three components, the only count the run reads) node-major, whatever the
// line breaks of the text.
TEST_F(ReadVariable, DisplacementsInBothForms) {
  std::vector<double> want;
  for (int i = 0; i < 5; ++i)
    for (int c = 0; c < 3; ++c) want.push_back(value(c, i));
  for (auto [binary, perline] : {std::pair{true, 1}, {false, 1}, {false, 2}, {false, 6}}) {
    SCOPED_TRACE(perline);
    wft::writefile(dispfile, varfile(binary, 3, perline));
    Simulation sim;
    sim.nnodes = 5;
    sim.resultsbinary = binary;
    sim.nodedisp.assign(3, 9.0);  // an earlier field is replaced
    readvariablefile(dispfile, binary, 5, 3, sim.nodedisp);
    EXPECT_EQ(sim.nodedisp, want);
  }
}

TEST_F(ReadVariable, EarlyEndsAndBrokenRecords) {
  const std::string good = varfile(true, 3), text = varfile(false, 3);
  Simulation sim;
  sim.nnodes = 5;
  for (auto [what, binary, body, code] : std::vector<std::tuple<const char *, bool, std::string, const char *>>{
           {"empty", true, "", "362"},
           {"cut in the header", true, good.substr(0, 100), "362"},
           {"cut in the z values", true, good.substr(0, good.size() - 6), "362"},
           {"record shorter than the count", true, varfile(true, 3, 1, -1), "29"},
           {"text: too few values", false, text.substr(0, text.size() - 15), "362"},
           {"text: a word among the values", false, std::string(text).replace(80, 3, "xyz"), "29"},
           {"text: no part number", false, "desc\npart\n", "362"}}) {
    SCOPED_TRACE(what);
    sim.resultsbinary = binary;
    wft::writefile(dispfile, body);
    EXPECT_PRED2(begins, wft::fatalof([&] { readvariablefile(dispfile, sim.resultsbinary, 5, 3, sim.nodedisp); }),
                 code + (" " + dispfile));
  }
  std::filesystem::remove(dispfile);
  EXPECT_PRED2(begins, wft::fatalof([&] { readvariablefile(dispfile, sim.resultsbinary, 5, 3, sim.nodedisp); }),
               "30 " + dispfile);
  // Without *INPU there is no file name at all.
  EXPECT_PRED2(begins, wft::fatalof([&] { readvariablefile("", sim.resultsbinary, 5, 3, sim.nodedisp); }), "30");
}
