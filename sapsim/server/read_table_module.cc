#include "sapsim/server/read_table_module.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/call_context.h"
#include "sapsim/server/simulated_system.h"
#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::server {

using Class = ParameterDefinition::Class;

namespace {

// Characters a field takes in a text line.
uint32_t TextWidth(const wire::FieldDesc& field) {
  switch (field.type) {
    case wire::kTypeByte: return 2 * field.length;
    case wire::kTypeBcd: return 2 * field.length + (field.decimals > 0 ? 1 : 0);  // digits, sign, point
    case wire::kTypeInt: return 11;
    case wire::kTypeInt2: return 6;
    case wire::kTypeInt1: return 3;
    case wire::kTypeFloat: return 24;
    default: return field.length;
  }
}

std::string FieldText(const wire::FieldDesc& field, const uint8_t* line) {
  std::string text =
      wire::ValueToText(wire::SimpleType{field.type, field.length, field.decimals}, line + field.offset);
  uint32_t width = TextWidth(field);
  switch (field.type) {
    case wire::kTypeChar:
    case wire::kTypeNum:
    case wire::kTypeDate:
    case wire::kTypeTime:
    case wire::kTypeByte:
      text.resize(width, ' ');
      return text;
    default:  // numbers are right aligned
      if (text.size() > width) text = text.substr(0, width);
      return std::string(width - text.size(), ' ') + text;
  }
}

std::string TrimRight(std::string text) {
  size_t end = text.find_last_not_of(' ');
  text.erase(end == std::string::npos ? 0 : end + 1);
  return text;
}

// One condition of the OPTIONS: FIELD = 'value' (or EQ, <>, NE).
struct Condition {
  const wire::FieldDesc* field;
  bool equal;
  std::string value;
};

// Splits the OPTIONS text into words, keeping quoted literals whole.
bool Tokenise(const std::string& text, std::vector<std::string>* words) {
  size_t i = 0;
  while (i < text.size()) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    if (text[i] == '\'') {
      std::string literal = "'";
      ++i;
      for (;;) {
        if (i >= text.size()) return false;
        if (text[i] == '\'') {
          if (i + 1 < text.size() && text[i + 1] == '\'') {
            literal += '\'';
            i += 2;
            continue;
          }
          ++i;
          break;
        }
        literal += text[i++];
      }
      words->push_back(literal);
      continue;
    }
    if (text[i] == '=') {
      words->push_back("=");
      ++i;
      continue;
    }
    if (text[i] == '<' && i + 1 < text.size() && text[i + 1] == '>') {
      words->push_back("<>");
      i += 2;
      continue;
    }
    size_t start = i;
    while (i < text.size() && text[i] != ' ' && text[i] != '=' && text[i] != '\'' && text[i] != '<') ++i;
    if (i == start) return false;
    std::string word = text.substr(start, i - start);
    for (char& c : word) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    words->push_back(word);
  }
  return true;
}

bool ParseOptions(const std::string& text, const StructureDefinition& structure, std::vector<Condition>* out) {
  std::vector<std::string> words;
  if (!Tokenise(text, &words)) return false;
  size_t i = 0;
  while (i < words.size()) {
    if (i + 2 >= words.size()) return false;
    const wire::FieldDesc* field = nullptr;
    for (const wire::FieldDesc& candidate : structure.layout.fields) {
      if (candidate.name == words[i]) field = &candidate;
    }
    const std::string& op = words[i + 1];
    const std::string& literal = words[i + 2];
    if (field == nullptr || literal.empty() || literal[0] != '\'') return false;
    bool equal;
    if (op == "=" || op == "EQ") {
      equal = true;
    } else if (op == "<>" || op == "NE") {
      equal = false;
    } else {
      return false;
    }
    out->push_back(Condition{field, equal, TrimRight(literal.substr(1))});
    i += 3;
    if (i < words.size()) {
      if (words[i] != "AND") return false;
      ++i;
      if (i == words.size()) return false;
    }
  }
  return true;
}

}  // namespace

FunctionInterface ReadTableModule::Interface(const SimulatedSystem&) const {
  FunctionInterface f;
  f.parameters = {
      ParameterDefinition::Simple(Class::kImport, "QUERY_TABLE", 'C', 30, "Table to read"),
      ParameterDefinition::Simple(Class::kImport, "DELIMITER", 'C', 1, "Character between fields"),
      ParameterDefinition::Simple(Class::kImport, "NO_DATA", 'C', 1, "Not blank: fields only, no rows"),
      ParameterDefinition::Simple(Class::kImport, "ROWSKIPS", 'I', 4, "Rows to skip"),
      ParameterDefinition::Simple(Class::kImport, "ROWCOUNT", 'I', 4, "Rows to read at most (0: all)"),
      ParameterDefinition::Structured(Class::kTable, "OPTIONS", kReadTableOption, "Selection: FIELD = 'value' AND ..."),
      ParameterDefinition::Structured(Class::kTable, "FIELDS", kReadTableField, "Fields to read, and their places"),
      ParameterDefinition::Structured(Class::kTable, "DATA", kReadTableData, "The rows as text"),
  };
  f.exceptions = {"TABLE_NOT_AVAILABLE", "OPTION_NOT_VALID", "FIELD_NOT_VALID", "DATA_BUFFER_EXCEEDED"};
  return f;
}

void ReadTableModule::Execute(CallContext& call) const {
  const SystemDefinition& system = call.system().definition();
  std::string name = call.Import("QUERY_TABLE");
  auto table = system.tables.find(name);
  auto structure = system.structures.find(name);
  if (table == system.tables.end() || structure == system.structures.end()) {
    call.Raise("TABLE_NOT_AVAILABLE");
    return;
  }
  const StructureDefinition& layout = structure->second;

  // The fields asked for, or all of them.
  DataBlock& fields = call.Table("FIELDS");
  std::vector<const wire::FieldDesc*> chosen;
  for (uint32_t r = 0; r < fields.rows(); ++r) {
    std::string wanted = fields.Text(r, "FIELDNAME");
    const wire::FieldDesc* found = nullptr;
    for (const wire::FieldDesc& candidate : layout.layout.fields) {
      if (candidate.name == wanted) found = &candidate;
    }
    if (found == nullptr) {
      call.Raise("FIELD_NOT_VALID");
      return;
    }
    chosen.push_back(found);
  }
  if (chosen.empty()) {
    for (const wire::FieldDesc& field : layout.layout.fields) chosen.push_back(&field);
  }

  // The selection.
  DataBlock& options = call.Table("OPTIONS");
  std::string where;
  for (uint32_t r = 0; r < options.rows(); ++r) where += options.Text(r, "TEXT") + " ";
  std::vector<Condition> conditions;
  if (!ParseOptions(where, layout, &conditions)) {
    call.Raise("OPTION_NOT_VALID");
    return;
  }

  // Places of the fields in a text line.
  std::string delimiter = call.Import("DELIMITER");
  uint32_t gap = delimiter.empty() ? 0 : 1;
  uint32_t offset = 0;
  std::vector<uint32_t> offsets;
  for (size_t i = 0; i < chosen.size(); ++i) {
    if (i > 0) offset += gap;
    offsets.push_back(offset);
    offset += TextWidth(*chosen[i]);
  }
  if (offset > kLineWidth) {
    call.Raise("DATA_BUFFER_EXCEEDED");
    return;
  }
  fields.Clear();
  for (size_t i = 0; i < chosen.size(); ++i) {
    uint32_t row = fields.AppendLine();
    fields.SetText(row, "FIELDNAME", chosen[i]->name);
    fields.SetText(row, "OFFSET", std::to_string(offsets[i]));
    fields.SetText(row, "LENGTH", std::to_string(TextWidth(*chosen[i])));
    fields.SetText(row, "TYPE", std::string(1, wire::TypeLetter(chosen[i]->type)));
    auto text = layout.field_texts.find(chosen[i]->name);
    if (text != layout.field_texts.end()) fields.SetText(row, "FIELDTEXT", text->second);
  }
  DataBlock& data = call.Table("DATA");
  data.Clear();
  if (!call.Import("NO_DATA").empty()) return;

  long skip = std::max<long>(0, std::strtol(call.Import("ROWSKIPS").c_str(), nullptr, 10));
  long count = std::max<long>(0, std::strtol(call.Import("ROWCOUNT").c_str(), nullptr, 10));
  const TableContent& content = table->second;
  long delivered = 0;
  long matched = 0;
  wire::FieldDesc wa;
  data.FindField("WA", &wa);
  for (uint32_t r = 0; r < content.row_count; ++r) {
    const uint8_t* line = content.rows.data() + static_cast<size_t>(r) * content.line_length;
    bool selected = true;
    for (const Condition& condition : conditions) {
      bool same = TrimRight(FieldText(*condition.field, line)) == condition.value;
      if (same != condition.equal) selected = false;
    }
    if (!selected) continue;
    if (matched++ < skip) continue;
    if (count > 0 && delivered >= count) break;
    std::string text;
    for (size_t i = 0; i < chosen.size(); ++i) {
      if (i > 0 && gap > 0) text += delimiter;
      text += FieldText(*chosen[i], line);
    }
    uint32_t row = data.AppendLine();
    std::memcpy(data.Line(row) + wa.offset, text.data(), std::min<size_t>(text.size(), wa.length));
    ++delivered;
  }
}

}  // namespace sapsim::server
