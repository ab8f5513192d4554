// SPDX-License-Identifier: GPL-3.0-or-later
// The simulation as the warp needs it: the mesh of the chosen increment's time (nodes and 8-node
// elements), which nodes the elements use, and the nodal displacements.
//
// Index base: node and element numbers are 1-based (connectivity entries are taken as node
// positions 1..nnodes); arrays are addressed 0-based, coordinates and displacements as columns
// of three (x fastest).
#pragma once

#include <cstdint>
#include <vector>

namespace wf {

struct Simulation {
  int32_t nnodes = 0;
  std::vector<double> nodexyz;     // 3 x nnodes, widened from single precision
  std::vector<int32_t> nodeid;     // nnodes: the file's ids, or 1..nnodes
  std::vector<int32_t> nodeindex;  // id -> position (1-based), 0 for unused ids
  int32_t nelems = 0;
  std::vector<int32_t> elemconn;    // 8 x nelems
  std::vector<int32_t> elemid;      // nelems
  std::vector<int32_t> elemindex;   // id -> position
  bool resultsbinary = false;       // the geometry file was binary; the displacements follow it
  std::vector<uint8_t> nodeactive;  // nnodes: 255 for a node an element uses, else 0
  std::vector<double> nodedisp;     // 3 x nnodes, widened from single precision
};

// Marks every node that the connectivity names (entries outside 1..nnodes are passed over).
void marknodes(Simulation &sim);

}  // namespace wf
