// SPDX-License-Identifier: GPL-3.0-or-later
// The read-back of a written surface, then the preparation.
#include "fuzz_stl.h"
#include "recheck/readback.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::writefile("a.stl", data, size);
  fuzz::run([] {
    std::string path;
    int byteorder = 0;
    wf::RawSurface raw = wf::readback(fuzz::quiet(), "a.stl", path, byteorder);
    fuzzprepare(raw, path);
  });
  return 0;
}
