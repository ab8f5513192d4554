// SPDX-License-Identifier: GPL-3.0-or-later
// The read-back of a written surface, then the preparation.
#include "fuzz_stl.h"
#include "recheck/readback.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::writefile("a.stl", data, size);
  fuzz::run([] {
    wf::RawSurface raw = wf::readstl("a.stl", 0).raw;
    wf::readbackbox(raw);
    fuzzprepare(raw);
  });
  return 0;
}
