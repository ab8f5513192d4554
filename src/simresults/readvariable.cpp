// SPDX-License-Identifier: GPL-3.0-or-later
#include "simresults/readvariable.h"

#include "base/fatal.h"
#include "base/memory.h"
#include "base/text.h"
#include "simresults/resultfile.h"

namespace wf {

namespace {

// The read check of the variable file: its end is message 362 naming the file.
void checkvarread(int status, const std::string &file) {
  if (status == IOSTAT_EOF) fatal(362, {file});
  checkread(status, file);
}

}  // namespace

void readvariablefile(const std::string &name, bool binary, int32_t nnodes, int ncomp, std::vector<double> &values,
                      const Folder &in) {
  checkexists(name, in);
  ResultFile file;
  checkopen(file.open(in.at(name), binary), name);

  std::string line;
  int32_t partno = 0;
  checkvarread(file.text80(line), name);  // description
  checkvarread(file.text80(line), name);  // "part"
  checkvarread(file.int1(partno), name);
  checkvarread(file.text80(line), name);  // "coordinates"

  release(values);
  if (ncomp == 1 || ncomp == 3 || ncomp == 6) {
    const size_t n = nnodes > 0 ? static_cast<size_t>(nnodes) : 0;
    const size_t nc = static_cast<size_t>(ncomp);
    allocate(values, nc * n, "readvariable, values, 1");
    std::unique_ptr<float[]> work = allocatework(nc * n, "readvariable, work, 2");
    // One record per component, each straight into its block of the work array.
    for (size_t c = 0; c < nc; ++c) checkvarread(file.floats(work.get() + c * n, n), name);
    // Widened node by node, so that the writes run through values in order.
    double *out = values.data();
    const float *w = work.get();
    for (size_t i = 0; i < n; ++i)
      for (size_t c = 0; c < nc; ++c) out[nc * i + c] = w[c * n + i];
  }
  file.close();
}

}  // namespace wf
