// SPDX-License-Identifier: GPL-3.0-or-later
// Regression set: generated jobs that between them use every card, run through the built
// program on one and on two threads, with every file they write compared byte for byte to the
// files recorded in tests/regress/golden/<job>/ (so no output depends on the thread count). The console and the signal
// stream are compared too, with the values that change from run to run masked (tags, wall clock, milliseconds, the job
// folder). A coloured package is compared by its entries: names and order, and each entry's bytes against the loose
// member of the same name (its compressed bytes and times are free).
//
// To record the files anew (after a change that is meant to alter outputs):
//   WARPFORGE_REGRESS_RECORD=1 ./build/test_regress
#include <gtest/gtest.h>
#include <unzip.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include "testutil.h"

namespace fs = std::filesystem;

namespace {

const fs::path goldenroot = fs::path(WARPFORGE_SOURCE_DIR) / "tests" / "regress" / "golden";

// A job's binary STL as facets (9 floats each), and back.
std::vector<float> readsoup(const std::string &path) { return wft::binarystlfacets(wft::readfile(path)); }
void writesoup(const std::string &path, const std::vector<float> &s) { wft::writefile(path, wft::binarystlbytes(s)); }

// ---------------------------------------------------------------- jobs

struct JobRecipe {
  std::string name;
  std::vector<std::string> genargs;
  std::string deck;  // written as job.deck unless empty (then genjob's own deck is used)
  std::function<void(const std::string &dir)> setup = nullptr;
  int status = 0;
};

// Test names print the job name only.
void PrintTo(const JobRecipe &recipe, std::ostream *os) { *os << recipe.name; }

const std::string kInput = "*INPU\njob\n";

std::vector<JobRecipe> jobs() {
  const std::vector<std::string> tris = {"--tris", "448"};
  const std::string split = "*MINE\n3.0\n*MAXE\n8.0\n*RTOL\n0.003\n";
  return {{"plain", tris, kInput + "*IOFF\n-1\n*MINE\n3.0\n*MAXE\n6.0\n*RTOL\n0.002\n"},
          {"forma_wrtu", tris, kInput + "*IOFF\n-1\n*FORM\na\n*WRTU\n*N3DM\n" + split},
          {"formc_ovtk_unit", tris, kInput + "*IOFF\n-1\n*FORM\nc\n*OVTK\n*UNIT\n2.0\n*WARP\n-2.5\n" + split},
          {"formd_o3mf_ioff",
           {"--tris", "448", "--increments", "4"},
           kInput + "*IOFF\n2\n*FORM\nd\n*O3MF\n*MINE\n2.5\n*MAXE\n6.0\n*RTOL\n0.01\n"},
          {"fixz_nint_snap",
           {"--tris", "448", "--nodes", "800"},
           kInput + "*IOFF\n-1\n*FIXZ\n*ZTOL\n0.01\n*NINT\n4\n*EINT\n2.0\n*SNAP\n0.05\n" + split + "*N3DM\n*WRTU\n"},
          {"nrle_fixz", tris, kInput + "*IOFF\n-1\n*NRLE\n*FIXZ\n*N3DM\n*WRTU\n" + split},
          {"refine_limits", tris, kInput + "*IOFF\n-1\n*MAXR\n1\n*MINE\n0.4\n*MAXE\n1.5\n*RTOL\n0.0005\n*N3DM\n"},
          {"text_explicit_constant",
           {"--tris", "448", "--text", "--explicit", "--field", "constant"},
           kInput + "# constant field, text results\n*IOFF\n-2\n*MINE\n2.0\n*MAXE\n4.0\n*N3DM\n*OVTK\n*WRTU\n"},
          // Reference correction against the part grown by 0.2 % about the origin.
          {"refg", tris, kInput + "*IOFF\n-1\n*REFG\nref.stl\n*N3DM\n*WRTU\n" + split,
           [](const std::string &dir) {
             std::vector<float> s = readsoup(dir + "/part.stl");
             for (float &v : s) v *= 1.002f;
             writesoup(dir + "/ref.stl", s);
           }},
          // A scan job: no simulation; the nominal surface is the reference, the scan is the part
          // sheared a little in x with height.
          {"scng", tris, "*REFG\npart.stl\n*SCNG\nscan.stl\n" + split + "*OUTP\nscanwarp.stl\n",
           [](const std::string &dir) {
             std::vector<float> s = readsoup(dir + "/part.stl");
             for (size_t k = 0; k + 2 < s.size(); k += 3) s[k] += 0.01f * s[k + 2];
             writesoup(dir + "/scan.stl", s);
           }},
          // An open surface, read back and repaired with the extended repair; the conversion then
          // meets the blank-padded name.
          {"tsrd_repair", tris,
           kInput + "*IOFF\n-1\n*TSRD\n*TSRE\n*TSRT\n0.02\n*O3MF\n*N3DM\n*MINE\n3.0\n*MAXE\n6.0\n*RTOL\n0.003\n",
           [](const std::string &dir) {
             std::vector<float> s = readsoup(dir + "/part.stl");
             // drop two triangles far apart: two small holes
             s.erase(s.begin() + 9 * 300, s.begin() + 9 * 301);
             s.erase(s.begin() + 9 * 10, s.begin() + 9 * 11);
             writesoup(dir + "/part.stl", s);
           }},
          // Two surfaces with their own output names, STL scaling, a type-2 surface selected by its
          // fraction, the first increment.
          {"multi_sstl_outp",
           {"--tris", "448", "--increments", "3"},
           kInput + "*IOFF\n1\n*ASTL\n*SSTL\n*OUTP\nfirst.stl\nsecond.stl\n" + split + "*FORM\nb\n*WRTU\n",
           [](const std::string &dir) {
             std::vector<float> s = readsoup(dir + "/part.stl");
             for (size_t k = 0; k + 2 < s.size(); k += 3) {
               s[k] = 0.5f * s[k] + 5.0f;
               s[k + 1] = 0.5f * s[k + 1] + 2.0f;
               s[k + 2] = 0.5f * s[k + 2];
             }
             writesoup(dir + "/inner.stl", s);
             wft::writefile(dir + "/job.in",
                            "*OFNS\n5\n*STLF\npart.stl\ninner.stl\n*STLM\n1, 1, 0, 1.0\n"
                            "2, 1, 0, 0.9995\n*STLS\n1.25\n*END\n");
           }},
          // A clean surface read back: kept as it is; with *ISTL and *OUTP.
          {"tsrd_clean_istl", tris, kInput + "*IOFF\n-1\n*TSRD\n*O3MF\n*ISTL\n1\n*OUTP\nchecked.stl\n" + split},
          // An output named like its surface ends the run.
          {"abort_same_name", tris, kInput + "*IOFF\n-1\n*OUTP\npart.stl\n*ISTL\n1\n", nullptr, 255},
          // Eleven surfaces and two output names: the third pass has no name of its own (196), and
          // the first two outputs stay.
          {"short_outp", tris, kInput + "*IOFF\n-1\n*ASTL\n*N3DM\n*MINE\n9\n*MAXE\n10\n*OUTP\no1.stl\no2.stl\n",
           [](const std::string &dir) {
             std::string in = "*STLF\n";
             for (int i = 1; i <= 11; ++i) {
               fs::copy_file(dir + "/part.stl", dir + "/s" + std::to_string(i) + ".stl");
               in += "s" + std::to_string(i) + ".stl\n";
             }
             wft::writefile(dir + "/job.in", in + "*END\n");
           },
           255},
          // The one surface of the solver input is of type 2: the loop is skipped and the run
          // finishes.
          {"none_selected", tris, kInput + "*IOFF\n-1\n*ASTL\n",
           [](const std::string &dir) {
             std::string in = wft::readfile(dir + "/job.in");
             in[in.find('\n', in.find("*STLM")) + 1] = '2';
             wft::writefile(dir + "/job.in", in);
           }},
          // *STLS without a number: no coded message exists for it; the run ends in the I/O layer,
          // its text on the error stream, with no message, no signal line and no ABORTING.
          {"stls_no_number", tris, "",
           [](const std::string &dir) {
             std::string in = wft::readfile(dir + "/job.in");
             wft::writefile(dir + "/job.in", in.replace(in.find("*STLS\n1.0"), 9, "*STLS\nabc"));
           },
           255}};
}

// ---------------------------------------------------------------- comparison

// Files of a folder, relative, sorted.
std::set<std::string> listfiles(const fs::path &dir) {
  std::set<std::string> out;
  if (!fs::exists(dir)) return out;
  for (auto &e : fs::recursive_directory_iterator(dir))
    if (e.is_regular_file()) out.insert(fs::relative(e.path(), dir).string());
  return out;
}

std::string maskrun(std::string text, const std::string &dir, const std::string &exedir) {
  auto replaceall = [&](const std::string &from, const std::string &to) {
    if (from.empty()) return;
    for (size_t p = text.find(from); p != std::string::npos; p = text.find(from, p + to.size()))
      text.replace(p, from.size(), to);
  };
  replaceall(dir, "<job>");
  replaceall(exedir, "<exe>");
  text = wft::maskafter(text, "Signal tag ", "0123456789ABCDEF", "Signal tag <tag>");
  text = wft::maskafter(text, "CPU wall = ", "0123456789abcdefghijklmnopqrstuvwxyz :.", "CPU wall = <wall>");
  text = wft::maskafter(text, "elapsed time: ", "0123456789", "elapsed time: <n>");
  return text;
}

// Entries of a zip in their order, with their contents.
std::vector<std::pair<std::string, std::string>> zipentries(const std::string &path) {
  std::vector<std::pair<std::string, std::string>> out;
  unzFile z = unzOpen64(path.c_str());
  if (z == nullptr) return out;
  for (int r = unzGoToFirstFile(z); r == UNZ_OK; r = unzGoToNextFile(z)) {
    unz_file_info64 info;
    char name[1024];
    if (unzGetCurrentFileInfo64(z, &info, name, sizeof name, nullptr, 0, nullptr, 0) != UNZ_OK) break;
    std::string data(info.uncompressed_size, '\0');
    if (unzOpenCurrentFile(z) != UNZ_OK) break;
    int got = unzReadCurrentFile(z, data.data(), static_cast<unsigned>(data.size()));
    unzCloseCurrentFile(z);
    if (got != static_cast<int>(data.size())) data = "<unreadable>";
    out.emplace_back(name, data);
  }
  unzClose(z);
  return out;
}

class Regression : public ::testing::TestWithParam<JobRecipe> {};

// The job made and run on the given number of threads: every file it wrote, the console and the
// signal stream (masked).
std::map<std::string, std::string> runjob(const JobRecipe &recipe, int threads) {
  const std::string dir = wft::tempdir("regress_" + recipe.name);
  auto g = wft::rungenjob(dir, recipe.genargs);
  EXPECT_EQ(g.status, 0) << g.out;
  if (!recipe.deck.empty()) wft::writefile(dir + "/job.deck", recipe.deck);
  if (recipe.setup) recipe.setup(dir);
  const std::set<std::string> inputs = listfiles(dir);

  auto r = wft::runwarpforge("job.deck", dir, {{"OMP_NUM_THREADS", std::to_string(threads)}});
  EXPECT_EQ(r.status, recipe.status) << r.out;

  // What the run wrote: every new file, the console and the signal stream (masked).
  std::map<std::string, std::string> actual;
  for (const std::string &f : listfiles(dir)) {
    if (inputs.count(f) || f.starts_with("tmp/") || f == "job.wrpsimsignal") continue;
    const std::string loose = dir + "/" + f.substr(0, f.size() - 4);
    if (!f.ends_with(".3mf") || zipentries(dir + "/" + f).empty() || !fs::exists(loose)) {
      actual[f] = wft::readfile(dir + "/" + f);
      continue;
    }
    // A coloured package: its entries must be the loose members, in the package's order.
    for (auto &[name, data] : zipentries(dir + "/" + f)) {
      actual[f + ".entries"] += name + "\n";
      EXPECT_EQ(data, wft::readfile(loose + "/" + name)) << f << ": entry " << name << " differs from its member";
    }
  }
  const std::string exedir = fs::path(WARPFORGE_EXE).parent_path().string();
  actual["console.txt"] = maskrun(r.out, dir, exedir);
  actual["signal.txt"] = maskrun(wft::readfile(dir + "/job.wrpsimsignal"), dir, exedir);
  return actual;
}

TEST_P(Regression, OutputsMatchTheRecordedFiles) {
  const JobRecipe &recipe = GetParam();
  const fs::path golden = goldenroot / recipe.name;
  if (const char *record = std::getenv("WARPFORGE_REGRESS_RECORD"); record && *record && std::strcmp(record, "0")) {
    fs::remove_all(golden);
    for (auto &[name, data] : runjob(recipe, 1)) {
      fs::create_directories((golden / name).parent_path());
      wft::writefile((golden / name).string(), data);
    }
  }
  ASSERT_TRUE(fs::exists(golden)) << "no recorded files for " << recipe.name;
  const std::set<std::string> expectednames = listfiles(golden);
  for (int threads : {1, 2}) {
    SCOPED_TRACE(std::to_string(threads) + " threads");
    const std::map<std::string, std::string> actual = runjob(recipe, threads);
    std::set<std::string> actualnames;
    for (auto &[name, data] : actual) actualnames.insert(name);
    EXPECT_EQ(actualnames, expectednames);
    for (auto &[name, data] : actual) {
      if (!expectednames.count(name)) continue;
      const std::string want = wft::readfile((golden / name).string());
      if (data == want) continue;
      size_t at = 0;
      while (at < data.size() && at < want.size() && data[at] == want[at]) ++at;
      ADD_FAILURE() << recipe.name << "/" << name << " differs from byte " << at << " on (sizes " << data.size()
                    << " and " << want.size() << ")\n  now: " << data.substr(at > 40 ? at - 40 : 0, 120)
                    << "\n  was: " << want.substr(at > 40 ? at - 40 : 0, 120);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Jobs, Regression, ::testing::ValuesIn(jobs()),
                         [](const ::testing::TestParamInfo<JobRecipe> &i) { return i.param.name; });

}  // namespace
