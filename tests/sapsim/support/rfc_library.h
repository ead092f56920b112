#pragma once
// librfcsim.so and sapsim of this build. Tests reach the library as the batch
// server does: LoadRfcLibrary by path, then the binding's forwarders.

#include <string>

#include "rfc/binding/rfc_binding.h"
#include "tests/support/processes.h"

namespace sapsim::testing {

inline std::string LibraryPath() { return testutil::BuildDir() + "/lib/librfcsim.so"; }
inline std::string SapsimPath() { return testutil::BuildDir() + "/bin/sapsim"; }

// The current thread's last error as one line: "key: message".
inline std::string LastError() {
  RFC_ERROR_INFO info{};
  RfcLastError(&info);
  return std::string(info.key) + ": " + info.message;
}
inline int LastErrorGroup() {
  ErrorInfoEx info{};
  RfcLastErrorEx(&info);
  return info.group;
}

}  // namespace sapsim::testing
