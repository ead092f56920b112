#pragma once
// librfcsim.so loaded the way the batch server loads its RFC library: dlopen
// by path, every entry point looked up by name.

#include <string>

#include "rfc/binding/rfc_library_api.h"
#include "tests/support/processes.h"

// The 24 entry points, for lists that must name each once.
#define RFCSIM_ENTRY_POINTS(X)                                                               \
  X(RfcOpen) X(RfcAccept) X(RfcClose) X(RfcCall) X(RfcReceive) X(RfcInstallStructure)      \
  X(RfcInstallFunction) X(RfcListen) X(RfcDispatch) X(RfcGetName) X(RfcGetData)             \
  X(RfcSendData) X(RfcRaise) X(RfcGetAttributes) X(RfcLastError) X(RfcLastErrorEx)          \
  X(ItCreate) X(ItFree) X(ItDelete) X(ItFill) X(ItGetLine) X(ItGupLine)                     \
  X(RfcCheckRegisterServer) X(RfcCancelRegisterServer)

namespace sapsim::testing {

struct RfcLibrary {
#define RFCSIM_SLOT(name) name##_t name;
  RFCSIM_ENTRY_POINTS(RFCSIM_SLOT)
#undef RFCSIM_SLOT

  // The library of this build, loaded once per process; an entry point that
  // cannot be found throws.
  static const RfcLibrary& Get();

  // The current thread's last error as one line: "key: message".
  std::string LastError() const;
  int LastErrorGroup() const;
};

inline std::string LibraryPath() { return testutil::BuildDir() + "/lib/librfcsim.so"; }
inline std::string SapsimPath() { return testutil::BuildDir() + "/bin/sapsim"; }

}  // namespace sapsim::testing
