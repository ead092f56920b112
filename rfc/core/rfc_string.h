#pragma once
// The class library's text: names, logon fields, messages.
//
// Its rules are relied on by the code above it:
// - Construction from a text trims trailing blanks; assignment of a text keeps
//   them.
// - A buffer is blank-filled when made and holds capacity + 1 characters, the
//   last one NUL. The text is the first `length` characters; the NUL at
//   `length` is written when the text is read.
// - With UpperCase set, texts assigned from a character string are converted
//   to upper case (construction never converts).
// - A string without buffer reads as null (length and capacity -1).
// A buffer that cannot be allocated throws "Failed to allocate memory!" after
// the trace lines of InitBuffer, and leaves the string without buffer.

#include <memory>

class CRfcString {
 public:
  // Without buffer: reads as null.
  CRfcString();
  // Capacity = the text's full length; the text without trailing blanks is
  // stored. Null gives a string without buffer.
  CRfcString(const char* text);
  // As above, but the capacity is at least `min_capacity`. Null gives an
  // empty string of that capacity.
  CRfcString(const char* text, int min_capacity);
  CRfcString(const CRfcString& other);
  CRfcString(CRfcString&& other) noexcept;
  ~CRfcString();

  // Copies UpperCase, the capacity, the text and its length.
  CRfcString& operator=(const CRfcString& other);
  CRfcString& operator=(CRfcString&& other) noexcept;
  // The whole text with its trailing blanks; capacity = its length; upper-cased
  // when UpperCase is set. Null leaves the string without buffer.
  CRfcString& operator=(const char* text);

  // The text, or null without buffer.
  operator const char*() const;
  // The buffer for changing the text in place, or null without buffer. Only
  // its first GetLength() characters belong to the text; the length, the
  // capacity and the terminator are the string's own.
  char* GetBuffer() { return buffer_.get(); }

  // Appends `text`: length and capacity grow by its length. The old content is
  // taken up to its terminator, not up to its length (see the note in the .cc).
  CRfcString& Append(const char* text);
  CRfcString& operator+=(const char* text) { return Append(text); }

  // Null text: true when there is no buffer. Otherwise equal texts.
  bool operator==(const char* text) const;
  bool operator!=(const char* text) const { return !(*this == text); }
  // 0 when equal, 1 otherwise; a string without buffer is never equal.
  int Compare(const char* text) const;
  // Byte-wise (unsigned) comparison: true when equal or when this string's
  // character is the greater at the first difference.
  bool operator>=(const char* text) const;

  // Upper case in place, by the current locale's rules.
  void MakeUpper();
  // `count` characters from `start` into `target`, assigned as a newly
  // constructed string (so trailing blanks are trimmed). The range is clamped
  // to the text. Returns `target`.
  CRfcString& Mid(CRfcString& target, int start, int count) const;

  // Length of `text` without trailing blanks (only ' ' counts); -1 for null.
  static int TrimmedLength(const char* text);

  // Size 0 (or less): no buffer, length and capacity -1. Otherwise a buffer of
  // `size` characters, blanks with a NUL last: capacity size-1, length 0.
  void InitBuffer(int size);

  int GetLength() const { return length_; }
  int GetCapacity() const { return capacity_; }
  int GetUpperCase() const { return upper_case_; }
  void SetUpperCase(int upper_case) { upper_case_ = upper_case; }

 private:
  // A blank-filled buffer of `size` characters with a NUL last. On failure the
  // string is left without buffer and the failure is thrown (InitBuffer's
  // report). The old buffer stays until the caller adopts the new one, so the
  // source of a copy may lie in it.
  std::unique_ptr<char[]> NewBuffer(size_t size);
  void Adopt(std::unique_ptr<char[]> buffer, int capacity, int length);
  [[noreturn]] void FailAllocation();

  int upper_case_ = 0;
  std::unique_ptr<char[]> buffer_;
  int length_ = -1;
  int capacity_ = -1;
};
