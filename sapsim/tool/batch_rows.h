#pragma once
// The lines of a batch table built from CSV: the header names fields of the
// structure, every further record becomes one line in the structure's
// layout, each value converted from text to its field's type.

#include <cstdint>
#include <string>
#include <vector>

#include "sapsim/tool/csv_reader.h"
#include "sapsim/wire/value_description.h"

namespace sapsim::tool {

struct BatchRows {
  uint32_t line_length = 0;
  uint32_t row_count = 0;
  std::vector<uint8_t> bytes;
};

// False with *error naming the line, the column and what is wrong: an
// unknown column, a value too long, a number that does not parse. Fields
// without a column, and empty cells, keep their initial value.
bool BuildBatchRows(const std::vector<CsvRecord>& records, const std::string& structure,
                    const wire::ValueDesc& layout, BatchRows* rows, std::string* error);

}  // namespace sapsim::tool
