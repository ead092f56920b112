#include "app/ini_file.h"

#include <atomic>
#include <climits>
#include <new>
#include <string_view>
#include <utility>

#include "platform/file.h"

namespace {

char* DefaultAllocator(std::size_t bytes) { return new (std::nothrow) char[bytes]; }

std::atomic<CIni::Allocator> g_allocator{&DefaultAllocator};

bool IsLineBreak(char c) { return c == '\r' || c == '\n'; }

}  // namespace

CIni::Allocator CIni::SetAllocatorForTesting(Allocator allocator) {
  return g_allocator.exchange(allocator != nullptr ? allocator : &DefaultAllocator);
}

CIni::CIni(const std::string& path, bool throw_errors) : throw_errors_(throw_errors) {
  Open(path);
}

CIni::~CIni() = default;

void CIni::SetThrow(bool throw_errors) { throw_errors_ = throw_errors; }

void CIni::SetSection(const std::string& name) { section_ = "[" + name + "]"; }

int CIni::Fail() {
  if (throw_errors_) throw last_error_;
  return 0;
}

void CIni::DropBuffer() {
  buffer_.reset();
  length_ = 0;
  value_position_ = kNone;
  section_position_ = kNone;
}

int CIni::Open(const std::string& path) {
  last_error_.clear();
  file_name_ = path;
  // Whatever happens below, the old contents are gone: a failed open leaves
  // no buffer, so later lookups answer "File buffer is empty!".
  DropBuffer();
  line_end_.clear();

  auto io_error = [&](int cause) {
    last_error_ = "File I/O error: " + std::to_string(cause) + " for file: " + path;
    return Fail();
  };

  int cause = platform::kFileOk;
  std::unique_ptr<platform::File> file = platform::File::Open(path, platform::File::Mode::kRead, &cause);
  if (!file) return io_error(cause);

  int64_t size = 0;
  cause = file->Size(&size);
  if (cause != platform::kFileOk) return io_error(cause);

  // The value length and the message figure are 32-bit; a file that does not
  // fit is treated like one whose buffer cannot be had.
  const int64_t wanted = size + 1;
  char* memory = wanted <= INT_MAX ? g_allocator.load()(static_cast<std::size_t>(wanted)) : nullptr;
  if (memory == nullptr) {
    file.reset();
    last_error_ = "Failed to allocate " + std::to_string(wanted) + " bytes of memory in 'CIni::Open'!";
    return Fail();
  }
  std::unique_ptr<char[]> buffer(memory);

  // Read what the file holds; a file that shrank meanwhile just gives less.
  std::size_t filled = 0;
  const std::size_t capacity = static_cast<std::size_t>(size);
  while (filled < capacity) {
    std::size_t got = 0;
    cause = file->Read(buffer.get() + filled, capacity - filled, &got);
    if (cause != platform::kFileOk) return io_error(cause);
    if (got == 0) break;
    filled += got;
  }
  buffer[filled] = '\0';
  file.reset();

  const std::string_view text(buffer.get(), filled);
  for (const char* candidate : {"\r\n", "\n\r", "\r", "\n"}) {
    if (text.find(candidate) != std::string_view::npos) {
      line_end_ = candidate;
      break;
    }
  }
  if (line_end_.empty()) {
    last_error_ = "Failed to locate a valid CR/LF combination!";
    return Fail();
  }

  buffer_ = std::move(buffer);
  length_ = filled;
  return 1;
}

int CIni::FindSection() {
  last_error_.clear();
  if (!buffer_) {
    last_error_ = "File buffer is empty!";
    return 0;
  }
  const std::string_view text(buffer_.get(), length_);
  if (section_position_ != kNone) {
    // A repeated lookup starts where the header was found last.
    const std::size_t found = text.find(section_, section_position_);
    if (found != std::string_view::npos) {
      section_position_ = found;
      return 1;
    }
    last_error_.clear();
    section_position_ = kNone;
  }
  const std::size_t found = text.find(section_);
  if (found == std::string_view::npos) {
    last_error_ = "Section " + section_ + " not found in '" + file_name_ + "'";
    return 0;
  }
  section_position_ = found;
  return 1;
}

int CIni::FindValue(const std::string& name) {
  last_error_ = "Can't find value name '" + name + "' in section '" + section_ + "' of ini file '" +
                file_name_ + "'";
  value_position_ = kNone;

  const std::string_view text(buffer_.get(), length_);
  // For value lookups any "[" after the header's own first character ends the
  // section, also one inside a value.
  std::size_t section_end = text.find('[', section_position_ + 1);
  if (section_end == std::string_view::npos) section_end = length_;

  std::size_t from = section_position_;
  for (;;) {
    const std::size_t match = text.find(name, from);
    if (match == std::string_view::npos || match >= section_end) return 0;
    const std::size_t after = match + name.size();
    if (text.find('=', after) == std::string_view::npos) return 0;

    std::size_t next = after;
    while (next < length_ && text[next] == ' ') ++next;
    if (next < length_ && text[next] == '=' && match > section_position_) {
      // The name must start its line: only blanks between it and the line break.
      std::size_t before = match - 1;
      while (before > section_position_ && text[before] == ' ') --before;
      if (before > section_position_ && IsLineBreak(text[before])) {
        value_position_ = next + 1;
        last_error_.clear();
        return 1;
      }
    }
    from = match + 1;
  }
}

int CIni::GetValue(const std::string& name, std::string& value) {
  value = default_value_;
  if (!FindSection()) return Fail();
  if (!FindValue(name)) return Fail();

  // The value ends at the literal pair CR LF, whatever line end the file uses.
  const std::string_view text(buffer_.get(), length_);
  std::size_t end = text.find("\r\n", value_position_);
  if (end == std::string_view::npos) end = length_;
  value.assign(text.substr(value_position_, end - value_position_));
  value_length_ = static_cast<int32_t>(value.size());
  return 1;
}

int CIni::GetKeys(std::vector<std::string>& names) {
  names.clear();
  value_position_ = kNone;
  if (!FindSection()) return Fail();

  const std::string_view text(buffer_.get(), length_);
  // Here the section ends only at a "[" that directly follows the file's own
  // line end, i.e. at the start of a line.
  std::size_t section_end = length_;
  for (std::size_t bracket = text.find('[', section_position_ + 1); bracket != std::string_view::npos;
       bracket = text.find('[', bracket + 1)) {
    if (bracket >= line_end_.size() &&
        text.compare(bracket - line_end_.size(), line_end_.size(), line_end_) == 0) {
      section_end = bracket;
      break;
    }
  }

  std::size_t equals = text.find('=', section_position_);
  while (equals != std::string_view::npos && equals < section_end) {
    std::size_t start = equals;
    while (start > section_position_ && !IsLineBreak(text[start - 1])) --start;
    // Stopping at the header itself leaves its "[" out of the name.
    if (start == section_position_) ++start;
    names.emplace_back(text.substr(start, equals - start));

    // Only the first "=" of a line counts.
    std::size_t line_end = equals;
    while (line_end < length_ && !IsLineBreak(text[line_end])) ++line_end;
    equals = text.find('=', line_end);
  }
  return 1;
}
