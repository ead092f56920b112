#pragma once
// CDdInfo: the layout of one dictionary structure, fetched from the SAP system
// through Z_KTZ_BAPI_GET_DD_INFO. One CSapColumn per field, keyed by the
// field's position as the dictionary counts it (from 1); the offsets are the
// running sums of the lengths in the order the rows arrive.
//
// A refusal (RETURN-TYPE other than exactly "S") is no exception: the object
// is then incomplete and holds RETURN-MESSAGE. Call failures are thrown as the
// call layer throws them (CSapCall).

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "access/sap_table.h"

class CRfcConnection;
class CSapStructure;

class CDdInfo {
 public:
  using Columns = std::map<uint16_t, std::unique_ptr<CSapColumn>>;

  CDdInfo(CRfcConnection* connection, const std::string& structure_name);
  // From an answer fetched elsewhere: the RETURN structure and META_TAB
  // (null: no rows).
  CDdInfo(const CSapStructure& result, CSapTable* meta_tab);
  virtual ~CDdInfo();
  CDdInfo(const CDdInfo&) = delete;
  CDdInfo& operator=(const CDdInfo&) = delete;

  // 1 when the layout was read in full.
  int32_t IsComplete() const { return complete_; }
  // RETURN-MESSAGE of a refused request, else empty.
  const std::string& GetMessage() const { return message_; }
  // The batch function takes the columns over and renumbers them in place.
  Columns& GetColumns() { return columns_; }
  const Columns& GetColumns() const { return columns_; }

 private:
  // False (and the message kept) for a refusal.
  bool Accepted(const CSapStructure& result);
  void Evaluate(CSapTable* meta_tab);

  Columns columns_;
  int32_t complete_ = 0;
  std::string message_;
};
