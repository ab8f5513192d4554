// SPDX-License-Identifier: GPL-3.0-or-later
// genjob: writes a complete sample warp job into a folder: an L-shaped bracket (a foot on the
// build plate and a wall) with an overhanging arm at the top, its structured hexahedral mesh,
// a few result increments whose displacements look like printing distortion, the EnSight case,
// the solver input file, the control deck and the closed STL surface of the part.
//
//   genjob <folder> [--nodes N] [--tris N] [--increments N] [--text]
//                   [--field print|constant|zero] [--explicit]
//
// Stands alone: it shares no code with the program that reads the job.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

// ---------------------------------------------------------------- the part
// The cross-section in the x-z plane, in units of 5 mm, is the union of three boxes; the part is
// that section extruded over y from 0 to 4 units. Foot x 0..6, z 0..1; wall x 0..2, z 0..8;
// arm x 0..8, z 6..8, which overhangs the plate from x = 2 to x = 8.
constexpr double kUnit = 5.0;
constexpr int kSpanX = 8, kSpanY = 4, kSpanZ = 8;

bool insideunits(double x, double z) { return (x < 6 && z < 1) || (x < 2 && z < 8) || (x < 8 && z >= 6 && z < 8); }
// Cell (i, l) of a lattice with k cells per unit, by its centre.
bool insidecell(int i, int l, int k) {
  if (i < 0 || l < 0 || i >= kSpanX * k || l >= kSpanZ * k) return false;
  return insideunits((i + 0.5) / k, (l + 0.5) / k);
}

struct Options {
  std::string folder;
  long long nodes = 1500;
  long long tris = 2000;
  int increments = 3;
  bool text = false;
  bool explicitnumbers = false;
  std::string field = "print";
};

[[noreturn]] void usage(const char *why) {
  std::fprintf(stderr,
               "genjob: %s\nusage: genjob <folder> [--nodes N] [--tris N] [--increments N] "
               "[--text] [--field print|constant|zero] [--explicit]\n",
               why);
  std::exit(2);
}

long long numberarg(int argc, char **argv, int &a, long long lo, long long hi) {
  if (a + 1 >= argc) usage("an option lacks its number");
  const char *s = argv[++a];
  long long v = 0;
  auto r = std::from_chars(s, s + std::strlen(s), v);
  if (r.ec != std::errc() || *r.ptr != '\0' || v < lo || v > hi) usage("a number is out of range");
  return v;
}

Options parseargs(int argc, char **argv) {
  Options o;
  for (int a = 1; a < argc; ++a) {
    std::string arg = argv[a];
    if (arg == "--nodes") {
      o.nodes = numberarg(argc, argv, a, 1, 200000000);
    } else if (arg == "--tris") {
      o.tris = numberarg(argc, argv, a, 1, 200000000);
    } else if (arg == "--increments") {
      o.increments = static_cast<int>(numberarg(argc, argv, a, 1, 10000));
    } else if (arg == "--text") {
      o.text = true;
    } else if (arg == "--explicit") {
      o.explicitnumbers = true;
    } else if (arg == "--field") {
      if (a + 1 >= argc) usage("--field lacks its value");
      o.field = argv[++a];
      if (o.field != "print" && o.field != "constant" && o.field != "zero") usage("--field is print, constant or zero");
    } else if (!arg.empty() && arg[0] == '-') {
      usage(("unknown option " + arg).c_str());
    } else if (o.folder.empty()) {
      o.folder = arg;
    } else {
      usage("more than one folder");
    }
  }
  if (o.folder.empty()) usage("no folder given");
  return o;
}

// ---------------------------------------------------------------- the mesh

struct Mesh {
  int k = 1;  // cells per unit
  std::vector<float> x, y, z;
  std::vector<int32_t> conn;  // 8 per element, 1-based node numbers
  size_t nnodes() const { return x.size(); }
  size_t nelems() const { return conn.size() / 8; }
};

// Mesh nodes of the lattice with k cells per unit: the points of the section that touch an
// inside cell, times the layers in y.
long long meshnodecount(int k) {
  long long n2 = 0;
  for (int l = 0; l <= kSpanZ * k; ++l)
    for (int i = 0; i <= kSpanX * k; ++i)
      if (insidecell(i, l, k) || insidecell(i - 1, l, k) || insidecell(i, l - 1, k) || insidecell(i - 1, l - 1, k))
        ++n2;
  return n2 * (kSpanY * k + 1);
}

int meshrefinement(long long target) {
  int best = 1;
  double bestdist = 1e300;
  for (int k = 1; k <= 1000; ++k) {
    const long long n = meshnodecount(k);
    const double d = std::fabs(std::log(static_cast<double>(n) / static_cast<double>(target)));
    if (d < bestdist) {
      bestdist = d;
      best = k;
    }
    if (n > 2 * target) break;
  }
  return best;
}

Mesh buildmesh(int k) {
  Mesh m;
  m.k = k;
  const int nx = kSpanX * k + 1, ny = kSpanY * k + 1, nz = kSpanZ * k + 1;
  std::vector<char> used2d(static_cast<size_t>(nx) * nz, 0);
  for (int l = 0; l < nz; ++l)
    for (int i = 0; i < nx; ++i)
      used2d[static_cast<size_t>(l) * nx + i] =
          insidecell(i, l, k) || insidecell(i - 1, l, k) || insidecell(i, l - 1, k) || insidecell(i - 1, l - 1, k);
  // Nodes layer by layer from the plate up, as the part is printed.
  std::vector<int32_t> number(static_cast<size_t>(nx) * ny * nz, 0);
  const double h = kUnit / k;
  int32_t next = 0;
  for (int l = 0; l < nz; ++l)
    for (int j = 0; j < ny; ++j)
      for (int i = 0; i < nx; ++i) {
        if (!used2d[static_cast<size_t>(l) * nx + i]) continue;
        number[(static_cast<size_t>(l) * ny + j) * nx + i] = ++next;
        m.x.push_back(static_cast<float>(i * h));
        m.y.push_back(static_cast<float>(j * h));
        m.z.push_back(static_cast<float>(l * h));
      }
  auto node = [&](int i, int j, int l) { return number[(static_cast<size_t>(l) * ny + j) * nx + i]; };
  for (int l = 0; l < nz - 1; ++l)
    for (int j = 0; j < ny - 1; ++j)
      for (int i = 0; i < nx - 1; ++i) {
        if (!insidecell(i, l, k)) continue;
        const int32_t c[8] = {
            node(i, j, l),     node(i + 1, j, l),     node(i + 1, j + 1, l),     node(i, j + 1, l),
            node(i, j, l + 1), node(i + 1, j, l + 1), node(i + 1, j + 1, l + 1), node(i, j + 1, l + 1)};
        m.conn.insert(m.conn.end(), c, c + 8);
      }
  return m;
}

// ---------------------------------------------------------------- displacements

// The distortion of a printed bracket at the fraction f of the build: shrinkage towards the
// centre that grows with height, the top curling up at its ends, and the overhang bending down
// with its distance from the wall.
void printfield(double x, double y, double z, double f, float out[3]) {
  const double height = kSpanZ * kUnit, xc = 0.5 * kSpanX * kUnit, yc = 0.5 * kSpanY * kUnit;
  const double zeta = z / height;
  double ux = -0.004 * (x - xc) * zeta;
  double uy = -0.004 * (y - yc) * zeta;
  double uz = -0.003 * z;
  const double r = (x - xc) / xc;
  uz += 0.15 * r * r * zeta * zeta;
  const double wall = 2 * kUnit, armbottom = 6 * kUnit, reach = (kSpanX - 2) * kUnit;
  if (x > wall && z >= armbottom) {
    const double s = (x - wall) / reach;
    uz -= 0.4 * s * s;
    ux -= 0.02 * s * (z - armbottom) / (height - armbottom);
  }
  out[0] = static_cast<float>(ux * f);
  out[1] = static_cast<float>(uy * f);
  out[2] = static_cast<float>(uz * f);
}

void displacements(const Mesh &m, const std::string &field, double f, std::vector<float> &ux, std::vector<float> &uy,
                   std::vector<float> &uz) {
  const size_t n = m.nnodes();
  ux.assign(n, 0.0f);
  uy.assign(n, 0.0f);
  uz.assign(n, 0.0f);
  if (field == "zero") return;
  for (size_t i = 0; i < n; ++i) {
    if (field == "constant") {
      ux[i] = 0.1f;
      uy[i] = -0.2f;
      uz[i] = 0.3f;
      continue;
    }
    float u[3];
    printfield(m.x[i], m.y[i], m.z[i], f, u);
    ux[i] = u[0];
    uy[i] = u[1];
    uz[i] = u[2];
  }
}

// ---------------------------------------------------------------- writers

struct Out {
  std::vector<char> b;
  void raw(const void *p, size_t n) {
    const char *c = static_cast<const char *>(p);
    b.insert(b.end(), c, c + n);
  }
  void str(const std::string &s) { raw(s.data(), s.size()); }
  // One sequential record: its length before and after the data.
  void record(const void *p, size_t n) {
    const int32_t len = static_cast<int32_t>(n);
    raw(&len, 4);
    raw(p, n);
    raw(&len, 4);
  }
  void textrecord(const std::string &s) {
    char buf[80];
    std::memset(buf, ' ', sizeof buf);
    std::memcpy(buf, s.data(), std::min<size_t>(s.size(), 80));
    record(buf, 80);
  }
  void intrecord(int32_t v) { record(&v, 4); }
  // Text form: a line; an integer right-justified in 10 columns; a real as %12.5e.
  void line(const std::string &s) {
    str(s);
    b.push_back('\n');
  }
  void int10(long long v) {
    char t[32];
    auto r = std::to_chars(t, t + sizeof t, v);
    const size_t len = static_cast<size_t>(r.ptr - t);
    if (len < 10) b.insert(b.end(), 10 - len, ' ');
    raw(t, len);
  }
  void e12(float v) {
    char t[40];
    auto r = std::to_chars(t, t + sizeof t, static_cast<double>(v), std::chars_format::scientific, 5);
    const size_t len = static_cast<size_t>(r.ptr - t);
    if (len < 12) b.insert(b.end(), 12 - len, ' ');
    raw(t, len);
  }
  void nl() { b.push_back('\n'); }
};

bool writefile(const fs::path &path, const std::vector<char> &data) {
  std::FILE *f = std::fopen(path.string().c_str(), "wb");
  if (!f) return false;
  const bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
  return std::fclose(f) == 0 && ok;
}

bool writetext(const fs::path &path, const std::string &text) {
  return writefile(path, std::vector<char>(text.begin(), text.end()));
}

std::vector<char> geometryfile(const Mesh &m, bool text) {
  const size_t n = m.nnodes(), ne = m.nelems();
  std::vector<int32_t> ids(n);
  for (size_t i = 0; i < n; ++i) ids[i] = static_cast<int32_t>(i + 1);
  const float box[6] = {0.0f, static_cast<float>(kSpanX * kUnit), 0.0f, static_cast<float>(kSpanY * kUnit),
                        0.0f, static_cast<float>(kSpanZ * kUnit)};
  Out o;
  if (!text) {
    o.textrecord("C Binary");
    o.textrecord("Bracket with overhang, printed on a build plate at z = 0");
    o.textrecord("Structured hexahedral mesh written by genjob");
    o.textrecord("node id given");
    o.textrecord("element id off");
    o.textrecord("extents");
    o.record(box, sizeof box);
    o.textrecord("part");
    o.intrecord(1);
    o.textrecord("bracket");
    o.textrecord("coordinates");
    o.intrecord(static_cast<int32_t>(n));
    o.record(ids.data(), 4 * n);
    o.record(m.x.data(), 4 * n);
    o.record(m.y.data(), 4 * n);
    o.record(m.z.data(), 4 * n);
    o.textrecord("hexa8");
    o.intrecord(static_cast<int32_t>(ne));
    o.record(m.conn.data(), 4 * m.conn.size());
    return std::move(o.b);
  }
  o.b.reserve(n * 60 + ne * 84 + 1024);
  o.line("Bracket with overhang, printed on a build plate at z = 0");
  o.line("Structured hexahedral mesh written by genjob");
  o.line("node id given");
  o.line("element id off");
  o.line("extents");
  for (int c = 0; c < 3; ++c) {
    o.e12(box[2 * c]);
    o.e12(box[2 * c + 1]);
    o.nl();
  }
  o.line("part");
  o.int10(1);
  o.nl();
  o.line("bracket");
  o.line("coordinates");
  o.int10(static_cast<long long>(n));
  o.nl();
  for (size_t i = 0; i < n; ++i) {
    o.int10(ids[i]);
    o.nl();
  }
  for (const std::vector<float> *c : {&m.x, &m.y, &m.z})
    for (float v : *c) {
      o.e12(v);
      o.nl();
    }
  o.line("hexa8");
  o.int10(static_cast<long long>(ne));
  o.nl();
  for (size_t e = 0; e < ne; ++e) {
    for (int c = 0; c < 8; ++c) o.int10(m.conn[8 * e + c]);
    o.nl();
  }
  return std::move(o.b);
}

std::vector<char> displacementfile(const std::vector<float> &ux, const std::vector<float> &uy,
                                   const std::vector<float> &uz, bool text, int increment) {
  const std::string desc = "Displacement of increment " + std::to_string(increment);
  Out o;
  if (!text) {
    o.textrecord(desc);
    o.textrecord("part");
    o.intrecord(1);
    o.textrecord("coordinates");
    o.record(ux.data(), 4 * ux.size());
    o.record(uy.data(), 4 * uy.size());
    o.record(uz.data(), 4 * uz.size());
    return std::move(o.b);
  }
  o.b.reserve(ux.size() * 39 + 256);
  o.line(desc);
  o.line("part");
  o.int10(1);
  o.nl();
  o.line("coordinates");
  for (const std::vector<float> *c : {&ux, &uy, &uz})
    for (float v : *c) {
      o.e12(v);
      o.nl();
    }
  return std::move(o.b);
}

std::string timeset(int set, const char *what, int n, bool explicitnumbers, const std::vector<double> &times) {
  std::string s;
  s += "time set:              " + std::to_string(set) + " " + what + "\n";
  s += "number of steps:       " + std::to_string(n) + "\n";
  if (explicitnumbers) {
    s += "filename numbers:\n";
    for (int i = 1; i <= n; ++i) s += std::to_string(i) + ((i % 10 == 0 || i == n) ? "\n" : " ");
  } else {
    s += "filename start number: 1\n";
    s += "filename increment:    1\n";
  }
  s += "time values:\n";
  char t[64];
  for (double v : times) {
    std::snprintf(t, sizeof t, "%.6e\n", v);
    s += t;
  }
  return s;
}

std::string casefile(const Options &o, const std::vector<double> &times) {
  std::string s;
  s += "# EnSight Gold case of the sample job, written by genjob\n";
  s += "FORMAT\ntype: ensight gold\n\n";
  s += "GEOMETRY\nmodel: 2 results/job_*.geo\n\n";
  s += "VARIABLE\nvector per node: 1 Displacement results/job00_*.dis.ens\n\n";
  s += "TIME\n";
  s += timeset(1, "increments", o.increments, o.explicitnumbers, times);
  s += timeset(2, "meshes", o.increments, o.explicitnumbers, times);
  return s;
}

// ---------------------------------------------------------------- the surface

// The boundary of the part on a lattice with k squares per unit, two triangles per square,
// each triangle counter-clockwise seen from outside. Every vertex is computed from its lattice
// indices alone, so shared corners are bit-identical and the surface is closed.
std::vector<char> surfacefile(int k, size_t &ntri) {
  const int nx = kSpanX * k, ny = kSpanY * k, nz = kSpanZ * k;
  const double s = kUnit / k;
  auto coord = [s](int i) { return static_cast<float>(i * s); };
  // Count first: 2 triangles per boundary square.
  size_t squares = 0;
  for (int l = 0; l < nz; ++l)
    for (int i = 0; i < nx; ++i) {
      if (!insidecell(i, l, k)) continue;
      squares += 2;  // the two caps at y = 0 and y = top
      if (!insidecell(i - 1, l, k)) squares += static_cast<size_t>(ny);
      if (!insidecell(i + 1, l, k)) squares += static_cast<size_t>(ny);
      if (!insidecell(i, l - 1, k)) squares += static_cast<size_t>(ny);
      if (!insidecell(i, l + 1, k)) squares += static_cast<size_t>(ny);
    }
  ntri = 2 * squares;
  std::vector<char> buf(84 + 50 * ntri, 0);
  const char header[] = "genjob bracket with overhang, binary STL, build plate at z = 0";
  std::memcpy(buf.data(), header, sizeof header - 1);
  const uint32_t count = static_cast<uint32_t>(ntri);
  std::memcpy(buf.data() + 80, &count, 4);
  char *p = buf.data() + 84;
  auto tri = [&p](const float n[3], const float *a, const float *b, const float *c) {
    std::memcpy(p, n, 12);
    std::memcpy(p + 12, a, 12);
    std::memcpy(p + 24, b, 12);
    std::memcpy(p + 36, c, 12);
    p += 50;  // the attribute bytes stay 0
  };
  // A square with corner p0 and edges along the axes a and b (a x b is the outward normal).
  auto square = [&](const int p0[3], int a, int b, const float n[3]) {
    int q[4][3];
    for (int c = 0; c < 3; ++c) q[0][c] = q[1][c] = q[2][c] = q[3][c] = p0[c];
    q[1][a] += 1;
    q[2][a] += 1;
    q[2][b] += 1;
    q[3][b] += 1;
    float v[4][3];
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 3; ++c) v[r][c] = coord(q[r][c]);
    tri(n, v[0], v[1], v[2]);
    tri(n, v[0], v[2], v[3]);
  };
  const float nxm[3] = {-1, 0, 0}, nxp[3] = {1, 0, 0}, nym[3] = {0, -1, 0}, nyp[3] = {0, 1, 0}, nzm[3] = {0, 0, -1},
              nzp[3] = {0, 0, 1};
  for (int l = 0; l < nz; ++l)
    for (int i = 0; i < nx; ++i) {
      if (!insidecell(i, l, k)) continue;
      {
        const int p0[3] = {i, 0, l};
        square(p0, 0, 2, nym);  // x cross z = -y
        const int p1[3] = {i, ny, l};
        square(p1, 2, 0, nyp);  // z cross x = +y
      }
      for (int j = 0; j < ny; ++j) {
        if (!insidecell(i - 1, l, k)) {
          const int p0[3] = {i, j, l};
          square(p0, 2, 1, nxm);  // z cross y = -x
        }
        if (!insidecell(i + 1, l, k)) {
          const int p0[3] = {i + 1, j, l};
          square(p0, 1, 2, nxp);  // y cross z = +x
        }
        if (!insidecell(i, l - 1, k)) {
          const int p0[3] = {i, j, l};
          square(p0, 1, 0, nzm);  // y cross x = -z
        }
        if (!insidecell(i, l + 1, k)) {
          const int p0[3] = {i, j, l + 1};
          square(p0, 0, 1, nzp);  // x cross y = +z
        }
      }
    }
  return buf;
}

int surfacerefinement(long long target) {
  // The boundary holds 224 squares of one unit: 448 k^2 triangles.
  const double k = std::sqrt(static_cast<double>(target) / 448.0);
  return std::max(1, static_cast<int>(std::lround(k)));
}

}  // namespace

int main(int argc, char **argv) {
  const Options o = parseargs(argc, argv);
  const fs::path folder(o.folder);
  std::error_code ec;
  fs::create_directories(folder / "results", ec);
  if (ec) {
    std::fprintf(stderr, "genjob: cannot make folder %s: %s\n", (folder / "results").string().c_str(),
                 ec.message().c_str());
    return 1;
  }
  bool ok = true;

  const Mesh mesh = buildmesh(meshrefinement(o.nodes));
  std::vector<double> times(static_cast<size_t>(o.increments));
  for (int i = 0; i < o.increments; ++i) times[static_cast<size_t>(i)] = 100.0 * (i + 1);

  // One geometry per increment (the mesh of each time set entry) and its displacements.
  const std::vector<char> geo = geometryfile(mesh, o.text);
  std::vector<float> ux, uy, uz;
  for (int i = 1; i <= o.increments; ++i) {
    const std::string n = std::to_string(i);
    ok = ok && writefile(folder / "results" / ("job_" + n + ".geo"), geo);
    displacements(mesh, o.field, static_cast<double>(i) / o.increments, ux, uy, uz);
    ok = ok && writefile(folder / "results" / ("job00_" + n + ".dis.ens"), displacementfile(ux, uy, uz, o.text, i));
  }
  ok = ok && writetext(folder / "job.case", casefile(o, times));

  size_t ntri = 0;
  ok = ok && writefile(folder / "part.stl", surfacefile(surfacerefinement(o.tris), ntri));

  ok = ok && writetext(folder / "job.in",
                       "** Solver input of the sample job, written by genjob\n"
                       "*HEAD\n"
                       "Bracket with overhang on a build plate\n"
                       "*OFNS\n"
                       "5\n"
                       "*STLF\n"
                       "part.stl\n"
                       "*STLM\n"
                       "1, 1, 0, 1.0\n"
                       "*STLS\n"
                       "1.0\n"
                       "*MATE\n"
                       "Ti6Al4V\n"
                       "*END\n");
  ok = ok && writetext(folder / "job.deck",
                       "# Sample warp job, written by genjob\n"
                       "*INPU\n"
                       "job\n"
                       "*MAXE\n"
                       "5.0\n"
                       "*MINE\n"
                       "2.0\n"
                       "*IOFF\n"
                       "-1\n");
  if (!ok) {
    std::fprintf(stderr, "genjob: cannot write the job into %s\n", o.folder.c_str());
    return 1;
  }
  std::printf("genjob: %s: %zu nodes, %zu elements, %zu triangles, %d increments, %s\n", o.folder.c_str(),
              mesh.nnodes(), mesh.nelems(), ntri, o.increments, o.text ? "text" : "binary");
  return 0;
}
