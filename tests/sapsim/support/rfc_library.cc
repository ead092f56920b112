#include "tests/sapsim/support/rfc_library.h"

#include <dlfcn.h>

#include <stdexcept>

namespace sapsim::testing {
namespace {

RfcLibrary Load() {
  const std::string path = LibraryPath();
  // Deliberately never unloaded, like the batch server's library.
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) throw std::runtime_error("cannot load " + path + ": " + dlerror());
  RfcLibrary lib{};
#define RFCSIM_RESOLVE(name)                                                               \
  lib.name = reinterpret_cast<name##_t>(dlsym(module, #name));                              \
  if (lib.name == nullptr) throw std::runtime_error("librfcsim.so lacks " #name);
  RFCSIM_ENTRY_POINTS(RFCSIM_RESOLVE)
#undef RFCSIM_RESOLVE
  return lib;
}

}  // namespace

const RfcLibrary& RfcLibrary::Get() {
  static const RfcLibrary library = Load();
  return library;
}

std::string RfcLibrary::LastError() const {
  RFC_ERROR_INFO info{};
  RfcLastError(&info);
  return std::string(info.key) + ": " + info.message;
}

int RfcLibrary::LastErrorGroup() const {
  ErrorInfoEx info{};
  RfcLastErrorEx(&info);
  return info.group;
}

}  // namespace sapsim::testing
