#pragma once
// Between the caller's parameter and table arrays and the wire: what a
// parameter entry describes, how values and tables are sent (table lines go
// from the internal table to the socket without another copy), and how
// received values and tables are converted into the caller's layouts.

#include <memory>
#include <string>
#include <vector>

#include "rfc/binding/rfc_library_api.h"
#include "sapsim/librfcsim/internal_table.h"
#include "sapsim/wire/call_message.h"
#include "sapsim/wire/frame_writer.h"
#include "sapsim/wire/value_description.h"

namespace rfcsim {

// The name of an entry: `length` bytes, or up to the terminator when the
// length is 0; trailing blanks removed.
std::string EntryName(const void* name, uint32_t length);

// What the entry holds: a simple value of its type code, or a structure
// installed with RfcInstallStructure (the fields that fit its length).
bool DescribeValue(const RfcParameterEntry& entry, sapsim::wire::ValueDesc* desc, std::string* error);
// A table line of `line_length` bytes: an installed structure, or raw CHAR
// or BYTE lines.
bool DescribeTable(const RfcTableEntry& entry, uint32_t line_length, sapsim::wire::ValueDesc* desc,
                   std::string* error);

// Tables whose lines a frame borrows; keep this alive until it is sent.
using TableKeepAlive = std::vector<std::shared_ptr<InternalTable>>;

// Writes the count and every entry up to the one whose name is null.
bool EncodeValues(sapsim::wire::FrameWriter& writer, const RfcParameterEntry* entries, std::string* error);
bool EncodeTables(sapsim::wire::FrameWriter& writer, const RfcTableEntry* entries, TableKeepAlive* keep,
                  std::string* error);

// Fills every entry from the value of the same name, converted to the
// entry's type and length; an entry the partner did not send gets its
// initial value.
bool ReceiveValues(const std::vector<sapsim::wire::WireValue>& incoming, RfcParameterEntry* entries,
                   std::string* error);

// Fills every table entry from the table of the same name: a live handle is
// emptied and filled, a null handle gets a new table owned by `owner`.
// A table the partner did not send is emptied when `empty_missing`, and
// left as it is otherwise.
bool ReceiveTables(const std::vector<sapsim::wire::WireTable>& incoming, RfcTableEntry* entries,
                   ConnectionHandle owner, bool empty_missing, std::string* error);

}  // namespace rfcsim
