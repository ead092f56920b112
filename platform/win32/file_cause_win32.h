#pragma once
// How Windows error codes (GetLastError) become the file layer's causes.
// Internal to the Windows implementation; visible to its tests.

#include <cstdint>

namespace platform {
namespace win32 {

int FileCauseFromError(uint32_t error);

}  // namespace win32
}  // namespace platform
