#pragma once
// Facts about the running process, and its orderly termination.

#include <string>

namespace platform {

// The current directory, or empty when it cannot be read.
std::string CurrentDirectory();

// Upper-case conversion under the current locale.
int ToUpper(int c);
void ToUpperInPlace(char* text, size_t length);

// SIGTERM and SIGINT (or their equivalents) only record the request here; the
// main loop looks at it and shuts down in order.
void InstallTerminationHandler();
bool TerminationRequested();

// Hands the memory the allocator holds free back to the system. The C
// library keeps freed memory for reuse, which after one very large batch can
// be hundreds of MB the process will not need again soon.
void ReleaseFreeMemory();

}  // namespace platform
