// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/vtkwriter.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <string>

#include "base/memory.h"
#include "base/text.h"
#include "outputs/outcommon.h"

namespace wf {

namespace {

inline uint32_t bigendian(uint32_t v) {
  if constexpr (std::endian::native == std::endian::little) return __builtin_bswap32(v);
  return v;
}
inline uint32_t bigendian(float v) { return bigendian(std::bit_cast<uint32_t>(v)); }
inline uint32_t bigendian(int32_t v) { return bigendian(static_cast<uint32_t>(v)); }

// One header line, ended by a single line feed.
void vtkline(BlockWriter &out, std::string_view text) {
  out.put(text);
  out.put("\n");
}

}  // namespace

std::string vtkname(const std::string &outstlpath) { return outstlpath.substr(0, lastdot(outstlpath)) + "vtk"; }

void writevtk(const SurfaceMesh &mesh, const std::vector<float> &displacement, const std::string &path,
              const Folder &in) {
  std::FILE *f = openoutput(in.at(path), path);

  const size_t n = mesh.nvrt > 0 ? static_cast<size_t>(mesh.nvrt) : 0;
  const size_t t = mesh.ntri > 0 ? static_cast<size_t>(mesh.ntri) : 0;
  const size_t nv = std::min(n, mesh.vrt.size() / 3);
  const size_t nt = std::min(t, mesh.tri.size() / 3);
  const size_t nd = std::min(n, displacement.size() / 3);
  auto coord = [&](size_t k) { return k < 3 * nv ? mesh.vrt[k] : 0.0; };
  auto corner = [&](size_t k) { return k < 3 * nt ? mesh.tri[k] - 1 : -1; };
  auto disp = [&](size_t k) { return k < 3 * nd ? displacement[k] : 0.0f; };

  BlockWriter out(f, path);
  vtkline(out, "# vtk DataFile Version 4.1");
  vtkline(out, "Corvanta Tessero Thermo Mechanics vtk output");
  vtkline(out, "BINARY");
  vtkline(out, "DATASET UNSTRUCTURED_GRID");
  vtkline(out, "POINTS " + std::to_string(n) + " float");

  std::vector<uint32_t> block;
  allocate(block, std::max(3 * n, 4 * t), "writevtk, block, 1");

  for (size_t k = 0; k < 3 * n; ++k) block[k] = bigendian(static_cast<float>(coord(k)));
  out.putblock(block.data(), 12 * n);

  vtkline(out, "CELLS " + std::to_string(t) + " " + std::to_string(4 * static_cast<long long>(t)));
  for (size_t i = 0; i < t; ++i) {
    block[4 * i] = bigendian(int32_t{3});
    for (size_t k = 0; k < 3; ++k) block[4 * i + k + 1] = bigendian(corner(3 * i + k));
  }
  out.putblock(block.data(), 16 * t);

  vtkline(out, "CELL_TYPES " + std::to_string(t));
  std::fill(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(t), bigendian(int32_t{5}));
  out.putblock(block.data(), 4 * t);

  vtkline(out, "POINT_DATA " + std::to_string(n));
  vtkline(out, "VECTORS Displacement float");
  for (size_t k = 0; k < 3 * n; ++k) block[k] = bigendian(disp(k));
  out.putblock(block.data(), 12 * n);
  out.flush();
  release(block);
  closeoutput(f, path);
}

}  // namespace wf
