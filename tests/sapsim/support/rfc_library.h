#pragma once
// librfcsim.so loaded the way the batch server loads its RFC library: dlopen
// by path, every entry point looked up by name.

#include <string>

#include "rfc/binding/rfc_library_api.h"

namespace sapsim::testing {

struct RfcLibrary {
  RfcOpen_t RfcOpen;
  RfcAccept_t RfcAccept;
  RfcClose_t RfcClose;
  RfcCall_t RfcCall;
  RfcReceive_t RfcReceive;
  RfcInstallStructure_t RfcInstallStructure;
  RfcInstallFunction_t RfcInstallFunction;
  RfcListen_t RfcListen;
  RfcDispatch_t RfcDispatch;
  RfcGetName_t RfcGetName;
  RfcGetData_t RfcGetData;
  RfcSendData_t RfcSendData;
  RfcRaise_t RfcRaise;
  RfcGetAttributes_t RfcGetAttributes;
  RfcLastError_t RfcLastError;
  RfcLastErrorEx_t RfcLastErrorEx;
  ItCreate_t ItCreate;
  ItFree_t ItFree;
  ItDelete_t ItDelete;
  ItFill_t ItFill;
  ItGetLine_t ItGetLine;
  ItGupLine_t ItGupLine;
  RfcCheckRegisterServer_t RfcCheckRegisterServer;
  RfcCancelRegisterServer_t RfcCancelRegisterServer;

  // The library of this build, loaded once per process; every entry point
  // that could not be found fails the test that asked.
  static const RfcLibrary& Get();

  // The current thread's last error as one line: "key: message".
  std::string LastError() const;
  int LastErrorGroup() const;
};

// <build>/lib/librfcsim.so, <build>/bin/sapsim, <source>/examples, ...
std::string BuildDir();
std::string SourceDir();
std::string LibraryPath();
std::string SapsimPath();

}  // namespace sapsim::testing
