// SPDX-License-Identifier: GPL-3.0-or-later
// The case file gives two time sets, the result increments first and the meshes second; only
// their file numbers and times are taken. The words are matched at column 1 of each line, and
// every search looks at the line in hand before it reads on.
#include "simresults/readcase.h"

#include <filesystem>
#include <fstream>
#include <string_view>

#include <nlohmann/json.hpp>

#include "base/fatal.h"
#include "base/memory.h"
#include "base/text.h"
#include "base/textio.h"

namespace wf {

namespace {

bool startswith(const std::string &line, std::string_view word) { return line.compare(0, word.size(), word) == 0; }

struct CaseReader {
  const CaseStageFn &onstage;
  LineReader in;
  std::string name;
  std::string line;  // the line in hand
  long long filesize = 0;

  void tell(CaseStage stage, int set, int32_t value = 0) const {
    if (onstage) onstage(CaseEvent{stage, set, value, name});
  }

  // Reads on until the line in hand starts with word (or with word2 when given).
  void search(std::string_view word, std::string_view word2 = {}) {
    while (!startswith(line, word) && (word2.empty() || !startswith(line, word2))) checkread(in.readline(line), name);
  }

  // A free-form integer from the line in hand behind its first skip characters. Nothing there
  // is the end of the file for a list-directed read of the rest of the line (28); a word is a
  // bad value (29).
  int32_t intbehind(const std::string &text, size_t skip) {
    int32_t v = 0;
    size_t pos = 0;
    std::string_view rest = text.size() > skip ? std::string_view(text).substr(skip) : std::string_view();
    checkread(readint(rest, pos, v), name);
    return v;
  }

  // One time set: the count, the file numbers and the times.
  void timeset(int set, int32_t &count, std::vector<int32_t> &nums, std::vector<double> &times, const char *numslabel,
               const char *timeslabel) {
    search("time set:");
    search("number of steps:");
    count = intbehind(line, 16);
    tell(CaseStage::count, set, count);
    search("filename start number:", "filename numbers:");
    // A negative count is taken as it stands: the lists are empty (the choice of the increment
    // refuses it later). Each time stands on a line of its own, so a count beyond the size of
    // the file cannot be read: the reads go on with nothing kept until they fail as they would.
    const bool keep = count <= filesize;
    const size_t n = count < 0 ? 0 : static_cast<size_t>(count);
    allocate(nums, keep ? n : 0, numslabel);
    if (startswith(line, "filename start number:")) {
      tell(CaseStage::implicitnumbers, set);
      const int32_t start = intbehind(line, 22);
      tell(CaseStage::start, set, start);
      checkread(in.readline(line), name);
      const int32_t step = intbehind(line, 19);  // the words in front are not looked at
      tell(CaseStage::step, set, step);
      uint32_t v = static_cast<uint32_t>(start);
      for (size_t i = 0; i < nums.size(); ++i, v += static_cast<uint32_t>(step)) nums[i] = static_cast<int32_t>(v);
    } else {
      tell(CaseStage::explicitnumbers, set);
      // The numbers follow on the next lines; any on the keyword line itself are not taken.
      std::string numline;
      size_t k = 0;
      while (k < n) {
        checkread(in.readline(numline), name);
        size_t pos = 0;
        while (k < n) {
          int32_t value = 0;
          int st = readint(numline, pos, value);
          if (st == IOSTAT_EOF) break;
          checkread(st, name);
          if (keep) nums[k] = value;
          ++k;
        }
      }
    }
    search("time values:");
    allocate(times, keep ? n : 0, timeslabel);
    double value = 0;
    for (size_t i = 0; i < n; ++i) checkread(readrealline(in, keep ? times[i] : value), name);
  }
};

}  // namespace

std::string prefixbefore(const std::string &text, const std::string &word) {
  if (word.empty()) return {};
  const size_t at = text.rfind(word);
  if (at == std::string::npos || at == 0) return {};
  return text.substr(0, at);
}

CaseInfo readcase(const std::string &path, const Folder &in, const CaseStageFn &onstage) {
  CaseInfo info;
  std::string name = path;
  if (!fileexists(in.at(path))) {
    if (onstage) onstage(CaseEvent{CaseStage::missing, 0, 0, path});
    const std::string suffix = path.find("_c.case") != std::string::npos ? "_c.case" : ".case";
    const std::string descriptor = prefixbefore(path, "_mechanical") + ".awskel";
    if (fileexists(in.at(descriptor))) {
      std::string outputdir;
      std::ifstream f(in.at(descriptor), std::ios::binary);
      nlohmann::json tree = nlohmann::json::parse(f, nullptr, false);
      if (!tree.is_discarded() && tree.is_object()) {
        auto it = tree.find("outputDir");
        if (it != tree.end() && it->is_string()) outputdir = it->get<std::string>();
      }
      info.cloudlayout = true;
      info.cloudprefix = outputdir + "/sim/";
      info.cloudstem = std::string("kel") + "mechanical";
      name = info.cloudprefix + info.cloudstem + suffix;
    }
  }
  checkexists(name, in);

  CaseReader cr{onstage, {}, name, {}, 0};
  checkopen(cr.in.open(in.at(name)), name);
  {
    std::error_code ec;
    const auto size = std::filesystem::file_size(in.at(name), ec);
    cr.filesize = ec ? 0 : static_cast<long long>(size);
  }
  cr.tell(CaseStage::reading, 0);
  cr.timeset(0, info.ninc, info.resultnums, info.resulttimes, "readcase, resultnums, 1", "readcase, resulttimes, 2");
  cr.timeset(1, info.nmesh, info.meshnums, info.meshtimes, "readcase, meshnums, 3", "readcase, meshtimes, 4");
  // The reader is closed here: nothing reads the case file again.
  cr.in.close();
  return info;
}

}  // namespace wf
