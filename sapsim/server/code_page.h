#pragma once
// The simulated system's code page. A non-Unicode SAP system keeps CHAR data
// one byte a character in its code page, ISO-8859-1 here, which is also what
// the batch documents declare. System files and CSV batches are UTF-8 text;
// everything the simulator sends is converted into the code page first, so
// that what reaches the batch server is what a real system would send.

#include <string>

namespace sapsim::server {

extern const char kSystemCodePage[];  // "ISO-8859-1", for messages

// Converts UTF-8 text into the system's code page. False, with *why naming the
// offending character and where it stands in the text, for a character the
// code page cannot hold or bytes that are not UTF-8; *out is then unspecified.
bool ToSystemCodePage(const std::string& utf8, std::string* out, std::string* why);

}  // namespace sapsim::server
