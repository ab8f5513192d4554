// SPDX-License-Identifier: GPL-3.0-or-later
// The displacement file in one form; the first two input bytes choose the node count (0..65535,
// little-endian), the rest is the file.
#pragma once

#include <vector>

#include "fuzzcommon.h"
#include "simresults/readvariable.h"

inline int fuzzdisplacement(const uint8_t *data, size_t size, bool binary) {
  if (size < 2) return 0;
  const int32_t nnodes = data[0] + 256 * data[1];
  fuzz::writefile("job.dis.ens", data + 2, size - 2);
  fuzz::run([&] {
    std::vector<double> values;
    wf::readvariablefile("job.dis.ens", binary, nnodes, 3, values);
  });
  return 0;
}
