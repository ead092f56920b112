#pragma once
// An SAP function module as seen from this side of a connection: a name, the
// connection it runs on, and three parameter lists (imports, exports,
// tables). Before an exchange with the RFC library the lists become the
// parameter and table arrays the library expects, each ending in an entry
// with a null name; afterwards the function takes back what the library
// wrote. The arrays are kept between calls and made anew only when their
// list changed.
//
// The lists do not own their parameters; who deletes them is the derived
// class's rule (CRfcClientFunc).

#include <memory>

#include "rfc/binding/rfc_library_api.h"
#include "rfc/core/rfc_list.h"
#include "rfc/core/rfc_string.h"

class CRfcConnection;
class CRfcImpExpParam;
class CRfcTableParam;

class CRfcFunction {
 public:
  CRfcFunction(CRfcConnection* connection, const char* name);
  virtual ~CRfcFunction() = 0;
  CRfcFunction& operator=(const CRfcFunction&) = delete;

  // Appends to the list, makes this function the parameter's owner and marks
  // the list changed. A list that cannot grow throws "Failed to allocate
  // memory!" (the parameter is then not in the list).
  void AddImport(CRfcImpExpParam* param);
  void AddExport(CRfcImpExpParam* param);
  void AddTable(CRfcTableParam* table);

  // The first entry of `list` whose name equals `name` right-trimmed and in
  // upper case, or null (also for an empty name); its 0-based index goes to
  // *index when given.
  CRfcImpExpParam* FindImpExp(const CRfcList<CRfcImpExpParam>& list, const char* name,
                              int* index = nullptr) const;
  CRfcTableParam* FindTable(const CRfcList<CRfcTableParam>& list, const char* name,
                            int* index = nullptr) const;

  // The import array: every import with bAll, else the active ones; simple
  // imports passed are inactive afterwards. The array has room for the whole
  // import list, so imports that become active later always fit.
  void SetUpImports(int bAll);
  // The export array: every export.
  void SetUpExports();
  // The table array: every table.
  void SetUpTables();
  // Takes the table handles back from the table array after the library
  // filled it.
  void AfterCall();

  const char* GetName() const { return name_; }
  CRfcConnection* GetConnection() const { return connection_; }
  void SetConnection(CRfcConnection* connection) { connection_ = connection; }
  // The connection's handle, 0 without a connection.
  ConnectionHandle GetHandle() const;

  CRfcList<CRfcImpExpParam>& GetImports() { return imports_; }
  const CRfcList<CRfcImpExpParam>& GetImports() const { return imports_; }
  CRfcList<CRfcImpExpParam>& GetExports() { return exports_; }
  const CRfcList<CRfcImpExpParam>& GetExports() const { return exports_; }
  CRfcList<CRfcTableParam>& GetTables() { return tables_; }
  const CRfcList<CRfcTableParam>& GetTables() const { return tables_; }

  // The arrays as last built; null before their first SetUp.
  RfcParameterEntry* GetImportArray() const { return import_array_.get(); }
  RfcParameterEntry* GetExportArray() const { return export_array_.get(); }
  RfcTableEntry* GetTableArray() const { return table_array_.get(); }

 protected:
  // A copy for another thread: name and connection, empty lists and no
  // arrays. The copying class adds parameters of its own; sharing one
  // parameter between two functions would share its buffer.
  CRfcFunction(const CRfcFunction& other);

 private:
  void AddParam(CRfcList<CRfcImpExpParam>& list, CRfcImpExpParam* param, int& changed);
  // Builds the parameter array of `list` into `array`.
  void SetUpParams(const CRfcList<CRfcImpExpParam>& list, int bAll, bool clear_simple,
                   std::unique_ptr<RfcParameterEntry[]>& array, int& slots, int& changed,
                   const char* operation);

  CRfcList<CRfcImpExpParam> exports_;
  CRfcList<CRfcImpExpParam> imports_;
  CRfcList<CRfcTableParam> tables_;
  CRfcString name_;
  CRfcConnection* connection_;
  std::unique_ptr<RfcParameterEntry[]> import_array_;
  std::unique_ptr<RfcParameterEntry[]> export_array_;
  std::unique_ptr<RfcTableEntry[]> table_array_;
  // Entries each array has room for, its terminator included.
  int import_slots_ = 0;
  int export_slots_ = 0;
  int table_slots_ = 0;
  int imports_changed_ = 1;
  int exports_changed_ = 1;
  int tables_changed_ = 1;
  // Tables entered into the table array by the last SetUpTables.
  int table_entries_ = 0;
};
