// SPDX-License-Identifier: GPL-3.0-or-later
// The combined reader over two files made of the input's halves, then the preparation.
#include "fuzz_stl.h"
#include "recheck/readcombined.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const size_t half = size / 2;
  fuzz::writefile("a.stl", data, half);
  fuzz::writefile("b.stl", data + half, size - half);
  fuzz::run([] {
    std::string path;
    int byteorder = 0;
    wf::RawSurface raw = wf::readcombined(fuzz::quiet(), {"a.stl", "b.stl"}, true, path, byteorder);
    fuzzprepare(raw, path);
  });
  return 0;
}
