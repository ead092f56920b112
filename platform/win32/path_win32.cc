// Path composition on Windows.

#include "platform/path.h"

namespace platform {

const char kPathSeparator[] = "\\";
const char kStartupLogDirectory[] = "C:\\";

}  // namespace platform
