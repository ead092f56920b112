#pragma once
// CIni: a deliberately plain INI reader. The whole file is loaded once; every
// lookup is a case-sensitive substring search in that buffer. There is no
// comment syntax and values are not trimmed.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CIni {
 public:
  // Allocates the file buffer; returns null when no memory is left. The
  // result is released with delete[].
  using Allocator = char* (*)(std::size_t bytes);

  // Stores the throw flag, then opens the file. With the flag set an open
  // failure leaves the constructor as a std::string exception.
  CIni(const std::string& path, bool throw_errors);
  virtual ~CIni();

  CIni(const CIni&) = delete;
  CIni& operator=(const CIni&) = delete;

  // Loads the whole file and detects its line end. 1 on success, 0 on failure
  // (raised instead when the throw flag is set).
  int Open(const std::string& path);
  // The section header searched for becomes "[name]".
  void SetSection(const std::string& name);
  void SetThrow(bool throw_errors);
  // Replaces `names` by the value names of the current section, in file order.
  int GetKeys(std::vector<std::string>& names);
  // Reads the value of `name` in the current section, up to the next CR LF.
  int GetValue(const std::string& name, std::string& value);

  const std::string& LastError() const { return last_error_; }
  const std::string& Section() const { return section_; }
  const std::string& FileName() const { return file_name_; }
  // The line end detected by Open: CR LF, LF CR, CR or LF.
  const std::string& LineEnd() const { return line_end_; }
  int32_t ValueLength() const { return value_length_; }

  // Test seam: replaces the buffer allocation so that its failure can be
  // reached. Returns the allocator in force before; null restores the default.
  static Allocator SetAllocatorForTesting(Allocator allocator);

 private:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  // Raises the last error when the throw flag is set; otherwise returns 0.
  int Fail();
  int FindSection();
  int FindValue(const std::string& name);
  void DropBuffer();

  int32_t value_length_ = 0;
  std::string file_name_;
  std::string section_;
  std::string default_value_;
  std::string last_error_;
  std::size_t value_position_ = kNone;    // first character after the "=" found last
  std::size_t section_position_ = kNone;  // where the section header was found last
  std::unique_ptr<char[]> buffer_;        // the whole file plus a zero byte
  std::size_t length_ = 0;                // bytes of the file in buffer_
  bool throw_errors_ = false;
  std::string line_end_;
};
