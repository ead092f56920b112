#include "access/sap_table.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_table_param.h"

namespace {

constexpr char kDifferentColumnCounts[] = "Different number of cols in rows found!";
// Positions are kept as 16-bit numbers; a column beyond that has no name.
constexpr int kLastPosition = std::numeric_limits<uint16_t>::max();

}  // namespace

CSapColumn::CSapColumn(const CRfcFieldInfo& info) : info_(info) {
  // A record from outside may fill its name field to the end.
  info_.name[sizeof info_.name - 1] = '\0';
}

CSapColumn::CSapColumn(const std::string& name, int32_t column, int32_t offset, int32_t type,
                       int32_t length, int32_t decimals)
    : info_{} {
  SetFieldName(info_, name.c_str());
  info_.column = column;
  info_.offset = offset;
  info_.type = type;
  info_.length = length;
  info_.decimals = decimals;
}

CSapColumn::~CSapColumn() = default;

CSapIndexHolder::~CSapIndexHolder() = default;

namespace {

// The most text the data value's conversion gives for a field, to reserve
// the table's text at once; a longer text only makes the buffer grow.
size_t TextBound(const CRfcFieldInfo& info) {
  const size_t length = static_cast<size_t>(std::max(info.length, 0));
  switch (info.type) {
    case TYPE_CHAR:
    case TYPE_NUM:
    case TYPE_DATE:
    case TYPE_TIME:
      return length;
    case TYPE_BCD:
      return 2 * length + 3;
    case TYPE_INT:
      return 11;
    case TYPE_INT2:
    case TYPE_INT1:
      return 6;
    case TYPE_FLOAT:
      return 24;
    default:
      return 2 * length;
  }
}

bool TextInPlace(int type) {
  return type == TYPE_CHAR || type == TYPE_NUM || type == TYPE_DATE || type == TYPE_TIME;
}

// The text of a field whose bytes are the text (TextInPlace), read where it
// lies: what the data value's conversion gives (trailing blanks dropped from
// CHAR and NUM, an all-blank DATE or TIME empty, and a text ends at a NUL
// byte) without its allocation and copy. The size of the text at `data`.
size_t InPlaceSize(int type, const char* data, int length) {
  size_t used = data != nullptr ? static_cast<size_t>(std::max(length, 0)) : 0;
  if (type == TYPE_CHAR || type == TYPE_NUM) {
    while (used > 0 && data[used - 1] == ' ') --used;
  } else if (std::all_of(data, data + used, [](char c) { return c == ' '; })) {
    used = 0;
  }
  const void* nul = used > 0 ? std::memchr(data, '\0', used) : nullptr;
  if (nul != nullptr) used = static_cast<size_t>(static_cast<const char*>(nul) - data);
  return used;
}

// Where a column's value lies in a line, learnt from the first line.
struct ColumnPlace {
  bool in_place = false;
  int type = 0;
  std::ptrdiff_t offset = 0;
  int length = 0;
};

}  // namespace

void CSapTable::AddCell(uint64_t row_text, const char* text, size_t size) {
  const uint64_t at = text_.size() - row_text;
  // A row's text beyond 4 GiB cannot be had in memory anyway.
  if (at + size > std::numeric_limits<uint32_t>::max()) throw std::bad_alloc();
  if (size > 0) text_.append(text, size);
  cells_.push_back({static_cast<uint32_t>(at), static_cast<uint32_t>(size)});
}

CSapTable::Blocks& CSapTable::KeptBlocks() {
  thread_local Blocks kept;
  return kept;
}

CSapTable::CSapTable(CRfcTableParam* table) {
  if (table == nullptr) return;
  Blocks& kept = KeptBlocks();
  text_.swap(kept.text);
  row_starts_.swap(kept.row_starts);
  cells_.swap(kept.cells);
  name_ = table->GetName() != nullptr ? table->GetName() : "";
  const TableHandle handle = table->GetTableHandle();
  row_count_ = handle != nullptr ? ItFill(handle) : 0;

  // Reserved once at the most the lines can give, so that a large table's
  // texts are not copied again and again while their buffer grows.
  size_t row_bound = 0;
  const int32_t described = table->GetFieldCount();
  for (int32_t c = 0; c < described; ++c) {
    if (const CRfcFieldInfo* info = table->GetFieldInfo(c)) row_bound += TextBound(*info);
  }
  // A kept block that is too small is freed before the larger one is made.
  const auto reserve = [](auto& block, size_t n) {
    if (n <= block.capacity()) return;
    std::remove_reference_t<decltype(block)>().swap(block);
    block.reserve(n);
  };
  reserve(row_starts_, row_count_);
  reserve(cells_, size_t{row_count_} * static_cast<size_t>(std::max(described, 0)));
  if (row_bound != 0 && row_count_ <= text_.max_size() / row_bound) {
    try {
      reserve(text_, size_t{row_count_} * row_bound);
    } catch (const std::bad_alloc&) {
      // Only a hint: the texts themselves may well fit.
    }
  }

  int64_t total_length = 0;
  std::vector<ColumnPlace> places;
  for (uint32_t line = 0; line < row_count_; ++line) {
    // A line the library cannot give is null, which GetData refuses with the
    // class library's own text.
    void* work_area = ItGetLine(handle, line + 1);

    const int32_t fields = table->GetFieldCount();
    if (column_count_ == 0) {
      column_count_ = fields;
    } else if (fields != column_count_) {
      throw std::string(kDifferentColumnCounts);
    }

    const uint64_t row_text = text_.size();
    row_starts_.push_back({row_text, cells_.size()});
    places.resize(static_cast<size_t>(std::max(fields, 0)));
    for (int32_t c = 0; c < fields; ++c) {
      ColumnPlace& place = places[static_cast<size_t>(c)];
      // Once a line has shown where a text column lies (and that it lies
      // inside the line), the later lines read it straight from there.
      if (place.in_place && work_area != nullptr) {
        const char* data = static_cast<const char*>(work_area) + place.offset;
        AddCell(row_text, data, InPlaceSize(place.type, data, place.length));
        continue;
      }
      const CRfcFieldInfo* info = table->GetFieldInfo(c);
      // A column the description leaves out has no descriptor and no text.
      if (info == nullptr) {
        AddCell(row_text, nullptr, 0);
        continue;
      }
      if (line == 0 && c <= kLastPosition) {
        const auto position = static_cast<uint16_t>(c);
        columns_[position] = std::make_unique<CSapColumn>(*info);
        column_index_[columns_[position]->GetName()] = std::make_unique<CSapIndexHolder>(position);
        total_length += info->length;
      }
      CRfcData& value = table->GetData(work_area, c);
      int type = 0;
      int length = 0;
      int decimals = 0;
      value.GetInfo(type, length, decimals);
      if (TextInPlace(type)) {
        const char* data = static_cast<const char*>(value.GetData());
        if (data != nullptr) {
          place = {true, type, data - static_cast<const char*>(work_area), length};
        }
        AddCell(row_text, data, InPlaceSize(type, data, length));
        continue;
      }
      const char* text = static_cast<CSTR>(value);
      AddCell(row_text, text, text != nullptr ? std::strlen(text) : 0);
    }
  }
  total_length_ = static_cast<int32_t>(
      std::clamp<int64_t>(total_length, std::numeric_limits<int32_t>::min(),
                          std::numeric_limits<int32_t>::max()));
  // The last line built stays current, as a reader that forgets SetRow sees it.
  current_row_ = static_cast<int64_t>(row_starts_.size()) - 1;
}

CSapTable::~CSapTable() {
  const size_t bytes = text_.capacity() + row_starts_.capacity() * sizeof(RowStart) +
                       cells_.capacity() * sizeof(Cell);
  Blocks& kept = KeptBlocks();
  const size_t kept_bytes = kept.text.capacity() + kept.row_starts.capacity() * sizeof(RowStart) +
                            kept.cells.capacity() * sizeof(Cell);
  // The larger set within the bound stays; the other goes back.
  if (bytes > kKeptBytes || bytes <= kept_bytes) return;
  text_.clear();
  row_starts_.clear();
  cells_.clear();
  text_.swap(kept.text);
  row_starts_.swap(kept.row_starts);
  cells_.swap(kept.cells);
}

const CSapColumn* CSapTable::GetColumn(int32_t position) const {
  if (position < 0 || position > kLastPosition) return nullptr;
  const auto found = columns_.find(static_cast<uint16_t>(position));
  return found == columns_.end() ? nullptr : found->second.get();
}

const char* CSapTable::GetColumnName(int32_t position) const {
  const CSapColumn* column = GetColumn(position);
  return column != nullptr ? column->GetName() : nullptr;
}

int CSapTable::SetRow(int32_t row) {
  current_row_ = -1;
  if (row < 0 || static_cast<size_t>(row) >= row_starts_.size()) return 0;
  current_row_ = row;
  return 1;
}

std::string_view CSapTable::GetText(int32_t position) const {
  if (current_row_ < 0 || position < 0) return std::string_view();
  const auto row = static_cast<size_t>(current_row_);
  const RowStart& start = row_starts_[row];
  const uint64_t end = row + 1 < row_starts_.size() ? row_starts_[row + 1].cell : cells_.size();
  if (static_cast<uint64_t>(position) >= end - start.cell) return std::string_view();
  const Cell& cell = cells_[start.cell + static_cast<uint64_t>(position)];
  return std::string_view(text_.data() + start.text + cell.at, cell.size);
}

std::string CSapTable::GetValue(int32_t position) const {
  return std::string(GetText(position));
}

std::string CSapTable::GetValue(const std::string& name) const {
  const auto found = column_index_.find(name);
  if (found == column_index_.end()) return std::string();
  return GetValue(static_cast<int32_t>(found->second->GetIndex()));
}
