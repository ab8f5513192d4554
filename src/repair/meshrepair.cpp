// SPDX-License-Identifier: GPL-3.0-or-later
// The mesh-repair component. A mesh is held as plain facets (9 floats each); soundness is told by
// admesh's exact check on a scratch copy, and the repairs run through admesh in a child process
// (isolate.h), whose result replaces the facets.
//
// It reads and writes STL on its own rather than through surface/: it stands for a separate
// library that the client hands a file, which keeps single-precision facets and owes the run no
// console lines, no repaired-sibling rule and no messages of the run's catalogue.
#include "repair/meshrepair.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "repair/isolate.h"
#include "repair/meshfix.h"

namespace wf {

struct MeshRepairContext {
  std::string lasterror;
};

struct MeshRepairMesh {
  MeshRepairContext *context = nullptr;
  std::vector<float> xyz;  // 9 per facet
};

namespace {

int fail(MeshRepairContext *context, int status, const std::string &text) {
  if (context) context->lasterror = text;
  return status;
}

uint32_t le32(const unsigned char *p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
uint32_t be32(const unsigned char *p) {
  return uint32_t(p[3]) | uint32_t(p[2]) << 8 | uint32_t(p[1]) << 16 | uint32_t(p[0]) << 24;
}

// Facets of a binary file in one byte order; the record is 12 normal bytes, 36 corner bytes and
// 2 attribute bytes.
void binaryfacets(const std::vector<unsigned char> &bytes, uint32_t n, bool bigendian, std::vector<float> &xyz) {
  xyz.resize(size_t(n) * 9);
  const unsigned char *rec = bytes.data() + 84;
  for (uint32_t t = 0; t < n; ++t, rec += 50)
    for (int k = 0; k < 9; ++k) {
      uint32_t w = bigendian ? be32(rec + 12 + 4 * k) : le32(rec + 12 + 4 * k);
      std::memcpy(&xyz[size_t(t) * 9 + k], &w, 4);
    }
}

// ASCII: every line whose first word is "vertex" gives one corner, three corners a facet.
// Returns -1 when the text is no STL, else the number of corners read.
long long asciifacets(const std::vector<unsigned char> &bytes, std::vector<float> &xyz, bool &sawsolid) {
  xyz.clear();
  sawsolid = false;
  size_t i = 0, n = bytes.size();
  long long corners = 0, facets = 0;
  std::string line;
  while (i < n) {
    size_t e = i;
    while (e < n && bytes[e] != '\n') ++e;
    line.assign(reinterpret_cast<const char *>(bytes.data()) + i, e - i);
    i = e + 1;
    for (char c : line)
      if (c == '\0') return -1;  // binary content
    size_t b = line.find_first_not_of(" \t\r");
    if (b == std::string::npos) continue;
    const char *s = line.c_str() + b;
    if (std::strncmp(s, "solid", 5) == 0) sawsolid = true;
    if (std::strncmp(s, "facet", 5) == 0) ++facets;
    if (std::strncmp(s, "vertex", 6) != 0 || !(s[6] == ' ' || s[6] == '\t')) continue;
    const char *p = s + 6;
    for (int k = 0; k < 3; ++k) {
      char *end = nullptr;
      errno = 0;
      float v = std::strtof(p, &end);
      if (end == p) return -1;
      xyz.push_back(v);
      p = end;
    }
    ++corners;
  }
  if (corners % 3 != 0) return -1;
  if (facets > 0 && facets != corners / 3) return -1;
  if (corners == 0 && !sawsolid) return -1;
  return corners;
}

}  // namespace

int meshrepair_getversion() { return MESHREPAIR_VERSION; }

int meshrepair_initcontext(MeshRepairContext **context) {
  if (!context) return MESHREPAIR_EARG;
  *context = new (std::nothrow) MeshRepairContext();
  return *context ? 0 : MESHREPAIR_ENOMEM;
}

MeshRepairMesh *meshrepair_loadstl(MeshRepairContext *context, const char *path) {
  if (!context) return nullptr;
  if (!path || !*path) {
    fail(context, MESHREPAIR_EARG, "no STL file name given");
    return nullptr;
  }
  const std::string name(path);
  std::FILE *f = std::fopen(path, "rb");
  if (!f) {
    fail(context, MESHREPAIR_EIO, "cannot open STL file '" + name + "': " + std::strerror(errno));
    return nullptr;
  }
  std::vector<unsigned char> bytes;
  bool readok = std::fseek(f, 0, SEEK_END) == 0;
  long size = readok ? std::ftell(f) : -1;
  if (size < 0 || std::fseek(f, 0, SEEK_SET) != 0) readok = false;
  if (readok) {
    try {
      bytes.resize(size_t(size));
    } catch (const std::bad_alloc &) {
      std::fclose(f);
      fail(context, MESHREPAIR_ENOMEM, "out of memory reading STL file '" + name + "'");
      return nullptr;
    }
    readok = bytes.empty() || std::fread(bytes.data(), 1, bytes.size(), f) == bytes.size();
  }
  int saved = errno;
  std::fclose(f);
  if (!readok) {
    fail(context, MESHREPAIR_EIO, "cannot read STL file '" + name + "': " + std::strerror(saved ? saved : EIO));
    return nullptr;
  }

  auto *mesh = new (std::nothrow) MeshRepairMesh();
  if (!mesh) {
    fail(context, MESHREPAIR_ENOMEM, "out of memory reading STL file '" + name + "'");
    return nullptr;
  }
  mesh->context = context;
  std::vector<float> &xyz = mesh->xyz;
  const uint64_t fsize = bytes.size();
  const uint32_t nle = fsize >= 84 ? le32(&bytes[80]) : 0;
  const uint32_t nbe = fsize >= 84 ? be32(&bytes[80]) : 0;
  bool known = true, empty = false;
  try {
    bool sawsolid = false;
    if (fsize >= 84 && 84 + 50 * uint64_t(nle) == fsize) {
      binaryfacets(bytes, nle, false, xyz);
      empty = nle == 0;
    } else if (fsize >= 84 && nbe > 0 && 84 + 50 * uint64_t(nbe) == fsize) {
      binaryfacets(bytes, nbe, true, xyz);
    } else if (long long corners = asciifacets(bytes, xyz, sawsolid); corners >= 0) {
      empty = corners == 0;
    } else if (fsize >= 84 && nle > 0 && 84 + 50 * uint64_t(nle) < fsize) {
      binaryfacets(bytes, nle, false, xyz);  // trailing bytes after the last facet
    } else {
      known = false;
    }
  } catch (const std::bad_alloc &) {
    delete mesh;
    fail(context, MESHREPAIR_ENOMEM, "out of memory reading STL file '" + name + "'");
    return nullptr;
  }
  if (!known) {
    delete mesh;
    fail(context, MESHREPAIR_EFORMAT, "'" + name + "' is not an STL file");
    return nullptr;
  }
  if (empty || xyz.empty()) {
    delete mesh;
    fail(context, MESHREPAIR_EEMPTY, "empty mesh: STL file '" + name + "' has no facets");
    return nullptr;
  }
  if (xyz.size() / 9 > size_t(INT32_MAX)) {
    delete mesh;
    fail(context, MESHREPAIR_EFORMAT, "STL file '" + name + "' has too many facets");
    return nullptr;
  }
  for (size_t k = 0; k < xyz.size(); ++k)
    if (!std::isfinite(xyz[k])) {
      delete mesh;
      fail(context, MESHREPAIR_EFORMAT,
           "STL file '" + name + "' has a coordinate that is not a finite number (facet " + std::to_string(k / 9 + 1) +
               ")");
      return nullptr;
    }
  return mesh;
}

int meshrepair_facecount(const MeshRepairMesh *mesh) { return mesh ? int(mesh->xyz.size() / 9) : 0; }

int meshrepair_issane(MeshRepairMesh *mesh, int *result) {
  if (result) *result = 0;
  if (!mesh || !result) return fail(mesh ? mesh->context : nullptr, MESHREPAIR_EARG, "no mesh");
  bool printable = false;
  if (!meshfix::sound(mesh->xyz.data(), int64_t(mesh->xyz.size() / 9), printable))
    return fail(mesh->context, MESHREPAIR_ENOMEM, "out of memory checking the mesh");
  *result = printable ? 1 : 0;
  return 0;
}

namespace {

int repair(MeshRepairMesh *mesh, float tolerance, RepairPass pass, const char *what) {
  if (!mesh) return MESHREPAIR_EARG;
  if (!(tolerance > 0) || !std::isfinite(tolerance)) {
    char text[96];
    std::snprintf(text, sizeof text, "invalid repair tolerance %g", double(tolerance));
    return fail(mesh->context, MESHREPAIR_EARG, text);
  }
  if (mesh->xyz.empty())
    return fail(mesh->context, MESHREPAIR_EEMPTY, std::string(what) + ": empty mesh, no facets left to repair");
  std::string error;
  int status = runisolated(mesh->xyz, pass, tolerance, error);
  if (status != 0) return fail(mesh->context, status, std::string(what) + ": " + error);
  return 0;
}

}  // namespace

int meshrepair_defaultrepair(MeshRepairMesh *mesh, float tolerance) {
  return repair(mesh, tolerance, meshfix::defaultpass, "default repair");
}

int meshrepair_extendedrepair(MeshRepairMesh *mesh, float tolerance) {
  return repair(mesh, tolerance, meshfix::extendedpass, "extended repair");
}

int meshrepair_savestl(MeshRepairMesh *mesh, const char *path, int flags) {
  if (!mesh) return MESHREPAIR_EARG;
  if (!path || !*path) return fail(mesh->context, MESHREPAIR_EARG, "no STL file name given");
  const std::string name(path);
  if (flags != 0)
    return fail(mesh->context, MESHREPAIR_EARG, "unknown STL save form " + std::to_string(flags) + " (0 is binary)");
  const size_t n = mesh->xyz.size() / 9;
  if (n == 0) return fail(mesh->context, MESHREPAIR_EEMPTY, "empty mesh: nothing to save to '" + name + "'");
  std::vector<unsigned char> out;
  try {
    out.assign(84 + 50 * n, 0);
  } catch (const std::bad_alloc &) {
    return fail(mesh->context, MESHREPAIR_ENOMEM, "out of memory writing '" + name + "'");
  }
  static const char label[] = "warpforge mesh repair";
  std::memset(out.data(), ' ', 80);
  std::memcpy(out.data(), label, sizeof label - 1);
  uint32_t count = uint32_t(n);
  for (int k = 0; k < 4; ++k) out[80 + k] = (count >> (8 * k)) & 0xff;
  auto put = [&](unsigned char *p, float v) {
    uint32_t w;
    std::memcpy(&w, &v, 4);
    for (int k = 0; k < 4; ++k) p[k] = (w >> (8 * k)) & 0xff;
  };
  for (size_t t = 0; t < n; ++t) {
    const float *c = &mesh->xyz[9 * t];
    double ux = double(c[3]) - c[0], uy = double(c[4]) - c[1], uz = double(c[5]) - c[2];
    double vx = double(c[6]) - c[0], vy = double(c[7]) - c[1], vz = double(c[8]) - c[2];
    double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz, nz = ux * vy - uy * vx;
    double len = std::sqrt(nx * nx + ny * ny + nz * nz);
    if (len > 0) nx /= len, ny /= len, nz /= len;
    unsigned char *rec = out.data() + 84 + 50 * t;
    put(rec, float(nx));
    put(rec + 4, float(ny));
    put(rec + 8, float(nz));
    for (int k = 0; k < 9; ++k) put(rec + 12 + 4 * k, c[k]);
  }
  std::FILE *f = std::fopen(path, "wb");
  if (!f) return fail(mesh->context, MESHREPAIR_EIO, "cannot write STL file '" + name + "': " + std::strerror(errno));
  bool ok = std::fwrite(out.data(), 1, out.size(), f) == out.size();
  int saved = errno;
  ok = (std::fclose(f) == 0) && ok;
  if (!ok)
    return fail(mesh->context, MESHREPAIR_EIO,
                "cannot write STL file '" + name + "': " + std::strerror(saved ? saved : EIO));
  return 0;
}

void meshrepair_lasterror(const MeshRepairContext *context, char *buffer, int size) {
  if (!buffer || size <= 0) return;
  const std::string &text = context ? context->lasterror : std::string("no context");
  size_t k = std::min(text.size(), size_t(size - 1));
  std::memcpy(buffer, text.data(), k);
  buffer[k] = '\0';
}

void meshrepair_free(MeshRepairMesh *mesh) { delete mesh; }

void meshrepair_freecontext(MeshRepairContext *context) { delete context; }

}  // namespace wf
