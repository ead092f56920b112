#pragma once
// A stand-in RFC library for the failures sapsim does not produce: internal
// tables whose line reads can be intercepted or refused, and registration
// answers that the test chooses. Loaded through LoadRfcLibrary like the real
// one; the test reaches its controls through the exported FakeAccessControlsOf().

#include "rfc/binding/rfc_library_api.h"

extern "C" {

struct FakeAccessControls {
  // Called by ItGetLine before it answers, with the 1-based line number.
  void (*on_get_line)(void* context, unsigned line);
  void* context;
  // ItGetLine answers null for this 1-based line (0: never).
  unsigned missing_line;

  // RfcCheckRegisterServer: the result, and the total it writes (when
  // write_counts is set; otherwise it leaves every count untouched).
  int check_result;
  int check_total;
  int write_counts;
  // RfcCancelRegisterServer: the result and the cancelled count it writes
  // (under the same write_counts rule).
  int cancel_result;
  int cancel_cancelled;
};

typedef FakeAccessControls* (*FakeAccessControls_t)(void);
}
