// SPDX-License-Identifier: GPL-3.0-or-later
// The repair as runs meet it.
//   bench_repair cases [part] [first last]
//                               each part of tests/shapes.h with each damage, warped on the
//                               sample job's field with refinement that reaches the damage
//                               (*MAXE 5.0 *MINE 2.0) and *TSRD *TSRE, judged against the intact
//                               part warped alike (the warped inputs stay in the job folder); the
//                               damage made at facet 5, or at each facet from first to last
//                               (those whose warp shows no debris are passed over)
//   bench_repair large [folder] [cards] [holes]
//                               the large generated job (1.1 M facets) with three holes (and as
//                               many more small ones as asked), whole, then its solid repair
//                               stage by stage and the soundness test
//   bench_repair scattered      a hundred scattered facets through the component
//   bench_repair file in.stl [out.stl] [unite]
//                               the solid repair alone on one STL, judged
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "benchclock.h"
#include "judge.h"
#include "repair/meshfix.h"
#include "repair/meshrepair.h"
#include "repair/solidcheck.h"
#include "repair/solidrepair.h"
#include "shapes.h"
#include "testutil.h"

namespace {

using wfbench::now;

// Facets 9 floats each without those whose centroid lies within radius of one of the centres.
wft::Facets withholes(const wft::Facets &s, const std::vector<std::array<float, 3>> &centres, float radius,
                      size_t &dropped) {
  wft::Facets out;
  dropped = 0;
  for (size_t t = 0; t < s.size() / 9; ++t) {
    bool hole = false;
    for (const auto &c : centres) {
      double d = 0;
      for (int k = 0; k < 3; ++k) {
        const double x =
            (s[9 * t + size_t(k)] + s[9 * t + 3 + size_t(k)] + s[9 * t + 6 + size_t(k)]) / 3.0 - c[size_t(k)];
        d += x * x;
      }
      hole = hole || d < double(radius) * radius;
    }
    if (hole)
      ++dropped;
    else
      out.insert(out.end(), &s[9 * t], &s[9 * t + 9]);
  }
  return out;
}

// A hundred scattered facets, which bound no solid, through the component as the client calls
// it: default repair, soundness, extended repair, soundness.
int scattered() {
  const wft::Facets s = wft::scatteredfacets(100, 11);
  const std::string d = wft::tempdir("scattered");
  wft::writefile(d + "/in.stl", wft::binarystlbytes(s));
  const double t0 = now();
  wf::MeshRepairContext *context = nullptr;
  wf::meshrepair_initcontext(&context);
  wf::MeshRepairMesh *mesh = wf::meshrepair_loadstl(context, (d + "/in.stl").c_str());
  int sane = 0;
  wf::meshrepair_defaultrepair(mesh, 0.01f);
  wf::meshrepair_issane(mesh, &sane);
  if (sane == 0) {
    wf::meshrepair_extendedrepair(mesh, 0.01f);
    wf::meshrepair_issane(mesh, &sane);
  }
  std::printf("100 scattered facets: sound %d after %.3f s (default and extended repair)\n", sane, now() - t0);
  wf::meshrepair_free(mesh);
  wf::meshrepair_freecontext(context);
  return sane == 0 ? 0 : 1;
}

// The large generated job with three holes (and `more` small ones round facets spread through the
// file), run whole with *TSRD *TSRE, and its repair alone, stage by stage.
int large(const std::string &dir, const std::string &cards, size_t more) {
  std::filesystem::create_directories(dir);
  if (!std::filesystem::exists(dir + "/job.case")) {
    std::printf("making the job in %s\n", dir.c_str());
    std::fflush(stdout);
    wft::rungenjob(dir, {"--tris", "1100000", "--nodes", "1000000"});
    std::filesystem::rename(dir + "/part.stl", dir + "/intact.stl");
  }
  const wft::Facets intact = wft::binarystlfacets(wft::readfile(dir + "/intact.stl"));
  // Three holes of a few hundred facets: on the foot's top, on the wall's outer side, under the arm.
  size_t dropped = 0, droppedmore = 0;
  wft::Facets holed =
      withholes(intact, {{{20.0f, 10.0f, 5.0f}}, {{0.0f, 12.0f, 20.0f}}, {{30.0f, 8.0f, 30.0f}}}, 1.2f, dropped);
  if (more > 0) {
    std::vector<std::array<float, 3>> centres;
    for (size_t h = 0; h < more; ++h) {
      const float *f = &holed[9 * ((2 * h + 1) * (holed.size() / 9) / (2 * more))];
      centres.push_back({f[0], f[1], f[2]});
    }
    holed = withholes(holed, centres, 0.3f, droppedmore);
  }
  wft::writefile(dir + "/part.stl", wft::binarystlbytes(holed));
  wft::writefile(dir + "/large.deck", "*INPU\njob\n*IOFF\n-1\n*N3DM\n*TSRD\n*TSRE\n" + cards);
  std::printf("%zu facets, %zu removed in three holes, %zu in %zu more; deck cards: %s\n", holed.size() / 9, dropped,
              droppedmore, more, cards.empty() ? "(none)" : cards.c_str());
  std::filesystem::remove(dir + "/job_1_warp_ls_repair.stl");
  const double t0 = now();
  const wft::RunResult run = wft::runwarpforge("large.deck", dir);
  const double whole = now() - t0;
  const bool written = std::filesystem::exists(dir + "/job_1_warp_ls_repair.stl");
  std::printf("whole run %.2f s, exit %d, repaired file %s\n", whole, run.status, written ? "written" : "not written");
  for (const std::string &l : wft::splitlines(run.out))
    if (l.rfind("facecount", 0) == 0 || l.rfind("Status", 0) == 0 || l.find("repair") != std::string::npos ||
        l.find("Repair") != std::string::npos)
      std::printf("  | %s\n", l.c_str());
  // The repair alone, in this process: the solid repair's stages, the soundness test.
  const wft::Facets warped = wft::binarystlfacets(wft::readfile(dir + "/job_1_warp.stl"));
  std::printf("warped: %zu facets, %zu edges on more than two facets\n", warped.size() / 9,
              wft::overloadededges(warped));
  std::vector<float> xyz = warped;
  const double t1 = now();
  const wf::SolidRepairReport r = wf::makesolid(xyz, false);
  const double tsolid = now() - t1;
  const char *stages[5] = {"merge", "debris", "orient", "holes", "finish"};
  for (int k = 0; k < 5; ++k) std::printf("  %-8s %8.3f s\n", stages[k], r.seconds[k]);
  std::printf("solid repair %.3f s: taken %d, %lld debris, %lld holes, %lld removed round patches\n", tsolid, r.taken,
              (long long)r.debris, (long long)r.holes, (long long)r.removed);
  const double t2 = now();
  const wf::SolidCheck c = wf::checksolid(xyz.data(), int64_t(xyz.size() / 9));
  std::printf("soundness check %.3f s: printable %d\n", now() - t2, c.printable());
  if (written) {
    const wft::Facets repaired = wft::binarystlfacets(wft::readfile(dir + "/job_1_warp_ls_repair.stl"));
    const double t3 = now();
    const wft::Verdict v = wft::judge(repaired, &warped);
    std::printf("judge (%.1f s): %s\n", now() - t3, v.text().c_str());
  }
  return written ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  const std::string mode = argc > 1 ? argv[1] : "cases";
  const std::string filter = argc > 2 ? argv[2] : "";
  if (mode == "pass") {  // the default pass as the child runs it, in this process
    std::vector<float> xyz = wft::binarystlfacets(wft::readfile(filter));
    stl_file stl;
    wf::meshfix::loadfacets(stl, xyz.data(), int64_t(xyz.size() / 9));
    wf::meshfix::defaultpass(stl, 0.01f);
    std::printf("facets %d\n", stl.stats.number_of_facets);
    return 0;
  }
  if (mode == "file") {  // the solid repair alone, in this process, on one STL
    std::vector<float> xyz = wft::binarystlfacets(wft::readfile(filter));
    const std::vector<float> given = xyz;
    const double t0 = now();
    const wf::SolidRepairReport r = wf::makesolid(xyz, argc > 4);
    std::printf("%.3f s: merge %.3f debris %.3f orient %.3f holes %.3f finish %.3f\n", now() - t0, r.seconds[0],
                r.seconds[1], r.seconds[2], r.seconds[3], r.seconds[4]);
    std::printf(
        "taken %d closed %d crossing %d debris %lld holes %lld removed %lld pieces %d shells %d area %.3f of %.3f\n",
        r.taken, r.closed, r.crossing, (long long)r.debris, (long long)r.holes, (long long)r.removed, r.pieces,
        r.shells, r.area, r.givenarea);
    std::printf("%s\n", wft::judge(xyz, &given).text().c_str());
    if (argc > 3) wft::writefile(argv[3], wft::binarystlbytes(xyz));
    return 0;
  }
  if (mode == "large")
    return large(argc > 2 ? argv[2] : "/tmp/bench_repair_large", argc > 3 ? argv[3] : "",
                 argc > 4 ? size_t(std::atoi(argv[4])) : 0);
  if (mode == "scattered") return scattered();
  const std::string dir = wft::samplefield("bench_repair");
  std::printf("job folder %s\n", dir.c_str());
  const std::vector<wft::NamedPart> parts = wft::repairparts(dir);
  const std::string cards = "*MAXE\n5.0\n*MINE\n2.0\n";
  const size_t first = argc > 4 ? size_t(std::atoi(argv[3])) : 5, last = argc > 4 ? size_t(std::atoi(argv[4])) : first;
  int bad = 0;
  for (const wft::NamedPart &p : parts) {
    if (!filter.empty() && p.name != filter) continue;
    const wft::WarpRun intact = wft::warpsurface(dir, p.facets, cards);
    const wft::Verdict iv = wft::judge(intact.warped);
    wft::writefile(dir + "/" + p.name + "_0.stl", wft::binarystlbytes(intact.warped));
    std::printf("== %s intact warped: %s\n", p.name.c_str(), iv.text().c_str());
    for (wft::Damage d : {wft::Damage::onefacet, wft::Damage::twofacets, wft::Damage::side, wft::Damage::sliver,
                          wft::Damage::fin, wft::Damage::reversedcopy})
      for (size_t at = first; at <= last; ++at) {
        const wft::Facets broken = wft::damage(p.facets, d, at);
        const double t0 = now();
        const wft::WarpRun w = wft::warpsurface(dir, broken, cards + "*TSRD\n*TSRE\n");
        const double t = now() - t0;
        if (first != last && wft::overloadededges(w.warped) == 0) continue;
        wft::writefile(dir + "/" + p.name + "_" + std::to_string(int(d)) + ".stl", wft::binarystlbytes(w.warped));
        const wft::Verdict v = wft::judge(w.repaired, &w.warped);
        const double ref = p.name == "bridge" ? wft::bridgevolume() : iv.volume;
        const bool ok = w.repairedwritten && v.printable() && v.newhits == 0 && std::abs(v.volume - ref) <= 0.01 * ref;
        bad += !ok;
        std::printf("%-8s %-38s at %2zu %s overloaded %zu  %.2f s  %s\n   %s  dV %.2f%%\n", p.name.c_str(),
                    wft::damagename(d), at, ok ? "OK  " : "FAIL", wft::overloadededges(w.warped), t,
                    w.repairedwritten ? "written" : "not written", v.text().c_str(), 100 * (v.volume - ref) / ref);
      }
  }
  return bad ? 1 : 0;
}
