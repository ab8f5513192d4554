// SPDX-License-Identifier: GPL-2.0-or-later
// Times the load of a large simulation result: a block of 100 x 100 x 100 nodes (1,000,000
// nodes, 970,299 hexahedra) written as a binary case, then readgeo + readvariable, several
// times over with the files in the page cache. Also times the text form once.
//
//   bench_simresults [repeats]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>
#include <algorithm>

#include "control/messages.h"
#include "control/runstate.h"
#include "simresults/readgeo.h"
#include "simresults/readvariable.h"

namespace fs = std::filesystem;

namespace {

constexpr int kSide = 100;

struct Out {
  std::vector<char> b;
  void raw(const void *p, size_t n) {
    const char *c = static_cast<const char *>(p);
    b.insert(b.end(), c, c + n);
  }
  void record(const void *p, size_t n) {
    const int32_t len = static_cast<int32_t>(n);
    raw(&len, 4);
    raw(p, n);
    raw(&len, 4);
  }
  void text(const char *s) {
    char buf[80];
    std::memset(buf, ' ', 80);
    std::memcpy(buf, s, std::strlen(s));
    record(buf, 80);
  }
  void i(int32_t v) { record(&v, 4); }
};

void save(const fs::path &p, const std::vector<char> &b) {
  std::FILE *f = std::fopen(p.string().c_str(), "wb");
  if (!f || std::fwrite(b.data(), 1, b.size(), f) != b.size()) {
    std::fprintf(stderr, "cannot write %s\n", p.string().c_str());
    std::exit(1);
  }
  std::fclose(f);
}

void savetext(const fs::path &p, const std::string &s) { save(p, std::vector<char>(s.begin(), s.end())); }

double seconds(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// The block's node coordinates and connectivity, node i + side*(j + side*k) at (i, j, k) * 0.5.
void block(std::vector<float> &x, std::vector<float> &y, std::vector<float> &z, std::vector<int32_t> &conn) {
  const size_t n = static_cast<size_t>(kSide) * kSide * kSide;
  x.resize(n), y.resize(n), z.resize(n);
  for (int k = 0; k < kSide; ++k)
    for (int j = 0; j < kSide; ++j)
      for (int i = 0; i < kSide; ++i) {
        const size_t p = static_cast<size_t>(i) + kSide * (static_cast<size_t>(j) + kSide * k);
        x[p] = 0.5f * i, y[p] = 0.5f * j, z[p] = 0.5f * k;
      }
  auto id = [](int i, int j, int k) { return static_cast<int32_t>(1 + i + kSide * (j + kSide * k)); };
  conn.clear();
  conn.reserve(8 * static_cast<size_t>(kSide - 1) * (kSide - 1) * (kSide - 1));
  for (int k = 0; k + 1 < kSide; ++k)
    for (int j = 0; j + 1 < kSide; ++j)
      for (int i = 0; i + 1 < kSide; ++i) {
        const int32_t c[8] = {id(i, j, k),         id(i + 1, j, k),     id(i + 1, j + 1, k),
                              id(i, j + 1, k),     id(i, j, k + 1),     id(i + 1, j, k + 1),
                              id(i + 1, j + 1, k + 1), id(i, j + 1, k + 1)};
        conn.insert(conn.end(), c, c + 8);
      }
}

void writebinary(const fs::path &folder) {
  std::vector<float> x, y, z;
  std::vector<int32_t> conn;
  block(x, y, z, conn);
  const size_t n = x.size();
  std::vector<int32_t> ids(n);
  for (size_t i = 0; i < n; ++i) ids[i] = static_cast<int32_t>(i + 1);
  Out g;
  g.text("C Binary");
  g.text("benchmark block");
  g.text("1,000,000 nodes");
  g.text("node id given");
  g.text("element id off");
  g.text("part");
  g.i(1);
  g.text("block");
  g.text("coordinates");
  g.i(static_cast<int32_t>(n));
  g.record(ids.data(), 4 * n);
  g.record(x.data(), 4 * n);
  g.record(y.data(), 4 * n);
  g.record(z.data(), 4 * n);
  g.text("hexa8");
  g.i(static_cast<int32_t>(conn.size() / 8));
  g.record(conn.data(), 4 * conn.size());
  save(folder / "results" / "bench_1.geo", g.b);
  Out d;
  d.text("displacement");
  d.text("part");
  d.i(1);
  d.text("coordinates");
  for (const std::vector<float> *c : {&x, &y, &z}) {
    std::vector<float> u(c->size());
    for (size_t i = 0; i < u.size(); ++i) u[i] = 0.001f * (*c)[i];
    d.record(u.data(), 4 * n);
  }
  save(folder / "results" / "bench00_1.dis.ens", d.b);
}

void writetext(const fs::path &folder) {
  std::vector<float> x, y, z;
  std::vector<int32_t> conn;
  block(x, y, z, conn);
  const size_t n = x.size();
  std::string s = "benchmark block\ntext form\nnode id off\nelement id off\npart\n1\nblock\ncoordinates\n";
  s += std::to_string(n) + "\n";
  char buf[64];
  for (const std::vector<float> *c : {&x, &y, &z})
    for (float v : *c) s.append(buf, static_cast<size_t>(std::snprintf(buf, sizeof buf, "%12.5e\n", static_cast<double>(v))));
  s += "hexa8\n" + std::to_string(conn.size() / 8) + "\n";
  for (size_t e = 0; e < conn.size() / 8; ++e) {
    for (int k = 0; k < 8; ++k) s.append(buf, static_cast<size_t>(std::snprintf(buf, sizeof buf, "%10d", conn[8 * e + k])));
    s += "\n";
  }
  savetext(folder / "results" / "bench_2.geo", s);
  std::string d = "displacement\npart\n1\ncoordinates\n";
  for (const std::vector<float> *c : {&x, &y, &z})
    for (float v : *c) d.append(buf, static_cast<size_t>(std::snprintf(buf, sizeof buf, "%12.5e\n", 0.001 * v)));
  savetext(folder / "results" / "bench00_2.dis.ens", d);
}

// One load in a fresh run state; returns the seconds of readgeo and readvariable.
void load(int number, double &tgeo, double &tvar, wf::RunState &rs) {
  rs.casestem = "bench";
  rs.meshfilenumber = number;
  rs.dispfile = "results/bench00_" + std::to_string(number) + ".dis.ens";
  auto t0 = std::chrono::steady_clock::now();
  wf::readgeo(rs, ".geo");
  tgeo = seconds(t0);
  t0 = std::chrono::steady_clock::now();
  wf::readvariable(rs, 3);
  tvar = seconds(t0);
}

}  // namespace

int main(int argc, char **argv) {
  const int repeats = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  const fs::path folder = fs::temp_directory_path() / ("bench_simresults_" + std::to_string(::getpid()));
  fs::create_directories(folder / "results");
  const fs::path start = fs::current_path();
  fs::current_path(folder);

  auto t0 = std::chrono::steady_clock::now();
  writebinary(folder);
  const double twrite = seconds(t0);
  std::printf("binary case written: %.3f s (%.1f MB geometry, %.1f MB displacements)\n", twrite,
              static_cast<double>(fs::file_size("results/bench_1.geo")) / 1e6,
              static_cast<double>(fs::file_size("results/bench00_1.dis.ens")) / 1e6);

  double best = 1e300, sum = 0, bestgeo = 0, bestvar = 0;
  int nnodes = 0, nelems = 0;
  for (int r = 0; r < repeats; ++r) {
    wf::RunState rs;
    double tg = 0, tv = 0;
    load(1, tg, tv, rs);
    nnodes = rs.nnodes;
    nelems = rs.nelems;
    sum += tg + tv;
    if (tg + tv < best) best = tg + tv, bestgeo = tg, bestvar = tv;
    if (rs.nodedisp[3 * 999999 + 2] != static_cast<double>(0.001f * 49.5f)) {
      std::fprintf(stderr, "unexpected displacement value\n");
      return 1;
    }
  }
  std::printf("binary: %d nodes, %d elements\n", nnodes, nelems);
  std::printf("binary readgeo + readvariable: best %.3f s (readgeo %.3f s, readvariable %.3f s), mean %.3f s over %d\n",
              best, bestgeo, bestvar, sum / repeats, repeats);

  t0 = std::chrono::steady_clock::now();
  writetext(folder);
  std::printf("text case written: %.3f s (%.1f MB geometry)\n", seconds(t0),
              static_cast<double>(fs::file_size("results/bench_2.geo")) / 1e6);
  {
    wf::RunState rs;
    double tg = 0, tv = 0;
    load(2, tg, tv, rs);
    std::printf("text readgeo + readvariable: %.3f s (readgeo %.3f s, readvariable %.3f s)\n", tg + tv, tg, tv);
  }

  fs::current_path(start);
  std::error_code ec;
  fs::remove_all(folder, ec);
  return 0;
}
