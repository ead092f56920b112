#pragma once
// A sink for the metadata dump: parameters and structure types described as
// lines "label=value" (the label ends in the equals sign), each ending in a
// line feed, for diagnostics. A sink takes lines only while its state is
// kOpen; otherwise every writer returns 0 and writes nothing. Each structure
// type is written once per sink.

#include <string>

#include "rfc/core/rfc_list.h"
#include "rfc/core/rfc_string.h"

class CRfcStructInfo;

// A structure type already written into a sink.
struct CRfcMetaDumpType {
  CRfcString name;
  int reserved = 0;
};

class CRfcMetaDump {
 public:
  // The state in which a sink accepts lines.
  static constexpr int kOpen = 41009;

  // Labels, blanks included; the value follows the "=" directly.
  static constexpr const char* kFunctionName = "Function name         =";
  static constexpr const char* kFunctionRelease = "Function release      =";
  static constexpr const char* kFunctionEnd = "END function";
  static constexpr const char* kSimpleImportName = "    Simple import param name =";
  static constexpr const char* kSimpleExportName = "    Simple export param name =";
  static constexpr const char* kSimpleType = "    Simple param type        =";
  static constexpr const char* kSimpleLength = "    Simple param length      =";
  static constexpr const char* kSimpleDecimals = "    Simple param Decimals    =";
  static constexpr const char* kSimpleEnd = "    END simple param";
  static constexpr const char* kStructImportName = "    Struct import param name =";
  static constexpr const char* kStructExportName = "    Struct export param name =";
  static constexpr const char* kStructParamType = "    Struct param type        =";
  static constexpr const char* kStructEnd = "    END struct";
  static constexpr const char* kTableName = "    Table param name =";
  static constexpr const char* kTableType = "    Table param type =";
  static constexpr const char* kStructType = "    Struct type         =";
  static constexpr const char* kStructTypeRelease = "    Struct type release =";
  static constexpr const char* kStructTypeLength = "    Struct type length  =";
  static constexpr const char* kStructFieldCount = "    Struct field count =";
  static constexpr const char* kStructTypeEnd = "    END struct type";
  static constexpr const char* kFieldName = "        Field name     =";
  static constexpr const char* kFieldColumn = "        Field column   =";
  static constexpr const char* kFieldType = "        Field type     =";
  static constexpr const char* kFieldOffset = "        Field offset   =";
  static constexpr const char* kFieldLength = "        Field length   =";
  static constexpr const char* kFieldDecimals = "        Field decimals =";
  static constexpr const char* kFieldEnd = "        END field";

  // An open sink (state kOpen).
  CRfcMetaDump();
  virtual ~CRfcMetaDump();
  CRfcMetaDump(const CRfcMetaDump&) = delete;
  CRfcMetaDump& operator=(const CRfcMetaDump&) = delete;

  int GetState() const { return state_; }
  void SetState(int state) { state_ = state; }

  // One line: label, value (null counts as empty), line feed. 0 when the
  // sink is not open.
  int WriteLine(const char* label, const char* value);
  // The same with the number in plain decimal.
  int WriteLine(const char* label, int value);
  // The structure type and its fields, unless the sink is not open or the
  // type was written into it before. 1 when the type and every field were
  // written, else 0.
  int WriteStructType(const CRfcStructInfo& info);
  // True when a type of that name was written into this sink.
  bool HasWrittenType(const char* type_name) const;

  int GetLineCount() const { return lines_.GetCount(); }
  // Line `index` with its line feed, or null.
  const char* GetLine(int index) const;
  // All lines, in writing order.
  std::string GetText() const;

 private:
  CRfcList<CRfcString> lines_;
  CRfcList<CRfcMetaDumpType> written_types_;
  int state_ = kOpen;
};
