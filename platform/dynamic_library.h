#pragma once
// Loading shared libraries at run time. A bare file name follows the dynamic
// loader's search order.

#include <memory>
#include <string>

namespace platform {

using LibraryHandle = void*;

// Null on failure; *error (if given) then says why.
LibraryHandle LoadDynamicLibrary(const std::string& file_name, std::string* error = nullptr);
// Null when the handle is null or the name is not exported.
void* GetLibrarySymbol(LibraryHandle handle, const char* name);
void FreeDynamicLibrary(LibraryHandle handle);

// Owning wrapper for code that does unload what it loaded.
class DynamicLibrary {
 public:
  static std::unique_ptr<DynamicLibrary> Load(const std::string& file_name,
                                              std::string* error = nullptr);
  ~DynamicLibrary() { FreeDynamicLibrary(handle_); }
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  void* Symbol(const char* name) const { return GetLibrarySymbol(handle_, name); }
  LibraryHandle handle() const { return handle_; }

 private:
  explicit DynamicLibrary(LibraryHandle handle) : handle_(handle) {}
  LibraryHandle handle_;
};

}  // namespace platform
