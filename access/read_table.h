#pragma once
// CReadTable reads any table of the SAP system through RFC_READ_TABLE (all
// fields, all rows) and is itself the result: a CTextTable whose columns are
// the table's fields and whose cells are the trimmed field texts of each
// returned line, cut out by the offsets and lengths the system reports.

#include <memory>
#include <string>
#include <vector>

#include "access/sap_call_set.h"
#include "access/text_table.h"

class CRfcConnection;

class CReadTable : public CSapCallSet, public CTextTable {
 public:
  // Prepares the RFC_READ_TABLE call on `connection` (which must outlive the
  // reader); the auto-creation's failures pass through.
  explicit CReadTable(CRfcConnection* connection);
  ~CReadTable() override;

  // Reads `table_name`. The last two texts are accepted and not used. 1 when
  // the call ran, 0 when it did not; call failures are thrown (CSapCall).
  int ReadTable(const std::string& table_name, const std::string& delimiter,
                const std::string& no_data, const std::string& unused_first,
                const std::string& unused_second);

  // Fills `target` from RFC_READ_TABLE's FIELDS and DATA tables (either may
  // be null): one column per field, with a column info record kept in
  // `infos`, then one row per data line. A field name that repeats keeps the
  // first record; a column without a record gets no cells.
  static void FillFromResult(CTextTable& target, std::vector<std::unique_ptr<CColumnInfo>>& infos,
                             CSapTable* fields, CSapTable* data);

 private:
  // The column info records the table part points at.
  std::vector<std::unique_ptr<CColumnInfo>> column_infos_;
};
