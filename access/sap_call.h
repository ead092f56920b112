#pragma once
// One prepared call of a function module: declared once (imports by name,
// tables to read back, the names of the return structure and of the result
// table), then run any number of times. Everything the caller passes and
// gets back is text.
//
// Failures of Call:
// - a declared import the function module does not have: BAPI_ERROR_INFO
//   "Error while importing parameter", naming the call and the import;
// - an exception raised by the function module: its name, thrown as a plain
//   const char* text;
// - communication and system failures: the class library's RFC_ERROR_INFO.

#include <map>
#include <memory>
#include <string>

#include "access/sap_structure.h"
#include "access/sap_table.h"

class CRfcClientFunc;
class CRfcConnection;

// The call layer's exception record, thrown by value.
struct BAPI_ERROR_INFO {
  std::string Key;        // always empty here
  std::string Function;   // the call's name
  std::string Parameter;  // the import concerned
  std::string Message;
};

// The text value of one declared import.
class CSapImportValue {
 public:
  CSapImportValue() = default;
  virtual ~CSapImportValue();

  const std::string& GetValue() const { return value_; }
  void SetValue(const std::string& value) { value_ = value; }

 private:
  std::string value_;
};

class CSapCall {
 public:
  static constexpr const char* kImportFailed = "Error while importing parameter";

  CSapCall();
  virtual ~CSapCall();
  CSapCall(const CSapCall&) = delete;
  CSapCall& operator=(const CSapCall&) = delete;

  // Creates the client function for `function_module` from the SAP
  // repository (auto-creation). Does nothing once a function exists. Its
  // failures pass through. Returns 1.
  int Init(CRfcConnection* connection, const std::string& call_name,
           const std::string& function_module);

  // Declares an import with an empty value, also when it was declared before.
  int AddImport(const std::string& name);
  // 1 when `name` was declared; an undeclared name is dropped with 0.
  int SetImport(const std::string& name, const std::string& value);
  // Declares a table to read back after every call.
  int AddTable(const std::string& name);
  int SetReturnName(const std::string& name);
  int SetOutTableName(const std::string& name);

  // Runs the function module; 1 on success, every failure is thrown (above).
  int Call();

  // Results of the last call, owned by this call and valid until the next
  // Call. GetReturn and GetOutTable give an empty object when the interface
  // has no such export or table (or no function yet).
  CSapStructure* GetReturn();
  CSapTable* GetOutTable();
  // The read-back table, or null when `name` was not declared or no call
  // has run yet.
  CSapTable* GetTable(const std::string& name) const;

  const std::string& GetCallName() const { return call_name_; }
  CRfcClientFunc* GetFunction() const { return function_.get(); }

 private:
  std::unique_ptr<CRfcClientFunc> function_;
  std::map<std::string, std::unique_ptr<CSapImportValue>> imports_;
  std::map<std::string, std::unique_ptr<CSapTable>> tables_;
  std::unique_ptr<CSapTable> out_table_;
  std::unique_ptr<CSapStructure> return_;
  std::string return_name_ = "RETURN";
  std::string out_table_name_ = "OUT_TABLE";
  std::string call_name_;
};
