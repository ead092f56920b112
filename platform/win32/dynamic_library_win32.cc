// Run-time loading of DLLs: LoadLibraryA and GetProcAddress. A bare file
// name follows the system's DLL search order.

#include "platform/dynamic_library.h"

#include <windows.h>

#include <cstring>

namespace platform {
namespace {

std::string SystemMessage(DWORD code) {
  char* text = nullptr;
  const DWORD length = FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
  std::string message = length > 0 && text != nullptr ? std::string(text, length) : std::string();
  LocalFree(text);
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == ' ')) {
    message.pop_back();
  }
  return message.empty() ? "error " + std::to_string(code) : message;
}

}  // namespace

LibraryHandle LoadDynamicLibrary(const std::string& file_name, std::string* error) {
  if (file_name.empty()) {
    if (error != nullptr) *error = "empty library name";
    return nullptr;
  }
  HMODULE module = LoadLibraryA(file_name.c_str());
  if (module == nullptr && error != nullptr) {
    *error = "cannot load " + file_name + ": " + SystemMessage(GetLastError());
  }
  return reinterpret_cast<LibraryHandle>(module);
}

void* GetLibrarySymbol(LibraryHandle handle, const char* name) {
  if (handle == nullptr || name == nullptr) return nullptr;
  const FARPROC address = GetProcAddress(static_cast<HMODULE>(handle), name);
  // A function address handed on as a plain pointer, as dlsym does.
  void* symbol = nullptr;
  static_assert(sizeof symbol == sizeof address, "code and data pointers have one size");
  std::memcpy(&symbol, &address, sizeof symbol);
  return symbol;
}

void FreeDynamicLibrary(LibraryHandle handle) {
  if (handle != nullptr) FreeLibrary(static_cast<HMODULE>(handle));
}

std::unique_ptr<DynamicLibrary> DynamicLibrary::Load(const std::string& file_name,
                                                     std::string* error) {
  LibraryHandle handle = LoadDynamicLibrary(file_name, error);
  if (handle == nullptr) return nullptr;
  return std::unique_ptr<DynamicLibrary>(new DynamicLibrary(handle));
}

}  // namespace platform
