// SPDX-License-Identifier: GPL-3.0-or-later
// The geometry file in one form: binary inputs are given the first record that makes them
// binary, so that the fuzzer spends its time behind it.
#pragma once

#include <string>

#include "fuzzcommon.h"
#include "simresults/readgeo.h"

inline int fuzzgeometry(const uint8_t *data, size_t size, bool binary) {
  std::string file;
  if (binary) {
    const std::string len("\x50\0\0\0", 4);  // 80, little-endian, on both sides of the record
    file = len + "C Binary" + std::string(72, ' ') + len;
  }
  file.append(reinterpret_cast<const char *>(data), size);
  fuzz::writefile("job.geo", reinterpret_cast<const uint8_t *>(file.data()), file.size());
  fuzz::run([] {
    wf::Simulation sim;
    wf::readgeofile("job.geo", sim);
    wf::marknodes(sim);
  });
  return 0;
}
