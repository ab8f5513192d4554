// SPDX-License-Identifier: GPL-3.0-or-later
// The geometry file in its binary form (sequential records).
#include "fuzz_geometry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return fuzzgeometry(data, size, true); }
