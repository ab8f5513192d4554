// SPDX-License-Identifier: GPL-3.0-or-later
// The EnSight case file, then the choice of increment and mesh it leads to.
#include "control/solverinput.h"
#include "fuzzcommon.h"
#include "simresults/readcase.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::writefile("job.case", data, size);
  fuzz::run([] {
    const wf::CaseInfo info = wf::readcase("job.case");
    wf::JobFiles files;
    wf::selectincrement(info, -1, files);
  });
  return 0;
}
