#pragma once
// How this system composes file paths. The one place that knows the
// directory separator and where the log goes before any setting names a
// directory, so that nothing above the platform layer asks which system it
// runs on.

namespace platform {

// Between a directory and a name: "\" on Windows, "/" elsewhere.
extern const char kPathSeparator[];
// The start-up log's directory, separator included: "C:\" on Windows,
// "/tmp/" elsewhere.
extern const char kStartupLogDirectory[];

}  // namespace platform
