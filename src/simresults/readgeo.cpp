// SPDX-License-Identifier: GPL-3.0-or-later
// The geometry file of one mesh: one part, one block of 8-node elements. The first record tells
// the form: "Fortran Binary" or "C Binary" means sequential records with length markers, anything
// else, or a failed read, text.
#include "simresults/readgeo.h"

#include <algorithm>
#include <cstdlib>

#include "base/fatal.h"
#include "base/memory.h"
#include "base/text.h"
#include "simresults/resultfile.h"

namespace wf {

namespace {

// The number as plain digits, or zero-padded to at least width digits (the sign in front).
std::string numberdigits(int number, int width) {
  std::string digits = std::to_string(std::llabs(static_cast<long long>(number)));
  if (width > 0 && digits.size() < static_cast<size_t>(width))
    digits.insert(0, static_cast<size_t>(width) - digits.size(), '0');
  return number < 0 ? "-" + digits : digits;
}

// id -> position (1-based), 0 for unused ids. The index reaches the largest id, which for the
// ascending ids the solver writes is the last one. Ids below 1 are not indexed, and a file
// whose ids stand far beyond its count (an index that would dwarf the mesh) has those ids left
// out rather than an index allocated to the size of a stray value.
void buildindex(const std::vector<int32_t> &ids, std::vector<int32_t> &index, const char *label) {
  int32_t maxid = 0;
  for (int32_t id : ids) maxid = std::max(maxid, id);
  const long long bound = 64LL * static_cast<long long>(ids.size()) + 1000000LL;
  const size_t size = static_cast<size_t>(std::min<long long>(maxid, bound));
  allocate(index, size, label);
  const int32_t n = static_cast<int32_t>(ids.size());
  for (int32_t i = 0; i < n; ++i) {
    const int32_t id = ids[static_cast<size_t>(i)];
    if (id >= 1 && static_cast<size_t>(id) <= size) index[static_cast<size_t>(id - 1)] = i + 1;
  }
}

}  // namespace

std::string findresultfile(const std::string &prefix, int number, const std::string &suffix, const Folder &in) {
  const std::string p = rtrim(prefix), s = rtrim(suffix);
  std::string name = p + numberdigits(number, 0) + s;
  if (fileexists(in.at(name))) return name;
  for (int width = 1; width <= 10; ++width) {
    name = p + numberdigits(number, width) + s;
    if (fileexists(in.at(name))) return name;
  }
  checkexists(name, in);
  return name;
}

std::string meshfilename(const CaseInfo &info, const std::string &casestem, int meshfilenumber, const Folder &in) {
  const std::string prefix = info.cloudlayout ? info.cloudprefix + "results/" + rtrim(info.cloudstem) + "_"
                                              : "results/" + rtrim(casestem) + "_";
  return findresultfile(prefix, meshfilenumber, ".geo", in);
}

void readgeofile(const std::string &name, Simulation &sim, const Folder &in) {
  ResultFile file;
  checkopen(file.open(in.at(name), true), name);
  std::string line;
  // The first record decides the form; whatever this read returns is not looked at. Only blanks
  // are trimmed: a name padded with NUL bytes is no binary form.
  char first[80];
  if (file.rec.read(first, sizeof first) == 0) {
    const std::string head = rtrim(std::string(first, sizeof first));
    // Kept deliberately: "C Binary" is read with record markers like "Fortran Binary" (the
    // solver writes markers in either case); a file of the published "C Binary" form, without
    // markers, fails in the reads that follow.
    // [pinned: ReadGeo.BothFormsWithIdsOnAndOff, ReadGeo.BrokenFilesEndInCodedReadErrors]
    sim.resultsbinary = head == "Fortran Binary" || head == "C Binary";
  } else {
    sim.resultsbinary = false;
  }
  if (!sim.resultsbinary) {
    file.close();
    checkopen(file.open(in.at(name), false), name);
  }

  // Two description lines, the id lines, and "extents" or the part line; all five are tested.
  bool nodeidson = false, elemidson = false, extents = false;
  for (int k = 0; k < 5; ++k) {
    checkread(file.text80(line), name);
    // Kept deliberately: only the word "off" means absent ids; any other word, also "assign"
    // (ids made by the reader in the published format), means the file holds them.
    // [pinned: ReadGeo.BothFormsWithIdsOnAndOff]
    if (line.compare(0, 7, "node id") == 0) nodeidson = line.compare(8, 3, "off") != 0;
    if (line.compare(0, 10, "element id") == 0) elemidson = line.compare(11, 3, "off") != 0;
    if (line.compare(0, 7, "extents") == 0) extents = true;
  }
  if (extents) {
    float box[6];
    if (sim.resultsbinary)
      checkread(file.rec.read(box, sizeof box), name);
    else
      checkread(file.floats(box, 6), name);
    checkread(file.text80(line), name);  // the part line
  }

  int32_t partno = 0;
  checkread(file.int1(partno), name);
  checkread(file.text80(line), name);  // part description
  checkread(file.text80(line), name);  // "coordinates"
  int32_t nnodes = 0;
  checkread(file.int1(nnodes), name);
  const uint64_t n = nnodes < 0 ? 0 : static_cast<uint64_t>(nnodes);
  if (nnodes < 0) checkread(IOSTAT_IOERR, name);
  if (!file.fits(n * (nodeidson ? 4 : 3), nodeidson ? 4 : 3)) {
    // More nodes than the file can hold: the reads meet what they would meet, with nothing kept.
    int st = nodeidson ? file.skipints(n) : 0;
    for (int c = 0; c < 3 && st == 0; ++c) st = file.skipfloats(n);
    checkread(st != 0 ? st : IOSTAT_EOF, name);
  }
  sim.nnodes = nnodes;

  allocate(sim.nodeid, n, "readgeo, nodeid, 1");
  allocate(sim.nodexyz, 3 * n, "readgeo, nodexyz, 2");
  std::unique_ptr<float[]> work = allocatework(3 * n, "readgeo, work, 3");
  if (nodeidson) {
    checkread(file.ints(sim.nodeid.data(), n), name);
  } else {
    for (uint64_t i = 0; i < n; ++i) sim.nodeid[i] = static_cast<int32_t>(i + 1);
  }
  // One record per coordinate, each straight into its block of the work array, then widened
  // into the node-major layout of nodexyz.
  for (uint64_t c = 0; c < 3; ++c) checkread(file.floats(work.get() + c * n, n), name);
  {
    const float *wx = work.get(), *wy = wx + n, *wz = wy + n;
    double *xyz = sim.nodexyz.data();
    for (uint64_t i = 0; i < n; ++i) {
      xyz[3 * i] = wx[i];
      xyz[3 * i + 1] = wy[i];
      xyz[3 * i + 2] = wz[i];
    }
  }
  work.reset();

  checkread(file.text80(line), name);  // element type, not checked
  int32_t nelems = 0;
  checkread(file.int1(nelems), name);
  const uint64_t m = nelems < 0 ? 0 : static_cast<uint64_t>(nelems);
  if (nelems < 0) checkread(IOSTAT_IOERR, name);
  if (!file.fits(m * (elemidson ? 9 : 8), elemidson ? 2 : 1)) {
    int st = elemidson ? file.skipints(m) : 0;
    if (st == 0) st = file.skipints(8 * m);
    checkread(st != 0 ? st : IOSTAT_EOF, name);
  }
  sim.nelems = nelems;

  allocate(sim.elemconn, 8 * m, "readgeo, elemconn, 4");
  allocate(sim.elemid, m, "readgeo, elemid, 5");
  if (elemidson) {
    checkread(file.ints(sim.elemid.data(), m), name);
  } else {
    for (uint64_t i = 0; i < m; ++i) sim.elemid[i] = static_cast<int32_t>(i + 1);
  }
  checkread(file.ints(sim.elemconn.data(), 8 * m), name);
  file.close();

  buildindex(sim.nodeid, sim.nodeindex, "readgeo, nodeindex, 6");
  buildindex(sim.elemid, sim.elemindex, "readgeo, elemindex, 7");
}

}  // namespace wf
