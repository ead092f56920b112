// Run-time loading of shared libraries through the dynamic loader.

#include "platform/dynamic_library.h"

#include <dlfcn.h>

namespace platform {

LibraryHandle LoadDynamicLibrary(const std::string& file_name, std::string* error) {
  // dlopen(nullptr) would hand out the main program; an empty name names no library.
  if (file_name.empty()) {
    if (error != nullptr) *error = "empty library name";
    return nullptr;
  }
  dlerror();  // drop any stale message
  LibraryHandle handle = dlopen(file_name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr && error != nullptr) {
    const char* text = dlerror();
    *error = text != nullptr ? text : "cannot load " + file_name;
  }
  return handle;
}

void* GetLibrarySymbol(LibraryHandle handle, const char* name) {
  if (handle == nullptr || name == nullptr) return nullptr;
  return dlsym(handle, name);
}

void FreeDynamicLibrary(LibraryHandle handle) {
  if (handle != nullptr) dlclose(handle);
}

std::unique_ptr<DynamicLibrary> DynamicLibrary::Load(const std::string& file_name,
                                                     std::string* error) {
  LibraryHandle handle = LoadDynamicLibrary(file_name, error);
  if (handle == nullptr) return nullptr;
  return std::unique_ptr<DynamicLibrary>(new DynamicLibrary(handle));
}

}  // namespace platform
