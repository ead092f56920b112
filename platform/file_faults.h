#pragma once
// The armed faults of platform::testing::InjectFileFault, shared by every
// system's file implementation; each maps a fault to its own system error.

#include <string>

#include "platform/file.h"

namespace platform {
namespace testing {

// The fault armed for this operation on this path, consumed; false when none.
bool TakeFileFault(const std::string& path, FileOp op, FileFault* fault);

}  // namespace testing
}  // namespace platform
