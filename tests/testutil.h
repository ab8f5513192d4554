// SPDX-License-Identifier: GPL-3.0-or-later
// Helpers shared by the tests: fresh temporary folders, files, and runs of the built program.
#pragma once

#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace wft {

// A fresh, empty folder below the system temp folder; names are unique per process and call.
std::string tempdir(const std::string &tag);
// The current folder moved to a fresh temporary folder for the object's life.
struct InTempDir {
  std::string old;
  explicit InTempDir(const std::string &tag);
  ~InTempDir();
};
std::string readfile(const std::string &path);
void writefile(const std::string &path, const std::string &content);
std::vector<std::string> splitlines(const std::string &text);
bool contains(const std::string &text, const std::string &part);
// Two vectors or arrays equal to the bit (values that are not numbers included).
template <class C>
bool samebits(const C &a, const C &b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0);
}
// The cards of the README's card table (rows "| `*O3DM` / `*N3DM` | ..."), in its order.
std::vector<std::string> readmecards(const std::string &readmetext);
// A binary STL of facets (9 floats each; shapes.h writes it) and back; an unreadable file gives
// no facets.
std::string binarystlbytes(const std::vector<float> &facets);
std::vector<float> binarystlfacets(const std::string &bytes);
// Every prefix followed by a run of the characters of chars becomes replacement. (The tests do
// without <regex>: g++ 12 warns inside it.)
std::string maskafter(const std::string &text, const std::string &prefix, const std::string &chars,
                      const std::string &replacement);

struct RunResult {
  int status = -1;  // exit status (255 for an aborted run)
  std::string out;  // standard output and error, interleaved
};
// Runs exe with args in folder cwd. CRVT_TSR_SIM_TMP is set to "<cwd>/tmp" unless env names it;
// env entries with an empty value are removed from the environment.
RunResult runprogram(const std::string &exe, const std::vector<std::string> &args, const std::string &cwd,
                     const std::map<std::string, std::string> &env = {});
// The built warpforge on one deck.
RunResult runwarpforge(const std::string &deck, const std::string &cwd,
                       const std::map<std::string, std::string> &env = {});
// The sample-job generator: writes a job into folder (arguments passed through).
RunResult rungenjob(const std::string &folder, const std::vector<std::string> &args = {});

}  // namespace wft
