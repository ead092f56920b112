#include "sapsim/tool/csv_reader.h"

namespace sapsim::tool {

bool ParseCsv(const std::string& text, std::vector<CsvRecord>* records, std::string* error) {
  records->clear();
  size_t i = 0;
  int line = 1;
  while (i < text.size()) {
    // An empty line (LF or CR LF alone) is no record.
    if (text[i] == '\n' || (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')) {
      i += text[i] == '\r' ? 2 : 1;
      ++line;
      continue;
    }
    CsvRecord record;
    record.line = line;
    std::string field;
    for (;;) {
      if (i < text.size() && text[i] == '"') {
        int opened_at = line;
        ++i;
        for (;;) {
          if (i >= text.size()) {
            *error = "line " + std::to_string(opened_at) + ": quoted field not closed";
            return false;
          }
          char c = text[i++];
          if (c == '"') {
            if (i < text.size() && text[i] == '"') {
              field += '"';
              ++i;
              continue;
            }
            break;
          }
          if (c == '\n') ++line;
          field += c;
        }
        if (i < text.size() && text[i] != ',' && text[i] != '\n' && text[i] != '\r') {
          *error = "line " + std::to_string(line) + ", field " + std::to_string(record.fields.size() + 1) +
                   ": text after a closing quote";
          return false;
        }
      } else {
        while (i < text.size() && text[i] != ',' && text[i] != '\n' && text[i] != '\r') {
          if (text[i] == '"') {
            *error = "line " + std::to_string(line) + ", field " + std::to_string(record.fields.size() + 1) +
                     ": a quote inside an unquoted field";
            return false;
          }
          field += text[i++];
        }
      }
      record.fields.push_back(field);
      field.clear();
      if (i < text.size() && text[i] == ',') {
        ++i;
        continue;
      }
      break;
    }
    if (i < text.size() && text[i] == '\r') ++i;
    if (i < text.size() && text[i] == '\n') {
      ++i;
      ++line;
    } else if (i < text.size()) {
      *error = "line " + std::to_string(line) + ": a lone carriage return";
      return false;
    }
    records->push_back(std::move(record));
  }
  return true;
}

}  // namespace sapsim::tool
