// SPDX-License-Identifier: GPL-3.0-or-later
#include "simresults/simulation.h"

#include <algorithm>

namespace wf {

void marknodes(Simulation &sim) {
  sim.nodeactive.assign(static_cast<size_t>(std::max(sim.nnodes, 0)), 0);
  const size_t nconn = std::min(static_cast<size_t>(std::max(sim.nelems, 0)) * 8, sim.elemconn.size());
  for (size_t k = 0; k < nconn; ++k) {
    const int32_t n = sim.elemconn[k];
    if (n >= 1 && n <= sim.nnodes) sim.nodeactive[static_cast<size_t>(n - 1)] = 255;
  }
}

}  // namespace wf
