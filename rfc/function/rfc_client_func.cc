#include "rfc/function/rfc_client_func.h"

#include <memory>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_get_function_interface.h"
#include "rfc/function/rfc_imp_exp_param.h"
#include "rfc/function/rfc_table_param.h"

namespace {

constexpr const char* kCallReceiveCalled = "CRfcClientFunc::CallReceive called";
constexpr const char* kCallReceiveFailed = "CRfcClientFunc::CallReceive failed";

}  // namespace

CRfcClientFunc::CRfcClientFunc(CRfcConnection* connection, const char* name, int autoCreate)
    : CRfcFunction(connection, name), release_("") {
  if (autoCreate == 0) return;
  try {
    // The reader fills this function's lists while it is constructed.
    std::unique_ptr<CRfcGetFunctionInterface> reader =
        rfc::RfcAllocate<CRfcGetFunctionInterface>(this, GetName(), connection);
    if (!reader) throw "Auto-creation of client function object failed";
  } catch (...) {
    // Everything in the lists now came from the failed auto-creation.
    DeleteAutoCreatedParameters();
    throw;
  }
  auto_created_ = 1;
}

CRfcClientFunc::~CRfcClientFunc() {
  if (auto_created_ != 0) DeleteAutoCreatedParameters();
}

void CRfcClientFunc::DeleteAutoCreatedParameters() {
  auto delete_params = [](const CRfcList<CRfcImpExpParam>& list) {
    for (int i = 0; i < list.GetCount(); ++i) {
      CRfcImpExpParam* param = list.GetAt(i);
      if (param != nullptr && param->IsAutoCreated() != 0) delete param;
    }
  };
  delete_params(GetImports());
  delete_params(GetExports());
  const CRfcList<CRfcTableParam>& tables = GetTables();
  for (int i = 0; i < tables.GetCount(); ++i) {
    CRfcTableParam* table = tables.GetAt(i);
    if (table != nullptr && table->IsAutoCreated() != 0) delete table;
  }
}

int CRfcClientFunc::CallReceive(char*& exception, int bAll) {
  CRfcTrace& trace = GetRfcTrace();
  trace.WriteHeader();
  trace.WriteLine(kCallReceiveCalled);
  trace.WriteLine(GetName());

  SetUpImports(bAll);
  SetUpExports();
  SetUpTables();

  const ConnectionHandle handle = GetHandle();
  exception = nullptr;
  int rc = RfcCall(handle, GetName(), GetImportArray(), GetTableArray());
  last_return_code_ = rc;
  if (rc != 0) {
    const RFC_ERROR_INFO error = GetRfcLastError();
    trace.WriteHeader();
    trace.WriteLine(kCallReceiveCalled);
    trace.WriteLine(GetName());
    throw error;
  }

  rc = RfcReceive(handle, GetExportArray(), GetTableArray(), &exception);
  last_return_code_ = rc;
  if (rc == 1 || rc == 3 || rc == 6) {
    const RFC_ERROR_INFO error = GetRfcLastError();
    trace.WriteHeader();
    trace.WriteLine(kCallReceiveFailed);
    trace.WriteLine(GetName());
    throw error;
  }
  // An exception of the function module: its name is the answer, nothing
  // else is taken over.
  if (rc == 2) return 2;

  AfterCall();
  const CRfcList<CRfcImpExpParam>& exports = GetExports();
  for (int i = 0; i < exports.GetCount(); ++i) {
    CRfcImpExpParam* param = exports.GetAt(i);
    if (param != nullptr && param->IsSimple() == 0) param->AfterReceive();
  }
  return rc;
}
