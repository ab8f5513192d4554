// SPDX-License-Identifier: GPL-3.0-or-later
// The solver input file, then the choice of surfaces it leads to.
#include "control/solverinput.h"
#include "fuzzcommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::writefile("job.in", data, size);
  fuzz::run([] {
    wf::Settings settings;
    settings.inpuflag = true;
    settings.astlflag = true;
    wf::JobFiles files;
    files.inputfile = "job";
    wf::readsolverinput(settings, files);
    wf::selectsurfaces(settings, 3, files);
  });
  return 0;
}
