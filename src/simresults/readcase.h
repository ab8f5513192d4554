// SPDX-License-Identifier: GPL-3.0-or-later
// EnSight Gold case file: the two time sets, result increments first and meshes second, each a
// count, a file number per step (implicit: start and increment; explicit: listed) and a time
// per step. Nothing else of the case is read. A missing case file is looked for through a cloud
// descriptor (<prefix before "_mechanical">.awskel, its "outputDir").
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/folder.h"

namespace wf {

struct CaseInfo {
  int32_t ninc = 0;                 // result increments
  std::vector<int32_t> resultnums;  // file number of each (ninc)
  std::vector<double> resulttimes;  // time of each (ninc)
  int32_t nmesh = 0;                // meshes
  std::vector<int32_t> meshnums;
  std::vector<double> meshtimes;
  bool cloudlayout = false;       // the case was found through a cloud descriptor
  std::string cloudprefix = ".";  // "<outputDir>/sim/" in the cloud layout
  std::string cloudstem;          // "kelmechanical" in the cloud layout
};

// The moments of a case read, in this order: the case file is missing (the cloud descriptor is
// looked for next; name: the path as given), the case file is open (name: the file read), then
// per time set (set 0 the results, 1 the meshes) its count, and either implicit numbering with
// its start and its step or explicit numbering. value holds the count, start or step. A fatal
// end of the read comes after the last moment told.
enum class CaseStage { missing, reading, count, implicitnumbers, start, step, explicitnumbers };
struct CaseEvent {
  CaseStage stage;
  int set = 0;
  int32_t value = 0;
  const std::string &name;
};
using CaseStageFn = std::function<void(const CaseEvent &event)>;

// Reads the case file at path (relative to `in`, as is the cloud descriptor and the case it
// names); onstage, when given, is told each moment. Throws Fatal: 30 (no case file), 31
// (open), 27, 28 (the file ends before a word), 29, 32.
CaseInfo readcase(const std::string &path, const Folder &in = Folder(), const CaseStageFn &onstage = {});
// What precedes the last occurrence of word in text; empty when absent or at position 1.
std::string prefixbefore(const std::string &text, const std::string &word);

}  // namespace wf
