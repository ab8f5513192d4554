// SPDX-License-Identifier: GPL-2.0-or-later
// The surface that a triangle belongs to. The warp works on one surface at a time, so every
// triangle belongs to the current one: the result is curstlid whatever t is.
#pragma once

#include <cstdint>

#include "control/runstate.h"

namespace wf {

int32_t surfaceoftriangle(const RunState &rs, int32_t t);

}  // namespace wf
