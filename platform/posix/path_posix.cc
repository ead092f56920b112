// Path composition on POSIX.

#include "platform/path.h"

namespace platform {

const char kPathSeparator[] = "/";
const char kStartupLogDirectory[] = "/tmp/";

}  // namespace platform
