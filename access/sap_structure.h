#pragma once
// One received structure as named texts. Only character (type 0) and
// numeric-text (type 6) fields are accepted: that is the type mapping of the
// data-access layer. Any other field type throws, as a std::string,
// "Unmapped data type '<type>' received from SAP in file: SAPTABLE line 331",
// and the structure is abandoned.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "access/sap_table.h"

class CRfcStructParam;

// One field's descriptor and its value as text.
class CSapFieldValue : public CSapColumn {
 public:
  CSapFieldValue(const CRfcFieldInfo& info, const std::string& value);
  ~CSapFieldValue() override;

  const std::string& GetValue() const { return value_; }

 private:
  std::string value_;
};

class CSapStructure {
 public:
  // Reads every field of `structure` (null: an empty structure).
  explicit CSapStructure(CRfcStructParam* structure);
  virtual ~CSapStructure();
  CSapStructure(const CSapStructure&) = delete;
  CSapStructure& operator=(const CSapStructure&) = delete;

  // The message for a field type outside the mapping.
  static std::string UnmappedTypeMessage(int32_t type);

  int32_t GetFieldCount() const { return field_count_; }
  const std::string& GetName() const { return name_; }
  // The value at `position`, or empty beyond the fields.
  std::string GetValue(int32_t position) const;
  // The value of the named field (case-sensitive), or empty. Of two fields
  // with one name the later is found.
  std::string GetValue(const std::string& name) const;
  // The field at `position`, or null.
  const CSapFieldValue* GetField(int32_t position) const;

 private:
  std::map<std::string, std::unique_ptr<CSapIndexHolder>> field_index_;
  std::vector<std::unique_ptr<CSapFieldValue>> values_;
  int32_t field_count_ = 0;
  std::string name_;
};
