#pragma once
// A named set of prepared calls (CSapCall) on one logged-on connection, each
// addressed by a small number. Operations on a number that names no call do
// nothing and answer 0 or null.
//
// Adding a call under a number or name that is already taken replaces the
// call that held it; the earlier call is destroyed. A call whose function
// cannot be created from the repository is not entered at all, and the set
// stays as it was.

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "access/sap_call.h"

class CRfcConnection;

class CSapCallSet {
 public:
  // The connection is not owned and must outlive the set.
  CSapCallSet(CRfcConnection* connection, const std::string& name);
  virtual ~CSapCallSet();
  CSapCallSet(const CSapCallSet&) = delete;
  CSapCallSet& operator=(const CSapCallSet&) = delete;

  // Prepares `function_module` as call `number`, named `call_name`. Failures
  // of the auto-creation pass through. Returns 1.
  int AddFunction(const std::string& call_name, uint16_t number,
                  const std::string& function_module);

  int AddImport(uint16_t number, const std::string& name);
  int AddTable(uint16_t number, const std::string& name);
  int SetImport(uint16_t number, const std::string& name, const std::string& value);
  int SetReturnName(uint16_t number, const std::string& name);
  int SetOutTableName(uint16_t number, const std::string& name);
  int Call(uint16_t number);
  CSapStructure* GetReturn(uint16_t number);
  CSapTable* GetOutTable(uint16_t number);
  CSapTable* GetTable(uint16_t number, const std::string& name);

  // The call of that number or name, or null.
  CSapCall* GetCall(uint16_t number) const;
  CSapCall* GetCall(const std::string& call_name) const;
  size_t GetCallCount() const { return calls_by_number_.size(); }

  const std::string& GetName() const { return name_; }
  CRfcConnection* GetConnection() const { return connection_; }

 private:
  // Takes the call out of both maps and destroys it.
  void Remove(uint16_t number);

  std::string name_;
  CRfcConnection* connection_;
  // The name map points at the calls the number map owns.
  std::map<std::string, CSapCall*> calls_by_name_;
  std::map<uint16_t, std::unique_ptr<CSapCall>> calls_by_number_;
};
