// SPDX-License-Identifier: GPL-3.0-or-later
// EnSight Gold case file: the two time sets, result increments first and meshes second, each a
// count, a file number per step (implicit: start and increment; explicit: listed) and a time
// per step. Nothing else of the case is read. A missing case file is looked for through a cloud
// descriptor (<prefix before "_mechanical">.awskel, its "outputDir").
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/folder.h"
#include "base/reporter.h"

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

// Reads the case file at path (relative to `in`, as is the cloud descriptor and the case it
// names) with its console lines, which name the files as given. Throws Fatal: 30 (no case
// file), 31 (open), 27, 28 (the file ends before a word), 29, 32.
CaseInfo readcase(Reporter &rep, const std::string &path, const Folder &in = Folder());
// What precedes the last occurrence of word in text; empty when absent or at position 1.
std::string prefixbefore(const std::string &text, const std::string &word);

}  // namespace wf
