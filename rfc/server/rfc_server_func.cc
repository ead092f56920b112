// The base of server functions: receiving and answering one call.

#include "rfc/server/rfc_server_func.h"

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_trace.h"

namespace {

constexpr const char* kCloneExplanation =
    "\n\nYou have to implement this clone function CRfcServerFunc::clone() \n \tin the derived "
    "class of CRfcServerFunc. \n     Suppose the derived class is Derived (: public "
    "CRfcServerFunc), \n \tthe clone function can then be defined in the following: \n     "
    "CRfcServerFunc * Dervied::clone() {return new Derived(*this);}.  \n \tBut it requires "
    "implementation of a copy constructor. \n     Derived::Derived(Derived & ).  \n \tTherefore, "
    "in the derived class of CRfc ServerFunc, \n \tthe copy constructor must be implemented. \n "
    "\tPlease see the multithreading server documentation and/or sample\n\n";
constexpr const char* kCloneMissing =
    "You have to implement the clone function CRfcServerFunc::clone() in the derived class of "
    "CRfcServerFunc.";

// Traces a failed exchange under `operation` and throws the library's error.
[[noreturn]] void ThrowExchangeFailure(const char* operation) {
  const RFC_ERROR_INFO error = GetRfcLastError();
  CRfcTrace& trace = GetRfcTrace();
  trace.WriteHeader();
  trace.WriteLine(operation);
  trace.WriteError(error);
  throw error;
}

}  // namespace

CRfcServerFunc::CRfcServerFunc(const char* name) : CRfcFunction(nullptr, name) {}

CRfcServerFunc::CRfcServerFunc(const CRfcServerFunc& other)
    : CRfcFunction(other), server_app_(other.server_app_) {}

CRfcServerFunc::~CRfcServerFunc() = default;

CRfcServerFunc* CRfcServerFunc::clone() {
  CRfcTrace& trace = GetRfcTrace();
  trace.WriteHeader();
  trace.WriteLine(kCloneExplanation);
  throw kCloneMissing;
}

const char* CRfcServerFunc::GetDocu() { return nullptr; }

int CRfcServerFunc::ReceiveData() {
  CRfcConnection* connection = GetConnection();
  if (connection == nullptr) return 1;
  const ConnectionHandle handle = connection->GetHandle();
  SetUpImports(true);
  SetUpTables();
  if (RfcGetData(handle, GetImportArray(), GetTableArray()) != RFC_OK) {
    ThrowExchangeFailure("CRfcServerFunc::ReceiveData called");
  }
  AfterCall();
  return 0;
}

int CRfcServerFunc::ReturnCall() {
  CRfcConnection* connection = GetConnection();
  if (connection == nullptr) return 1;
  const ConnectionHandle handle = connection->GetHandle();
  SetUpExports();
  if (RfcSendData(handle, GetExportArray(), GetTableArray()) != RFC_OK) {
    ThrowExchangeFailure("CRfcServerFunc::ReturnCall called");
  }
  AfterCall();
  return 0;
}
