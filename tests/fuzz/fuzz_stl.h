// SPDX-License-Identifier: GPL-3.0-or-later
// An STL file read and, when it reads, prepared: snapping, merging and the edge checks meet
// whatever coordinates the file holds (NaN, infinities, huge and tiny values).
#pragma once

#include "fuzzcommon.h"
#include "surface/preparesurface.h"
#include "surface/readstl.h"

inline void fuzzprepare(wf::RawSurface &raw) { wf::preparemesh(raw, wf::Tolerances()); }
