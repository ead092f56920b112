#include "access/read_table.h"

#include <algorithm>
#include <cctype>

#include "access/decimal_prefix.h"

namespace {

constexpr uint16_t kReadCall = 0;

std::string Trimmed(const std::string& text) {
  const auto is_space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  const auto first = std::find_if_not(text.begin(), text.end(), is_space);
  const auto last = std::find_if_not(text.rbegin(), text.rend(), is_space).base();
  return first < last ? std::string(first, last) : std::string();
}

// At most `length` characters from `offset`, clipped to the line.
std::string Cut(const std::string& line, int32_t offset, int32_t length) {
  if (offset < 0 || length <= 0 || static_cast<size_t>(offset) >= line.size()) return std::string();
  return line.substr(static_cast<size_t>(offset), static_cast<size_t>(length));
}

}  // namespace

CReadTable::CReadTable(CRfcConnection* connection) : CSapCallSet(connection, "ReadTable") {
  AddFunction("ReadTable", kReadCall, "RFC_READ_TABLE");
  AddImport(kReadCall, "QUERY_TABLE");
  AddImport(kReadCall, "DELIMITER");
  AddImport(kReadCall, "NO_DATA");
  AddTable(kReadCall, "OPTIONS");
  AddTable(kReadCall, "FIELDS");
  AddTable(kReadCall, "DATA");
}

// The records go before the table part that points at them.
CReadTable::~CReadTable() = default;

int CReadTable::ReadTable(const std::string& table_name, const std::string& delimiter,
                          const std::string& no_data, const std::string& /*unused_first*/,
                          const std::string& /*unused_second*/) {
  SetImport(kReadCall, "QUERY_TABLE", table_name);
  SetImport(kReadCall, "DELIMITER", delimiter);
  SetImport(kReadCall, "NO_DATA", no_data);
  if (Call(kReadCall) == 0) return 0;
  FillFromResult(*this, column_infos_, GetTable(kReadCall, "FIELDS"), GetTable(kReadCall, "DATA"));
  return 1;
}

void CReadTable::FillFromResult(CTextTable& target,
                                std::vector<std::unique_ptr<CColumnInfo>>& infos,
                                CSapTable* fields, CSapTable* data) {
  if (fields != nullptr) {
    for (uint32_t r = 0; r < fields->GetRowCount(); ++r) {
      fields->SetRow(static_cast<int32_t>(r));
      auto info = std::make_unique<CColumnInfo>();
      info->offset = DecimalPrefix(fields->GetValue(std::string("OFFSET")));
      info->length = DecimalPrefix(fields->GetValue(std::string("LENGTH")));
      // RFC_READ_TABLE names this column TYPE; "T" finds nothing, so the type
      // stays empty. Nothing reads it.
      info->type = fields->GetValue(std::string("T"));
      info->text = fields->GetValue(std::string("FIELDTEXT"));
      const int32_t position = target.AddColumn(fields->GetValue(std::string("FIELDNAME")));
      target.SetColumnInfo(position, info.get());
      infos.push_back(std::move(info));
    }
  }
  if (data == nullptr) return;
  for (uint32_t r = 0; r < data->GetRowCount(); ++r) {
    data->SetRow(static_cast<int32_t>(r));
    const std::string line = data->GetValue(std::string("WA"));
    for (int32_t c = 0; c < target.GetColumnCount(); ++c) {
      const CColumnInfo* info = target.GetColumnInfo(c);
      if (info == nullptr) continue;
      target.SetCell(c, static_cast<int32_t>(r), Trimmed(Cut(line, info->offset, info->length)));
    }
  }
}
