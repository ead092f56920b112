#pragma once
// The class library's own trace: one file per thread, "crfc<thread id>.trc",
// in the directory that was current when the process started. Off until the
// application switches it on; while off every write returns after testing one
// flag. Lines end in CR LF.

#include <atomic>
#include <string>

#include "platform/clock.h"
#include "rfc/binding/rfc_library_api.h"

class CRfcTrace {
 public:
  // Reads the current directory once (see SetDirectory for the rule).
  CRfcTrace();
  // Closes every thread's file; the files are shared by all instances.
  ~CRfcTrace();
  CRfcTrace(const CRfcTrace&) = delete;
  CRfcTrace& operator=(const CRfcTrace&) = delete;

  // Any nonzero value switches tracing on. Switching off closes no file.
  void SetTraceOn(int on);
  int IsTraceOn() const;

  // One line (CR LF appended) to the calling thread's file, flushed. Nothing
  // for a null text. A file that cannot be opened or written is skipped
  // without notice; only a failed allocation of the thread's file record
  // throws "Failed to allocate memory!" (and writes nothing).
  void WriteLine(const char* text);
  // `count` empty lines; nothing below 1.
  void WriteBlankLines(int count);
  // Three empty lines and "Rfc Class Library Trace at   YYYY.MM.DD   hh:mm:ss".
  void WriteHeader();
  // "Key:    ", "Status: ", "Message:" each followed by the field, every line
  // cut at the label's length without its trailing blanks plus the field's
  // length: the key loses its last four characters, the status its last one.
  void WriteError(const RFC_ERROR_INFO& error);

  // Where new files of threads that have not traced yet go. The directory is
  // held as in a 255-character buffer: one that does not fit counts as
  // unreadable, is kept empty, and the files go under their bare name into the
  // current directory of the moment. The constructor applies the same rule to the start
  // directory; tests and hosts that want the trace elsewhere call this.
  void SetDirectory(const std::string& directory);
  std::string GetDirectory() const;

  // The header line for a given local time.
  static std::string HeaderLine(const platform::LocalTime& time);
  // A line of WriteError: `label` followed by `field`, cut as described there.
  static std::string ErrorLine(const char* label, const char* field, size_t field_size);
  // Instances alive in the process.
  static int InstanceCount();

 private:
  std::atomic<int> enabled_{0};
  std::string directory_;
};

// The process-wide trace that every class of the library writes to. It exists
// before main runs (so it sees the start directory) and is destroyed at exit.
CRfcTrace& GetRfcTrace();
