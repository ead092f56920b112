#include "rfc/function/rfc_imp_exp_param.h"

#include <cstring>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"

namespace {

constexpr int kNameCapacity = 30;

}  // namespace

CRfcImpExpParam::CRfcImpExpParam(const char* name, int length)
    : name_(name, kNameCapacity), value_(1) {
  name_.MakeUpper();
  name_.SetUpperCase(1);
  if (length > 0) {
    buffer_ = rfc::RfcAllocateArray<unsigned char>(static_cast<size_t>(length) + 2);
    if (!buffer_) {
      ThrowRfcFailure("CRfcImpExpParam::CRfcImpExpParam(CSTR strParamName...) called",
                      {"Memory Allocation Failure"}, kRfcAllocationFailed);
    }
  }
  length_ = length;
}

CRfcImpExpParam::~CRfcImpExpParam() = default;

void CRfcImpExpParam::ResetValue() {
  if (buffer_ && length_ > 0) std::memset(buffer_.get(), 0, static_cast<size_t>(length_));
}

void CRfcImpExpParam::SetLength(int nLength) {
  // The accessor must not keep pointing into the buffer that goes.
  value_.Init(nullptr, TYPE_BYTE, 0, 0);
  buffer_.reset();
  if (nLength > 0) {
    buffer_ = rfc::RfcAllocateArray<unsigned char>(static_cast<size_t>(nLength) + 2);
    if (!buffer_) {
      ThrowRfcFailure("CRfcImpExpParam::SetLength(int nLength) called",
                      {"Memory Allocation Failure"}, kRfcAllocationFailed);
    }
  }
  length_ = nLength;
}

void CRfcImpExpParam::FillParameter(RfcParameterEntry& entry) {
  const char* name = name_;
  entry.name = name;
  entry.name_length = name != nullptr ? static_cast<uint32_t>(std::strlen(name)) : 0;
  entry.length = buffer_ && length_ > 0 ? static_cast<uint32_t>(length_) : 0;
  entry.address = buffer_.get();
}
