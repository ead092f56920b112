#include "sapsim/server/system_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/code_page.h"
#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::server {

namespace {

using nlohmann::json;

// Escapes a key for a JSON pointer (RFC 6901).
std::string PointerKey(const std::string& key) {
  std::string out;
  for (char c : key) {
    if (c == '~') {
      out += "~0";
    } else if (c == '/') {
      out += "~1";
    } else {
      out += c;
    }
  }
  return out;
}

class Checker {
 public:
  explicit Checker(std::string file) : file_(std::move(file)) {}

  [[noreturn]] void Fail(const std::string& pointer, const std::string& what) const {
    throw SystemFileError(file_ + ": " + (pointer.empty() ? "/" : pointer) + ": " + what);
  }

  const json& Member(const json& object, const std::string& pointer, const char* key, bool required) const {
    static const json kNull;
    auto it = object.find(key);
    if (it == object.end()) {
      if (required) Fail(pointer, std::string("missing \"") + key + "\"");
      return kNull;
    }
    return *it;
  }

  // A text of the file (UTF-8) in the system's code page.
  std::string InCodePage(const std::string& utf8, const std::string& pointer) const {
    std::string text;
    std::string why;
    if (!ToSystemCodePage(utf8, &text, &why)) Fail(pointer, why);
    return text;
  }

  std::string Text(const json& value, const std::string& pointer, size_t max_length, bool allow_empty) const {
    if (!value.is_string()) Fail(pointer, "must be a text");
    std::string text = InCodePage(value.get<std::string>(), pointer);
    if (!allow_empty && text.empty()) Fail(pointer, "must not be empty");
    if (text.size() > max_length) {
      Fail(pointer, "\"" + text + "\" is longer than " + std::to_string(max_length) + " characters");
    }
    return text;
  }

  void OnlyKeys(const json& object, const std::string& pointer, const std::set<std::string>& allowed) const {
    for (auto it = object.begin(); it != object.end(); ++it) {
      if (allowed.count(it.key()) == 0) Fail(pointer + "/" + PointerKey(it.key()), "unknown key");
    }
  }

  int64_t Integer(const json& value, const std::string& pointer) const {
    if (!value.is_number_integer()) Fail(pointer, "must be a whole number");
    return value.get<int64_t>();
  }

 private:
  std::string file_;
};

StructureDefinition ReadStructure(const Checker& check, const std::string& name, const json& fields,
                                  const std::string& pointer) {
  if (name.empty() || name.size() > 30) check.Fail(pointer, "structure names have 1 to 30 characters");
  if (IsBuiltInStructure(name)) check.Fail(pointer, "structure " + name + " is built into the system");
  if (!fields.is_array() || fields.empty()) check.Fail(pointer, "must be a non-empty list of fields");
  StructureDefinition structure;
  structure.name = name;
  std::vector<wire::FieldDesc> descs;
  std::set<std::string> seen;
  for (size_t i = 0; i < fields.size(); ++i) {
    std::string at = pointer + "/" + std::to_string(i);
    const json& field = fields[i];
    if (!field.is_object()) check.Fail(at, "a field must be an object");
    check.OnlyKeys(field, at, {"name", "type", "length", "decimals", "text"});
    wire::FieldDesc desc;
    desc.name = check.Text(check.Member(field, at, "name", true), at + "/name", 30, false);
    if (!seen.insert(desc.name).second) check.Fail(at + "/name", "field " + desc.name + " appears twice");
    std::string letter = check.Text(check.Member(field, at, "type", true), at + "/type", 1, false);
    desc.type = wire::TypeFromLetter(letter[0]);
    if (desc.type < 0) {
      check.Fail(at + "/type", "unknown type letter '" + letter + "' (known: C D P T X N F I s b)");
    }
    uint32_t fixed = wire::FixedLength(desc.type);
    const json& length = check.Member(field, at, "length", fixed == 0);
    if (!length.is_null()) {
      int64_t value = check.Integer(length, at + "/length");
      if (fixed != 0 && value != fixed) {
        check.Fail(at + "/length", std::string("a field of type ") + letter + " has " + std::to_string(fixed) +
                                       " bytes, not " + std::to_string(value));
      }
      if (value < 1 || value > 65535) check.Fail(at + "/length", "length must be between 1 and 65535");
      desc.length = static_cast<uint32_t>(value);
    } else {
      desc.length = fixed;
    }
    const json& decimals = check.Member(field, at, "decimals", false);
    if (!decimals.is_null()) {
      int64_t value = check.Integer(decimals, at + "/decimals");
      if (value < 0) check.Fail(at + "/decimals", "decimals must not be negative");
      if (desc.type != wire::kTypeBcd && value != 0) {
        check.Fail(at + "/decimals", "only packed fields (P) have decimals");
      }
      if (desc.type == wire::kTypeBcd && value > 2 * static_cast<int64_t>(desc.length) - 1) {
        check.Fail(at + "/decimals", std::to_string(value) + " decimals do not fit " +
                                         std::to_string(2 * desc.length - 1) + " digits");
      }
      desc.decimals = static_cast<int32_t>(value);
    }
    const json& text = check.Member(field, at, "text", false);
    if (!text.is_null()) structure.field_texts[desc.name] = check.Text(text, at + "/text", 60, true);
    descs.push_back(std::move(desc));
  }
  uint32_t length = wire::LayOut(descs);
  structure.layout = wire::ValueDesc::Structure(std::move(descs), length);
  return structure;
}

TableContent ReadTable(const Checker& check, const StructureDefinition& structure, const json& rows,
                       const std::string& pointer) {
  if (!rows.is_array()) check.Fail(pointer, "must be a list of rows");
  TableContent table;
  table.name = structure.name;
  table.line_length = structure.layout.length;
  std::vector<uint8_t> initial(table.line_length, 0);
  for (const wire::FieldDesc& field : structure.layout.fields) {
    wire::FillInitial(field.type, initial.data() + field.offset, field.length);
  }
  for (size_t r = 0; r < rows.size(); ++r) {
    std::string at = pointer + "/" + std::to_string(r);
    const json& row = rows[r];
    if (!row.is_object()) check.Fail(at, "a row must be an object of field values");
    std::vector<uint8_t> line = initial;
    for (auto it = row.begin(); it != row.end(); ++it) {
      std::string field_at = at + "/" + PointerKey(it.key());
      const wire::FieldDesc* field = nullptr;
      for (const wire::FieldDesc& candidate : structure.layout.fields) {
        if (candidate.name == it.key()) field = &candidate;
      }
      if (field == nullptr) check.Fail(field_at, "field " + it.key() + " is not in structure " + structure.name);
      std::string text;
      if (it->is_string()) {
        text = check.InCodePage(it->get<std::string>(), field_at);
      } else if (it->is_number()) {
        text = it->dump();
      } else {
        check.Fail(field_at, "a value must be a text or a number");
      }
      std::string error;
      wire::SimpleType from{wire::kTypeChar, static_cast<uint32_t>(text.size()), 0};
      wire::SimpleType to{field->type, field->length, field->decimals};
      if (field->type == wire::kTypeChar && text.size() > field->length) {
        check.Fail(field_at, "\"" + text + "\" does not fit into " + std::to_string(field->length) + " characters");
      }
      std::string padded = text.empty() ? std::string(" ") : text;
      from.length = static_cast<uint32_t>(padded.size());
      if (!wire::ConvertValue(from, reinterpret_cast<const uint8_t*>(padded.data()), to,
                              line.data() + field->offset, &error)) {
        check.Fail(field_at, "value does not fit a field of type " + std::string(1, wire::TypeLetter(field->type)) +
                                 " " + std::to_string(field->length) + ": " + error);
      }
    }
    table.rows.insert(table.rows.end(), line.begin(), line.end());
    ++table.row_count;
  }
  return table;
}

SystemDefinition Parse(const json& root, const Checker& check) {
  if (!root.is_object()) check.Fail("", "the system file must hold one JSON object");
  check.OnlyKeys(root, "", {"system_id", "release", "kernel_release", "host", "logon", "groups", "structures",
                            "tables"});
  SystemDefinition system;
  system.system_id = check.Text(check.Member(root, "", "system_id", true), "/system_id", 8, false);
  const json& release = check.Member(root, "", "release", true);
  system.release = check.Text(release, "/release", 4, true);
  const json& kernel = check.Member(root, "", "kernel_release", false);
  system.kernel_release = kernel.is_null() ? system.release : check.Text(kernel, "/kernel_release", 4, true);
  const json& host = check.Member(root, "", "host", false);
  system.host = host.is_null() ? "sapsim" : check.Text(host, "/host", 32, false);

  const json& logon = check.Member(root, "", "logon", false);
  if (!logon.is_null()) {
    if (!logon.is_array()) check.Fail("/logon", "must be a list of {client, user, password}");
    for (size_t i = 0; i < logon.size(); ++i) {
      std::string at = "/logon/" + std::to_string(i);
      if (!logon[i].is_object()) check.Fail(at, "must be an object with client, user and password");
      check.OnlyKeys(logon[i], at, {"client", "user", "password"});
      LogonEntry entry;
      entry.client = check.Text(check.Member(logon[i], at, "client", true), at + "/client", 3, false);
      entry.user = check.Text(check.Member(logon[i], at, "user", true), at + "/user", 12, false);
      entry.password = check.Text(check.Member(logon[i], at, "password", true), at + "/password", 40, true);
      system.logons.push_back(entry);
    }
  }
  const json& groups = check.Member(root, "", "groups", false);
  if (!groups.is_null()) {
    if (!groups.is_array()) check.Fail("/groups", "must be a list of logon group names");
    for (size_t i = 0; i < groups.size(); ++i) {
      system.groups.push_back(check.Text(groups[i], "/groups/" + std::to_string(i), 20, false));
    }
  }
  const json& structures = check.Member(root, "", "structures", false);
  if (!structures.is_null()) {
    if (!structures.is_object()) check.Fail("/structures", "must be an object of structures by name");
    for (auto it = structures.begin(); it != structures.end(); ++it) {
      std::string at = "/structures/" + PointerKey(it.key());
      system.structures[it.key()] = ReadStructure(check, it.key(), *it, at);
    }
  }
  for (const auto& entry : system.structures) {
    TableContent empty;
    empty.name = entry.first;
    empty.line_length = entry.second.layout.length;
    system.tables[entry.first] = empty;
  }
  const json& tables = check.Member(root, "", "tables", false);
  if (!tables.is_null()) {
    if (!tables.is_object()) check.Fail("/tables", "must be an object of tables by name");
    for (auto it = tables.begin(); it != tables.end(); ++it) {
      std::string at = "/tables/" + PointerKey(it.key());
      auto structure = system.structures.find(it.key());
      if (structure == system.structures.end()) {
        check.Fail(at, "table " + it.key() + " has no structure of the same name under /structures");
      }
      system.tables[it.key()] = ReadTable(check, structure->second, *it, at);
    }
  }
  return system;
}

}  // namespace

SystemDefinition ParseSystemText(const std::string& text, const std::string& file_name) {
  Checker check(file_name);
  json root;
  try {
    root = json::parse(text);
  } catch (const json::parse_error& e) {
    throw SystemFileError(file_name + ": not valid JSON: " + e.what());
  }
  return Parse(root, check);
}

SystemDefinition LoadSystemFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw SystemFileError(path + ": cannot read: " + std::strerror(errno));
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) throw SystemFileError(path + ": cannot read: " + std::strerror(errno));
  return ParseSystemText(content.str(), path);
}

}  // namespace sapsim::server
