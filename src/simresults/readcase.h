// SPDX-License-Identifier: GPL-2.0-or-later
// EnSight Gold case file: the two time sets (result increments, then meshes), with implicit or
// explicit file numbering; a missing case file is looked for through a cloud descriptor.
#pragma once

#include <string>

#include "control/runstate.h"

namespace wf {

void readcase(RunState &rs, const std::string &path);
// What precedes the last occurrence of word in text; empty when absent or at position 1.
std::string prefixbefore(const std::string &text, const std::string &word);

}  // namespace wf
