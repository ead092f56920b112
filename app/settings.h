#pragma once
// CSettings: the batch server's configuration, 18 texts from the instance's
// INI section plus the instance name. Numbers stay text; users convert them.

#include <array>
#include <cstddef>
#include <string>

class CSettings {
 public:
  // The fields, in their fixed order.
  enum Field : std::size_t {
    kGatewayHost,
    kListenTimer,
    kProgramId,
    kGatewayService,
    kLoadBalancing,
    kMessageServer,
    kSystem,
    kGroup,
    kClientHost,
    kSystemNumber,
    kClient,
    kUser,
    kPassword,
    kLanguage,
    kTrace,
    kLibrary,
    kLogDirectory,
    kXmlDirectory,
    kInstanceName,
    kFieldCount
  };

  // Every field empty.
  CSettings();
  // Command line: instance name, one blank, INI path. Reads the instance's
  // section; an INI file that cannot be opened raises its std::string message.
  explicit CSettings(const std::string& command_line);
  virtual ~CSettings();
  CSettings(const CSettings&) = default;
  CSettings& operator=(const CSettings&) = default;

  // The INI key of a field; empty for the instance name.
  static const char* KeyOf(Field field);

  std::string Get(Field field) const { return fields_[field]; }
  void Set(Field field, const std::string& value) { fields_[field] = value; }

  std::string GetGatewayHost() const { return Get(kGatewayHost); }
  std::string GetListenTimer() const { return Get(kListenTimer); }
  std::string GetProgramId() const { return Get(kProgramId); }
  std::string GetGatewayService() const { return Get(kGatewayService); }
  std::string GetLoadBalancing() const { return Get(kLoadBalancing); }
  std::string GetMessageServer() const { return Get(kMessageServer); }
  std::string GetSystem() const { return Get(kSystem); }
  std::string GetGroup() const { return Get(kGroup); }
  std::string GetClientHost() const { return Get(kClientHost); }
  std::string GetSystemNumber() const { return Get(kSystemNumber); }
  std::string GetClient() const { return Get(kClient); }
  std::string GetUser() const { return Get(kUser); }
  std::string GetPassword() const { return Get(kPassword); }
  std::string GetLanguage() const { return Get(kLanguage); }
  std::string GetTrace() const { return Get(kTrace); }
  std::string GetLibrary() const { return Get(kLibrary); }
  std::string GetLogDirectory() const { return Get(kLogDirectory); }
  std::string GetXmlDirectory() const { return Get(kXmlDirectory); }
  std::string GetInstanceName() const { return Get(kInstanceName); }

 private:
  std::array<std::string, kFieldCount> fields_;
};
