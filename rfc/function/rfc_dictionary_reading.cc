#include "rfc/function/rfc_dictionary_reading.h"

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_thrown_text.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"

namespace {

constexpr const char* kLongNamesRelease = "40A";
// The most fields a dictionary line has (PARAMS).
constexpr int kMaxLineFields = 11;

}  // namespace

CRfcDictionaryLine::CRfcDictionaryLine(const char* name, int count,
                                       CRfcDictionaryLayout short_layout,
                                       CRfcDictionaryLayout long_layout)
    : name_(name),
      // The work arrays below hold the longest line; no layout has more.
      count_(count < kMaxLineFields ? count : kMaxLineFields),
      layouts_{short_layout, long_layout} {}

RfcTypeHandle CRfcDictionaryLine::Register(bool long_layout) {
  platform::CriticalSectionLock hold(lock_);
  const int layout = long_layout ? 1 : 0;
  if (handle_ == 0 || installed_ != layout) {
    // The library takes a modifiable array; hand it a copy of the constants.
    RfcTypeElement elements[kMaxLineFields];
    for (int i = 0; i < count_; ++i) elements[i] = layouts_[layout].elements[i];
    RfcTypeHandle handle = 0;
    if (RfcInstallStructure(name_, elements, static_cast<unsigned>(count_), &handle) != 0) {
      throw "RfcInstallStructure failed!";
    }
    handle_ = handle;
    installed_ = layout;
  }
  return handle_;
}

std::unique_ptr<CRfcTableParam> CRfcDictionaryLine::MakeTable(const char* table_name,
                                                              bool long_layout) {
  const RfcTypeHandle handle = Register(long_layout);
  const CRfcDictionaryLayout& layout = layouts_[long_layout ? 1 : 0];
  std::unique_ptr<CRfcTableParam> table =
      rfc::RfcAllocate<CRfcTableParam>(table_name, layout.line_length, 0, 0, nullptr, nullptr);
  if (!table) throw kRfcAllocationFailed;
  table->SetTypeHandle(handle);
  // AddFieldInfo rewrites the offsets of the array it is given.
  CRfcFieldInfo fields[kMaxLineFields];
  for (int i = 0; i < count_; ++i) fields[i] = layout.fields[i];
  table->AddFieldInfo(fields, count_);
  return table;
}

bool RfcUsesLongLayouts(const CRfcConnection* connection) {
  return connection != nullptr && connection->GetRelease() >= kLongNamesRelease;
}

std::unique_ptr<CRfcSimpleParam> NewDictionaryParam(const char* name, int type, int length) {
  std::unique_ptr<CRfcSimpleParam> param =
      rfc::RfcAllocate<CRfcSimpleParam>(name, type, length, 0, 0);
  if (!param) throw kRfcAllocationFailed;
  return param;
}

void CallDictionaryFunction(CRfcClientFunc& reader, const char* failed_line, const char* subject) {
  char* exception = nullptr;
  int rc = 0;
  try {
    rc = reader.CallReceive(exception, 0);
  } catch (const RFC_ERROR_INFO& error) {
    CRfcTrace& trace = GetRfcTrace();
    trace.WriteHeader();
    trace.WriteLine(failed_line);
    trace.WriteLine(subject);
    trace.WriteError(error);
    throw;
  }
  if (rc != 0) {
    // The library reuses the name's buffer; keep a copy before going on.
    const char* name = KeepThrownText(exception);
    ThrowRfcFailure(failed_line, {subject, name}, name);
  }
}
