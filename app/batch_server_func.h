#pragma once
// CBatchServerFunc: one batch function offered to the SAP system. Its RFC
// name is the function name of a ZKTZ_BATCHES row; it receives one table,
// BATCH_TABLE, whose lines have the layout of the row's dictionary structure,
// and answers with the integer BATCH_RC. Every call is one batch: Process
// stamps a batch id, hands the function to the receive handler (which writes
// the batch out) and sets BATCH_RC to 1.
//
// Meant for the single-threaded server only: it does not implement clone.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "rfc/function/rfc_field_info.h"
#include "rfc/server/rfc_server_func.h"

class CBatchServerApp;
class CRfcSimpleParam;
class CRfcTableParam;
class CSapColumn;

class CBatchServerFunc : public CRfcServerFunc {
 public:
  using ReceiveHandler = int32_t (*)(CBatchServerFunc* function);
  // The dictionary's field descriptors by position, as CDdInfo delivers them
  // (columns counted from 1).
  using DdColumns = std::map<uint16_t, std::unique_ptr<CSapColumn>>;  // CDdInfo::Columns

  // Builds BATCH_RC and BATCH_TABLE from the structure's fields. The column
  // numbers of `columns` are turned into 0-based numbers in place. A column
  // outside 1..n, or one given twice, is refused before anything changes: a
  // std::string naming the structure, the column and the field is thrown.
  CBatchServerFunc(CBatchServerApp* app, const std::string& function_name,
                   const std::string& structure_name, DdColumns& columns,
                   ReceiveHandler handler);
  ~CBatchServerFunc() override;

  // One batch: new batch id, the receive handler, BATCH_RC = 1, activity.
  int Process() override;
  // Answers the call; then the lines of a batch above kReleaseAbove are
  // freed at once instead of at the next call, and the memory with them.
  int ReturnCall() override;

  // 4 MiB of lines: about 25,000 rows of the example structure, whose
  // document is above the memory kept between batches.
  static constexpr uint64_t kReleaseAbove = uint64_t{4} << 20;

  std::string GetFunctionName() const { return function_name_; }
  std::string GetStructureName() const { return structure_name_; }
  std::string GetBatchId() const { return batch_id_; }
  int32_t GetRowWidth() const { return row_width_; }
  CRfcTableParam* GetTableParam() const { return table_param_.get(); }
  CRfcSimpleParam* GetReturnCodeParam() const { return return_code_param_.get(); }
  CBatchServerApp* GetServerApp() const { return app_; }
  // The descriptor array: n records by 0-based column, then two zero records.
  const std::vector<CRfcFieldInfo>& GetFieldInfos() const { return field_infos_; }

  // "%012ld%03u": calendar seconds, then the milliseconds of a second
  // reading, as they come; never an id this process gave out in the last
  // 4,096 batches.
  static std::string MakeBatchId();
  static std::string FormatBatchId(int64_t seconds, uint32_t milliseconds);

 private:
  std::unique_ptr<CRfcSimpleParam> return_code_param_;
  std::unique_ptr<CRfcTableParam> table_param_;
  CBatchServerApp* app_;
  std::string function_name_;
  std::string structure_name_;
  int32_t row_width_ = 0;
  std::string batch_id_;
  std::vector<CRfcFieldInfo> field_infos_;
  ReceiveHandler handler_;
};
