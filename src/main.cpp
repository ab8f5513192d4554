// SPDX-License-Identifier: GPL-2.0-or-later
// warpforge: moves the surfaces of a part against the simulated distortion of its build.
#include <cstdio>
#include <exception>
#include <memory>
#include <new>

#include "base/fatal.h"
#include "control/run.h"

int main(int argc, char **argv) {
  auto rs = std::make_unique<wf::RunState>();
  for (int i = 1; i < argc; ++i) rs->args.emplace_back(argv[i]);
  int status = 255;
  try {
    status = wf::runwarpforge(*rs);
  } catch (const wf::Fatal &f) {
    if (f.code != 0) rs->rep.post(1, f.code, f.vars);
    rs->rep.abortlines();
    status = 255;
  } catch (const std::exception &e) {
    // Anything not funnelled through a check (the allocator, the C++ library) still ends the
    // run in the same orderly way.
    std::printf("\n ERROR\n %s\n\n ABORTING\n\n", e.what());
    status = 255;
  }
  std::fflush(stdout);
  return status;
}
