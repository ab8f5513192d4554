// SPDX-License-Identifier: GPL-3.0-or-later
// The repair of a surface of about 100,000 facets (a finely tessellated torus) with a few holes,
// reversed facets round them and elsewhere: the stages of the solid repair, the whole default
// repair through the repair component, and the soundness test, with the result checked.
//   bench_repair [u-cells (250)] [v-cells (200)]
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "repair/meshrepair.h"
#include "repair/solidcheck.h"
#include "repair/solidrepair.h"

namespace {

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

int main(int argc, char **argv) {
  const int nu = argc > 1 ? std::atoi(argv[1]) : 250, nv = argc > 2 ? std::atoi(argv[2]) : 200;
  const double R = 40, r = 12;
  auto point = [&](int i, int j) {
    const double u = 2 * M_PI * (i % nu) / nu, v = 2 * M_PI * (j % nv) / nv;
    return std::array<float, 3>{float((R + r * std::cos(v)) * std::cos(u)), float((R + r * std::cos(v)) * std::sin(u)),
                                float(r * std::sin(v))};
  };
  std::vector<float> intact;
  for (int i = 0; i < nu; ++i)
    for (int j = 0; j < nv; ++j) {
      const auto a = point(i, j), b = point(i + 1, j), c = point(i + 1, j + 1), d = point(i, j + 1);
      for (const auto *p : {&a, &b, &c, &a, &c, &d}) intact.insert(intact.end(), p->begin(), p->end());
    }
  // Holes of 1 to 12 facets, the facets round each reversed, and a few reversed elsewhere.
  std::vector<float> broken = intact;
  std::mt19937 rng(3);
  const size_t nt = broken.size() / 9;
  std::vector<char> drop(nt, 0);
  auto flip = [&](size_t t) { std::swap_ranges(&broken[9 * t + 3], &broken[9 * t + 6], &broken[9 * t + 6]); };
  for (int h = 0; h < 8; ++h) {
    const size_t t0 = 2 * (rng() % (nt / 2));
    const int len = 1 + h;
    for (int k = 0; k < len; ++k) drop[(t0 + 2 * nv * k / 4 + k) % nt] = 1;
    for (int k = -3; k <= len + 3; ++k) flip((t0 + nt + 2 * k) % nt);
  }
  for (int k = 0; k < 30; ++k) flip(rng() % nt);
  std::vector<float> input;
  for (size_t t = 0; t < nt; ++t)
    if (!drop[t]) input.insert(input.end(), &broken[9 * t], &broken[9 * t + 9]);
  std::printf("==== repair: %zu facets, %zu dropped\n", input.size() / 9, nt - input.size() / 9);

  std::vector<float> work = input;
  const double t0 = now();
  const wf::SolidRepairReport rep = wf::makesolid(work, false);
  const double tsolid = now() - t0;
  const char *stages[5] = {"soup (merge, orient)", "mesh (build, stitch)", "holes", "crossings", "finish"};
  for (int k = 0; k < 5; ++k) std::printf("  %-28s %8.3f s\n", stages[k], rep.seconds[k]);
  std::printf("solid repair                   %8.3f s  (%lld holes, %lld facets removed round crossings)\n", tsolid,
              static_cast<long long>(rep.holes), static_cast<long long>(rep.removed));
  const double t1 = now();
  const wf::SolidCheck after = wf::checksolid(work.data(), static_cast<int64_t>(work.size() / 9));
  const double tcheck = now() - t1;
  const wf::SolidCheck want = wf::checksolid(intact.data(), static_cast<int64_t>(intact.size() / 9));
  std::printf("solid check                    %8.3f s  printable %d, volume %.1f (intact %.1f)\n", tcheck,
              after.printable(), after.volume, want.volume);

  // The whole default repair through the component, as a run calls it (in a child process).
  const std::string dir = std::filesystem::temp_directory_path().string() + "/bench_repair";
  std::filesystem::create_directories(dir);
  std::string bytes(80, ' ');
  const uint32_t n = static_cast<uint32_t>(input.size() / 9);
  bytes.append(reinterpret_cast<const char *>(&n), 4);
  for (size_t t = 0; t < n; ++t) {
    bytes.append(12, '\0');
    bytes.append(reinterpret_cast<const char *>(&input[9 * t]), 36);
    bytes.append(2, '\0');
  }
  std::FILE *f = std::fopen((dir + "/in.stl").c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
  wf::MeshRepairContext *context = nullptr;
  wf::meshrepair_initcontext(&context);
  wf::MeshRepairMesh *mesh = wf::meshrepair_loadstl(context, (dir + "/in.stl").c_str());
  const double t2 = now();
  const int status = wf::meshrepair_defaultrepair(mesh, 0.01f);
  const double trepair = now() - t2;
  int sane = 0;
  const double t3 = now();
  wf::meshrepair_issane(mesh, &sane);
  const double tsane = now() - t3;
  std::printf("default repair (component)     %8.3f s  status %d\n", trepair, status);
  std::printf("soundness test                 %8.3f s  sound %d\n", tsane, sane);
  wf::meshrepair_free(mesh);
  wf::meshrepair_freecontext(context);
  std::filesystem::remove_all(dir);
  return after.printable() && sane == 1 ? 0 : 1;
}
