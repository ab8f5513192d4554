// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/convert3mf.h"

#include <Model/COM/NMR_DLLInterfaces.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <string>

#include "base/text.h"
#include "outputs/outcommon.h"

namespace wf {

namespace {

uint64_t tickcount() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

}  // namespace

std::string plain3mfname(const std::string &outstlpath) { return outstlpath.substr(0, lastdot(outstlpath)) + "3mf"; }

int convertto3mf(const char *inputpath, const char *outputpath, const ConvertStageFn &onstage, const Folder &in) {
  Conversion sofar;
  const auto tell = [&](ConvertStage stage) {
    if (onstage) onstage(stage, sofar);
  };
  // Ends the conversion with `status`, told with lib3MF's status of the failed call.
  const auto fail = [&](int status, int libstatus = 0) {
    sofar.status = status;
    sofar.libstatus = libstatus;
    tell(ConvertStage::failed);
    return status;
  };
  tell(ConvertStage::start);

  DWORD major = 0, minor = 0, micro = 0;
  int status = NMR::lib3mf_getinterfaceversion(&major, &minor, &micro);
  if (status != 0) return fail(-1, status);
  if (major != 1) return fail(-2);
  if (minor < 5) return fail(-3);

  const std::string input(inputpath);
  const size_t dot = input.find_last_of('.');
  std::string &extension = sofar.extension;
  extension = dot == std::string::npos ? std::string() : input.substr(dot);
  for (char &c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const char *readername = nullptr;
  if (extension == ".stl")
    readername = "stl";
  else if (extension == ".3mf")
    readername = "3mf";
  else
    return fail(-5);

  NMR::PLib3MFModel *model = nullptr;
  status = NMR::lib3mf_createmodel(&model);
  if (status != 0) return fail(-6, status);
  NMR::PLib3MFModelReader *reader = nullptr;
  status = NMR::lib3mf_model_queryreader(model, readername, &reader);
  if (status != 0) {
    fail(-7, status);
    NMR::lib3mf_release(model);
    return -7;
  }
  tell(ConvertStage::reading);
  uint64_t start = tickcount();
  status = NMR::lib3mf_reader_readfromfileutf8(reader, in.at(inputpath).c_str());
  if (status != 0) {
    fail(-8, status);
    NMR::lib3mf_release(reader);
    NMR::lib3mf_release(model);
    return -8;
  }
  sofar.readms = tickcount() - start;
  tell(ConvertStage::read);
  NMR::lib3mf_release(reader);

  NMR::PLib3MFModelWriter *writer = nullptr;
  status = NMR::lib3mf_model_querywriter(model, "3mf", &writer);
  if (status != 0) {
    fail(-9, status);
    NMR::lib3mf_release(model);
    return -9;
  }
  tell(ConvertStage::writing);
  start = tickcount();
  status = NMR::lib3mf_writer_writetofileutf8(writer, in.at(outputpath).c_str());
  NMR::lib3mf_release(writer);
  if (status != 0) {
    fail(-10, status);
    // The reader was released after the read; lib3MF frees the object there, and a second
    // release would touch freed memory, so it is not repeated here.
    NMR::lib3mf_release(model);
    return -10;
  }
  sofar.writems = tickcount() - start;
  tell(ConvertStage::written);
  NMR::lib3mf_release(model);
  return 0;
}

}  // namespace wf
