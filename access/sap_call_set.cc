#include "access/sap_call_set.h"

#include <iterator>

CSapCallSet::CSapCallSet(CRfcConnection* connection, const std::string& name)
    : name_(name), connection_(connection) {}

CSapCallSet::~CSapCallSet() {
  calls_by_name_.clear();
  calls_by_number_.clear();
}

int CSapCallSet::AddFunction(const std::string& call_name, uint16_t number,
                             const std::string& function_module) {
  auto call = std::make_unique<CSapCall>();
  call->Init(connection_, call_name, function_module);

  Remove(number);
  const auto named = calls_by_name_.find(call_name);
  if (named != calls_by_name_.end()) {
    for (const auto& entry : calls_by_number_) {
      if (entry.second.get() == named->second) {
        Remove(entry.first);
        break;
      }
    }
  }
  calls_by_name_[call_name] = call.get();
  calls_by_number_[number] = std::move(call);
  return 1;
}

void CSapCallSet::Remove(uint16_t number) {
  const auto found = calls_by_number_.find(number);
  if (found == calls_by_number_.end()) return;
  for (auto named = calls_by_name_.begin(); named != calls_by_name_.end();) {
    named = named->second == found->second.get() ? calls_by_name_.erase(named) : std::next(named);
  }
  calls_by_number_.erase(found);
}

CSapCall* CSapCallSet::GetCall(uint16_t number) const {
  const auto found = calls_by_number_.find(number);
  return found == calls_by_number_.end() ? nullptr : found->second.get();
}

CSapCall* CSapCallSet::GetCall(const std::string& call_name) const {
  const auto found = calls_by_name_.find(call_name);
  return found == calls_by_name_.end() ? nullptr : found->second;
}

int CSapCallSet::AddImport(uint16_t number, const std::string& name) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->AddImport(name) : 0;
}

int CSapCallSet::AddTable(uint16_t number, const std::string& name) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->AddTable(name) : 0;
}

int CSapCallSet::SetImport(uint16_t number, const std::string& name, const std::string& value) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->SetImport(name, value) : 0;
}

int CSapCallSet::SetReturnName(uint16_t number, const std::string& name) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->SetReturnName(name) : 0;
}

int CSapCallSet::SetOutTableName(uint16_t number, const std::string& name) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->SetOutTableName(name) : 0;
}

int CSapCallSet::Call(uint16_t number) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->Call() : 0;
}

CSapStructure* CSapCallSet::GetReturn(uint16_t number) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->GetReturn() : nullptr;
}

CSapTable* CSapCallSet::GetOutTable(uint16_t number) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->GetOutTable() : nullptr;
}

CSapTable* CSapCallSet::GetTable(uint16_t number, const std::string& name) {
  CSapCall* call = GetCall(number);
  return call != nullptr ? call->GetTable(name) : nullptr;
}
