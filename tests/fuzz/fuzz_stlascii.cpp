// SPDX-License-Identifier: GPL-3.0-or-later
// The text attempt of the STL reader alone, then the preparation of what it read.
#include "fuzz_stl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::writefile("part.stl", data, size);
  fuzz::run([] {
    wf::RawSurface raw;
    if (wf::readstlascii("part.stl", raw) != 0) return;
    raw.box = wf::boundingbox(raw.vrt.data(), static_cast<size_t>(raw.nvrt));
    fuzzprepare(raw);
  });
  return 0;
}
