// SPDX-License-Identifier: GPL-3.0-or-later
// The closest point on a large query set: a closed, finely tessellated torus of about a million
// triangles (edges 0.2 to 0.4 long), a million query points near its surface (within 0.5), a
// million close to it (within 0.05) and a hundred thousand far from it. Times the build of the
// index and the queries on one and two threads, and the linear pass over every triangle on a
// subset for the speed-up; checks that both give the same points.
//   bench_closestpoint [u-cells (1000)] [v-cells (500)]
#include <omp.h>
#include <xmmintrin.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "benchclock.h"
#include "warp/closestpoint.h"

namespace {

using wfbench::now;

}  // namespace

int main(int argc, char **argv) {
  _mm_setcsr(_mm_getcsr() | 0x8040);
  const int nu = argc > 1 ? std::atoi(argv[1]) : 1000, nv = argc > 2 ? std::atoi(argv[2]) : 500;
  const double R = 50, r = 15;
  std::vector<double> corners;
  corners.reserve(18 * static_cast<size_t>(nu) * nv);
  auto point = [&](int i, int j) {
    const double u = 2 * M_PI * i / nu, v = 2 * M_PI * j / nv;
    return std::array<double, 3>{(R + r * std::cos(v)) * std::cos(u), (R + r * std::cos(v)) * std::sin(u),
                                 r * std::sin(v)};
  };
  for (int i = 0; i < nu; ++i)
    for (int j = 0; j < nv; ++j) {
      const auto a = point(i, j), b = point(i + 1, j), c = point(i + 1, j + 1), d = point(i, j + 1);
      for (const auto *p : {&a, &b, &c, &a, &c, &d}) corners.insert(corners.end(), p->begin(), p->end());
    }
  const int32_t ntri = static_cast<int32_t>(corners.size() / 9);
  const std::vector<double> copy = corners;
  const double box[6] = {-65, -65, -15, 65, 65, 15};

  // Queries: near the surface (within 0.5 of it), close to it (within 0.05) and far (up to 300
  // away), all in random order.
  std::mt19937_64 rng(1);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<double> near, close, far;
  for (auto [set, width] : {std::pair{&near, 1.0}, std::pair{&close, 0.1}})
    for (int k = 0; k < 1000000; ++k) {
      const double u = 2 * M_PI * unit(rng), v = 2 * M_PI * unit(rng), rr = r + width * (unit(rng) - 0.5);
      set->insert(set->end(),
                  {(R + rr * std::cos(v)) * std::cos(u), (R + rr * std::cos(v)) * std::sin(u), rr * std::sin(v)});
    }
  for (int k = 0; k < 100000; ++k)
    far.insert(far.end(), {600 * unit(rng) - 300, 600 * unit(rng) - 300, 600 * unit(rng) - 300});

  const double t0 = now();
  const wf::QuerySet set = wf::makequeryset(std::vector<double>(copy), ntri, box);
  const double tset = now() - t0;
  wf::QuerySet rebuilt = set;
  const double t1 = now();
  wf::buildindex(rebuilt);
  const double tbuild = now() - t1;
  std::printf("==== closest point: %d triangles, %zu index nodes (%.1f MB), leaf blocks %.1f MB\n", ntri,
              set.nodes.size(), 1e-6 * double(set.nodes.size() * sizeof(wf::WideNode)),
              1e-6 * double(set.leaves.size() * sizeof(double)));
  std::printf("set, first build of its index  %8.3f s\n", tset);
  std::printf("index build alone              %8.3f s\n", tbuild);

  std::vector<double> out(near.size());
  for (int threads : {1, 2, 1}) {
    omp_set_num_threads(threads);
    for (const auto *q : {&near, &close, &far}) {
      const long n = static_cast<long>(q->size() / 3);
      double best = 1e30;
      for (int rep = 0; rep < 3; ++rep) {
        const double s = now();
#pragma omp parallel for schedule(dynamic, 256)
        for (long k = 0; k < n; ++k) wf::closestpoint(q->data() + 3 * k, out.data() + 3 * k, set);
        best = std::min(best, now() - s);
      }
      std::printf("%-5s queries, %d thread%s       %8.3f us per query (%ld queries)\n",
                  q == &near    ? "near"
                  : q == &close ? "close"
                                : "far",
                  threads, threads > 1 ? "s" : " ", 1e6 * best / n, n);
    }
  }

  // The same near points in the order a job asks for them: a merged surface numbers its vertices
  // by ascending x, then y, then z, and the vertex loop takes them in that order.
  {
    std::vector<std::array<double, 3>> sorted(near.size() / 3);
    for (size_t k = 0; k < sorted.size(); ++k) sorted[k] = {near[3 * k], near[3 * k + 1], near[3 * k + 2]};
    std::sort(sorted.begin(), sorted.end());
    omp_set_num_threads(1);
    double best = 1e30;
    for (int rep = 0; rep < 3; ++rep) {
      const double s = now();
      for (size_t k = 0; k < sorted.size(); ++k) wf::closestpoint(sorted[k].data(), out.data() + 3 * k, set);
      best = std::min(best, now() - s);
    }
    std::printf("near  queries in vertex order, 1 thread %6.3f us per query\n", 1e6 * best / double(sorted.size()));
  }

  // The linear pass on a subset, and the same answers.
  const int nsub = 100;
  int differ = 0;
  const double s = now();
  for (int k = 0; k < nsub; ++k) {
    double a[3], b[3];
    wf::closestpointlinear(near.data() + 3 * k, a, set);
    wf::closestpoint(near.data() + 3 * k, b, set);
    differ += std::memcmp(a, b, sizeof a) != 0;
  }
  const double tlin = (now() - s) / nsub;
  double tidx = 1e30;
  for (int rep = 0; rep < 3; ++rep) {
    const double s2 = now();
    for (int k = 0; k < nsub; ++k) {
      double b[3];
      wf::closestpoint(near.data() + 3 * k, b, set);
    }
    tidx = std::min(tidx, (now() - s2) / nsub);
  }
  std::printf("linear pass, 1 thread          %8.1f us per query (%d queries)\n", 1e6 * tlin, nsub);
  std::printf("speed-up of the index          %8.0f x, %d of %d answers differ\n", tlin / tidx, differ, nsub);
  return differ == 0 ? 0 : 1;
}
