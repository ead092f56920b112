#include "tests/sapsim/support/rfc_library.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace sapsim::testing {

std::string BuildDir() {
  const char* dir = std::getenv("BS_BUILD_DIR");
  if (dir != nullptr && *dir != '\0') return dir;
  return BS_TEST_BUILD_DIR;
}

std::string SourceDir() {
  const char* dir = std::getenv("BS_SOURCE_DIR");
  if (dir != nullptr && *dir != '\0') return dir;
  return BS_TEST_SOURCE_DIR;
}

std::string LibraryPath() { return BuildDir() + "/lib/librfcsim.so"; }
std::string SapsimPath() { return BuildDir() + "/bin/sapsim"; }

namespace {

template <typename T>
void Resolve(void* module, const char* name, T* slot) {
  void* address = dlsym(module, name);
  if (address == nullptr) throw std::runtime_error(std::string("librfcsim.so lacks ") + name);
  *slot = reinterpret_cast<T>(address);
}

RfcLibrary Load() {
  std::string path = LibraryPath();
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) throw std::runtime_error("cannot load " + path + ": " + dlerror());
  RfcLibrary lib{};
#define BS_RESOLVE(name) Resolve(module, #name, &lib.name)
  BS_RESOLVE(RfcOpen);
  BS_RESOLVE(RfcAccept);
  BS_RESOLVE(RfcClose);
  BS_RESOLVE(RfcCall);
  BS_RESOLVE(RfcReceive);
  BS_RESOLVE(RfcInstallStructure);
  BS_RESOLVE(RfcInstallFunction);
  BS_RESOLVE(RfcListen);
  BS_RESOLVE(RfcDispatch);
  BS_RESOLVE(RfcGetName);
  BS_RESOLVE(RfcGetData);
  BS_RESOLVE(RfcSendData);
  BS_RESOLVE(RfcRaise);
  BS_RESOLVE(RfcGetAttributes);
  BS_RESOLVE(RfcLastError);
  BS_RESOLVE(RfcLastErrorEx);
  BS_RESOLVE(ItCreate);
  BS_RESOLVE(ItFree);
  BS_RESOLVE(ItDelete);
  BS_RESOLVE(ItFill);
  BS_RESOLVE(ItGetLine);
  BS_RESOLVE(ItGupLine);
  BS_RESOLVE(RfcCheckRegisterServer);
  BS_RESOLVE(RfcCancelRegisterServer);
#undef BS_RESOLVE
  // Deliberately never unloaded, like the batch server's library.
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
