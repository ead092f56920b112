#include "app/settings.h"

#include <vector>

#include "app/ini_file.h"
#include "platform/process.h"

namespace {

constexpr const char* kKeys[CSettings::kFieldCount] = {
    "sap.server.gateway.host",
    "sap.server.listen.timer",
    "sap.server.programm.id",
    "sap.server.gateway.service",
    "sap.client.loadbalancing",
    "sap.client.lb.messageserver",
    "sap.client.lb.system",
    "sap.client.lb.group",
    "sap.client.host",
    "sap.client.sysnumber",
    "sap.client.client",
    "sap.client.user.id",
    "sap.client.user.password",
    "sap.client.language",
    "sap.client.trace",
    "sap.library",
    "sap.path",
    "xml.path",
    "",  // the instance name comes from the command line
};

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

std::string Trim(const std::string& text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && IsSpace(text[begin])) ++begin;
  while (end > begin && IsSpace(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

bool EqualNoCase(const std::string& a, const char* b) {
  const std::string other(b);
  if (a.size() != other.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (platform::ToUpper(static_cast<unsigned char>(a[i])) !=
        platform::ToUpper(static_cast<unsigned char>(other[i]))) {
      return false;
    }
  }
  return true;
}

}  // namespace

CSettings::CSettings() = default;

CSettings::~CSettings() = default;

const char* CSettings::KeyOf(Field field) { return kKeys[field]; }

CSettings::CSettings(const std::string& command_line) {
  const std::string text = Trim(command_line);
  std::string path = text;
  const std::size_t blank = text.find(' ');
  if (blank != std::string::npos) {
    fields_[kInstanceName] = text.substr(0, blank);
    path = text.substr(blank + 1);
  }

  CIni ini(path, true);
  ini.SetThrow(false);

  const std::string& instance = fields_[kInstanceName];
  ini.SetSection(instance);
  std::vector<std::string> names;
  ini.GetKeys(names);  // a missing section lists nothing and leaves every field empty

  for (const std::string& name : names) {
    for (std::size_t field = 0; field < kInstanceName; ++field) {
      if (!EqualNoCase(name, kKeys[field])) continue;
      ini.SetSection(instance);
      // A failed read leaves the field empty; the name is used as listed, so
      // each spelling of a key finds its own line.
      ini.GetValue(name, fields_[field]);
    }
  }
}
