// SPDX-License-Identifier: GPL-2.0-or-later
// The per-node variable file of the chosen increment, in the form that readgeo found for the
// geometry: a description, the part line, the part number, the "coordinates" line, then one
// item (record) per component with one single-precision value per node.
#include "simresults/readvariable.h"

#include "control/messages.h"
#include "simresults/resultfile.h"
#include "simresults/variablefile.h"

namespace wf {

void checkvarread(RunState &rs, int status, const std::string &file) {
  if (status == IOSTAT_EOF) {
    rs.rep.post(1, 362, {file});
    fatalsilent();
  }
  checkread(status, file);
}

void readvariablevalues(RunState &rs, int ncomp, std::vector<double> &values) {
  const std::string name = rtrim(rs.dispfile);
  rs.rep.say("    Variable file   = " + name);
  checkexists(name);
  ResultFile file;
  checkopen(file.open(name, rs.resultsbinary), name);

  std::string line;
  int32_t partno = 0;
  checkvarread(rs, file.text80(line), name);  // description
  checkvarread(rs, file.text80(line), name);  // "part"
  checkvarread(rs, file.int1(partno), name);
  checkvarread(rs, file.text80(line), name);  // "coordinates"

  if (ncomp == 1 || ncomp == 3 || ncomp == 6) {
    const size_t n = rs.nnodes > 0 ? static_cast<size_t>(rs.nnodes) : 0;
    const size_t nc = static_cast<size_t>(ncomp);
    release(values);
    allocate(values, nc * n, "readvariable, values, 1");
    std::unique_ptr<float[]> work = allocatework(rs, nc * n, "readvariable, work, 2");
    // One record per component, each straight into its block of the work array.
    for (size_t c = 0; c < nc; ++c) checkvarread(rs, file.floats(work.get() + c * n, n), name);
    // Widened node by node, so that the writes run through values in order.
    double *out = values.data();
    const float *w = work.get();
    for (size_t i = 0; i < n; ++i)
      for (size_t c = 0; c < nc; ++c) out[nc * i + c] = w[c * n + i];
  } else {
    release(values);
  }
  file.close();
}

void readvariable(RunState &rs, int ncomp) {
  if (ncomp == 3) {
    readvariablevalues(rs, ncomp, rs.nodedisp);
  } else {
    std::vector<double> values;  // nothing in the run asks for other components
    readvariablevalues(rs, ncomp, values);
  }
}

}  // namespace wf
