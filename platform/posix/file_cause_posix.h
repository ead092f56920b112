#pragma once
// How system error numbers become the file layer's causes. Internal to the
// POSIX implementation; visible to its tests.

#include <string>

namespace platform {
namespace posix {

// The step that failed; a few error numbers mean different things per step.
enum class FileStep { kOpen, kLock, kSeek, kTruncate, kRead, kWrite, kSize, kClose };

// The cause (FileCause) for `error_number` raised by `step` on `path`. The
// path is only looked at for ENOENT: a missing file in an existing directory
// is "not found", a missing directory is a bad path.
int FileCauseFromErrno(int error_number, FileStep step, const std::string& path);

}  // namespace posix
}  // namespace platform
