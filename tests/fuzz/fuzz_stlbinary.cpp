// SPDX-License-Identifier: GPL-3.0-or-later
// An STL file through the whole read (the text attempt, then the byte orders), then prepared.
#include "fuzz_stl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::writefile("part.stl", data, size);
  fuzz::run([] {
    wf::RawSurface raw = wf::readstl("part.stl", 0).raw;
    fuzzprepare(raw);
  });
  return 0;
}
