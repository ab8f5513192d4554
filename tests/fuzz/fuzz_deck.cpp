// SPDX-License-Identifier: GPL-3.0-or-later
// The control deck: parse, echo and validation of any bytes.
#include "app/steps.h"
#include "fuzzcommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::writefile("f.deck", data, size);
  fuzz::run([] {
    wf::Settings settings;
    wf::JobFiles files;
    wf::readdeckstep(fuzz::quiet(), {"f.deck"}, settings, files);
  });
  return 0;
}
