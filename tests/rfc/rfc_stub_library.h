#pragma once
// What the binding tests' stand-in libraries record and answer.

#include "rfc/binding/rfc_library_api.h"

extern "C" {

// The last call any entry point of one stub library received.
struct StubCall {
  const char* function;      // entry point name
  int stub_id;               // which stub library answered
  const void* pointers[8];   // pointer arguments, in order
  long long numbers[4];      // integer arguments, in order
};

typedef const StubCall* (*StubLastCall_t)(void);

}  // extern "C"

// Entry point numbers in the answers.
enum StubEntry {
  kStubRfcOpen = 1,
  kStubRfcAccept,
  kStubRfcCall,
  kStubRfcReceive,
  kStubRfcInstallStructure,
  kStubRfcInstallFunction,
  kStubRfcListen,
  kStubRfcDispatch,
  kStubRfcGetName,
  kStubRfcGetData,
  kStubRfcSendData,
  kStubRfcRaise,
  kStubRfcGetAttributes,
  kStubRfcLastError,
  kStubRfcLastErrorEx,
  kStubItFree,
  kStubItDelete,
  kStubItFill,
  kStubRfcCheckRegisterServer,
  kStubRfcCancelRegisterServer,
};

// The answer of entry point `entry` in stub library `stub_id`.
constexpr int StubResult(int stub_id, int entry) { return stub_id * 1000 + entry; }

// Stub library ids.
constexpr int kStubWithoutCheckRegister = 1;
constexpr int kStubComplete = 2;
