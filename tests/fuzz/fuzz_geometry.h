// SPDX-License-Identifier: GPL-3.0-or-later
// The geometry file in one form: binary inputs are given the first record that makes them
// binary, so that the fuzzer spends its time behind it.
#pragma once

#include <cstring>
#include <vector>

#include "fuzzcommon.h"
#include "simresults/readgeo.h"

inline int fuzzgeometry(const uint8_t *data, size_t size, bool binary) {
  std::vector<uint8_t> file;
  if (binary) {
    const int32_t len = 80;
    char text[80];
    std::memset(text, ' ', sizeof text);
    std::memcpy(text, "C Binary", 8);
    file.resize(88);
    std::memcpy(file.data(), &len, 4);
    std::memcpy(file.data() + 4, text, 80);
    std::memcpy(file.data() + 84, &len, 4);
  }
  file.insert(file.end(), data, data + size);
  fuzz::writefile("job.geo", file.data(), file.size());
  fuzz::run([] {
    wf::Simulation sim;
    wf::readgeofile("job.geo", sim);
    wf::marknodes(sim);
  });
  return 0;
}
