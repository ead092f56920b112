#include "sapsim/librfcsim/last_error.h"

#include <cstring>

#include "sapsim/wire/error_codes.h"

namespace rfcsim {

namespace {

struct ErrorState {
  int32_t group;
  char key[33];
  char status[128];
  char message[512];
  char intstat[128];
};

// Plain arrays: nothing to destroy when the thread ends.
thread_local ErrorState t_error = {0, {}, {}, {}, {}};

const char* StatusOf(int32_t group) {
  namespace w = sapsim::wire;
  switch (group) {
    case w::kGroupProgram: return "RFC_FAILURE: wrong use of the library";
    case w::kGroupCommunication: return "RFC_FAILURE: communication failure";
    case w::kGroupLogon: return "RFC_FAILURE: logon failure";
    case w::kGroupSystemFailure: return "RFC_SYS_EXCEPTION: system failure at the partner";
    case w::kGroupClosed: return "RFC_CLOSED: connection closed";
    case w::kGroupProtocol: return "RFC_FAILURE: protocol error";
    case w::kGroupRegistration: return "RFC_FAILURE: registration failure";
    case w::kGroupConversion: return "RFC_FAILURE: conversion error";
    case w::kGroupMemory: return "RFC_FAILURE: out of memory";
    case w::kGroupCancelled: return "RFC_CLOSED: registration cancelled by the gateway";
    default: return "RFC_FAILURE";
  }
}

}  // namespace

void CopyBounded(char* field, size_t size, const char* text) {
  if (size == 0) return;
  size_t n = text == nullptr ? 0 : std::strlen(text);
  if (n > size - 1) n = size - 1;
  if (n > 0) std::memcpy(field, text, n);
  field[n] = '\0';
}

void SetLastError(int32_t group, const char* key, const std::string& message, const std::string& where) {
  t_error.group = group;
  CopyBounded(t_error.key, sizeof t_error.key, key);
  CopyBounded(t_error.status, sizeof t_error.status, StatusOf(group));
  CopyBounded(t_error.message, sizeof t_error.message, message.c_str());
  std::string state = "group " + std::to_string(group);
  if (!where.empty()) state += ", " + where;
  CopyBounded(t_error.intstat, sizeof t_error.intstat, state.c_str());
}

void FillErrorInfo(RFC_ERROR_INFO* info) {
  CopyBounded(info->key, sizeof info->key, t_error.key);
  CopyBounded(info->status, sizeof info->status, t_error.status);
  CopyBounded(info->message, sizeof info->message, t_error.message);
  CopyBounded(info->intstat, sizeof info->intstat, t_error.intstat);
}

void FillErrorInfoEx(ErrorInfoEx* info) {
  info->group = t_error.group;
  CopyBounded(info->key, sizeof info->key, t_error.key);
  CopyBounded(info->message, sizeof info->message, t_error.message);
}

}  // namespace rfcsim
