#pragma once
// The client side of an RFC function: calls a function module in the SAP
// system and receives its results in one step. It can fill its parameter
// lists from the SAP system's interface description (auto-creation); the
// parameters made that way belong to it and are deleted with it, while
// parameters the application adds stay the application's.

#include <cstdint>

#include "rfc/core/rfc_string.h"
#include "rfc/function/rfc_function.h"

class CRfcClientFunc : public CRfcFunction {
 public:
  // With autoCreate the interface of `name` is read from the SAP system over
  // `connection` (RFC_GET_FUNCTION_INTERFACE) before the constructor returns;
  // its failures leave the constructor unchanged, after the parameters made
  // so far were deleted.
  CRfcClientFunc(CRfcConnection* connection, const char* name, int autoCreate = 0);
  ~CRfcClientFunc() override;

  // Calls the function module and receives its results. Returns the RFC
  // library's code: 0, or 2 when the function module raised an exception
  // (its name in `exception`; nothing taken over), or another code the
  // library gives for a completed receive. RfcCall failures and the receive
  // codes 1, 3 and 6 throw the library's RFC_ERROR_INFO. `bAll` passes every
  // import instead of the active ones.
  int CallReceive(char*& exception, int bAll = 0);

  // Set when the constructor filled the lists from the SAP system.
  int IsAutoCreatedFunction() const { return auto_created_; }
  const CRfcString& GetRelease() const { return release_; }
  // The code of the library's last call or receive in CallReceive, also when
  // it threw (6: the connection is closed).
  int GetLastReturnCode() const { return last_return_code_; }

 private:
  // Deletes the auto-created parameters and tables.
  void DeleteAutoCreatedParameters();

  uint8_t auto_created_ = 0;
  CRfcString release_;
  int last_return_code_ = 0;
};
