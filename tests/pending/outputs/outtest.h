// SPDX-License-Identifier: GPL-2.0-or-later
// Shared pieces of the output tests: a small warped surface, a temporary working folder, the
// signal stream in a temporary file, console capture, a shell, and lib3MF's view of a 3MF file.
#pragma once

#include <Model/COM/NMR_DLLInterfaces.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>

#include "control/messages.h"
#include "control/runstate.h"
#include "outputs/colourscale.h"
#include "outputs/convert3mf.h"
#include "outputs/lib3mfversion.h"
#include "outputs/package3mf.h"
#include "outputs/packagetext.h"
#include "outputs/textreport.h"
#include "outputs/vtkwriter.h"
#include "testutil.h"

namespace fs = std::filesystem;

namespace wfo {

struct InTempDir {
  fs::path old = fs::current_path();
  explicit InTempDir(const std::string &tag) { fs::current_path(wft::tempdir(tag)); }
  ~InTempDir() { fs::current_path(old); }
};

// A tetrahedron with corners (0,0,0), (10,0,0), (0,10,0), (0,0,10), moved by
// (0,0,0), (1,0,0), (0,2,0), (0,0,4): displacement magnitudes 0, 1, 2, 4.
inline void tetra(wf::RunState &rs) {
  rs.nvrt = rs.ntri = 4;
  rs.prewarpvertices = {0, 0, 0, 10, 0, 0, 0, 10, 0, 0, 0, 10};
  rs.stlvrt = {0, 0, 0, 11, 0, 0, 0, 12, 0, 0, 0, 14};
  rs.stltri = {1, 3, 2, 1, 2, 4, 1, 4, 3, 2, 3, 4};
}

// The signal stream in a temporary file; every line is flushed as it is written.
struct Signals {
  wf::RunState &rs;
  std::string path = wft::tempdir("signals") + "/signal";
  explicit Signals(wf::RunState &r) : rs(r) { rs.signalunit = std::fopen(path.c_str(), "w+"); }
  ~Signals() { std::fclose(rs.signalunit), rs.signalunit = nullptr; }
  std::string text() { return wft::readfile(path); }
};

inline std::string finishedevent(const std::string &name) {
  return "{\"information\": {\"finished writing file\": \"" + name + "\"}}\n";
}

template <class F>
std::string captured(F f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

inline std::string shell(const std::string &cmd, int *status = nullptr) {
  std::string out;
  std::FILE *p = popen((cmd + " 2>&1").c_str(), "r");
  for (int c; (c = std::fgetc(p)) != EOF;) out += static_cast<char>(c);
  int rc = pclose(p);
  if (status) *status = rc;
  return out;
}

// The first mesh object of a 3MF file as lib3MF's reader sees it; ok is false on any failure.
struct Lib3mfMesh {
  NMR::PLib3MFBase *model = nullptr, *reader = nullptr, *it = nullptr, *mesh = nullptr;
  DWORD nv = 0, nt = 0, warnings = 99;
  bool ok = false;
  explicit Lib3mfMesh(const std::string &path) {
    using namespace NMR;
    BOOL more = false;
    ok = lib3mf_createmodel(&model) == 0 && lib3mf_model_queryreader(model, "3mf", &reader) == 0 &&
         lib3mf_reader_readfromfileutf8(reader, path.c_str()) == 0 &&
         lib3mf_reader_getwarningcount(reader, &warnings) == 0 && lib3mf_model_getmeshobjects(model, &it) == 0 &&
         lib3mf_resourceiterator_movenext(it, &more) == 0 && more &&
         lib3mf_resourceiterator_getcurrent(it, &mesh) == 0 && lib3mf_meshobject_getvertexcount(mesh, &nv) == 0 &&
         lib3mf_meshobject_gettrianglecount(mesh, &nt) == 0;
  }
  ~Lib3mfMesh() {
    for (NMR::PLib3MFBase *h : {mesh, it, reader, model})
      if (h) NMR::lib3mf_release(h);
  }
};

}  // namespace wfo
