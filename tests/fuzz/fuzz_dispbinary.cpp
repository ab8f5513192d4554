// SPDX-License-Identifier: GPL-3.0-or-later
// The displacement file in its binary form.
#include "fuzz_displacement.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return fuzzdisplacement(data, size, true); }
