// SPDX-License-Identifier: GPL-2.0-or-later
// STL writer: the surface to outstlpath in form a, b, c or d (ASCII spaced, binary, non-native
// binary, ASCII joined); any other form is message 319.
#pragma once

#include "control/runstate.h"

namespace wf {

void writestl(RunState &rs, char format, bool indexed);

}  // namespace wf
