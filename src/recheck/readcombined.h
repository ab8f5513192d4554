// SPDX-License-Identifier: GPL-2.0-or-later
// Every file of stlfiles joined into one raw triangle set in rawvrt, with the start of each file.
#pragma once

#include "control/runstate.h"

namespace wf {

void readcombined(RunState &rs, bool allowempty);

}  // namespace wf
