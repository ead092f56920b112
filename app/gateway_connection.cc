#include "app/gateway_connection.h"

#include <algorithm>
#include <cstdio>

#include "rfc/binding/rfc_binding.h"

CGatewayConnection::CGatewayConnection(const std::string& program_id,
                                       const std::string& gateway_host,
                                       const std::string& gateway_service)
    : program_id_(program_id), gateway_host_(gateway_host), gateway_service_(gateway_service) {}

CGatewayConnection::~CGatewayConnection() { Close(); }

std::string CGatewayConnection::BuildAcceptString() {
  accept_string_ = "-a" + program_id_ + " -g" + gateway_host_ + " -x" + gateway_service_;
  if (trace_flag_ != 0) accept_string_ += " -t" + std::to_string(trace_flag_);
  return accept_string_;
}

void CGatewayConnection::BuildArgv() {
  const std::string accept = BuildAcceptString();
  argument_vector_.clear();
  argument_buffer_.assign(accept.begin(), accept.end());
  argument_buffer_.push_back('\0');

  const auto options = static_cast<size_t>(std::count(accept.begin(), accept.end(), '-'));
  argument_vector_.assign(options + 1, nullptr);
  size_t slot = 0;
  for (size_t i = 0; i + 1 < argument_buffer_.size(); ++i) {
    if (argument_buffer_[i] != '-') continue;
    argument_vector_[slot++] = &argument_buffer_[i];
    // Ends the previous argument; usually that is the blank before the option.
    if (i > 0) argument_buffer_[i - 1] = '\0';
  }
}

std::vector<std::string> CGatewayConnection::GetArguments() const {
  std::vector<std::string> arguments;
  for (const char* argument : argument_vector_) {
    if (argument == nullptr) break;
    arguments.emplace_back(argument);
  }
  return arguments;
}

int CGatewayConnection::Register() {
  BuildArgv();
  Accept(argument_vector_.data());
  return 1;
}

bool CGatewayConnection::IsRegistered() {
  int total = 0;
  int initialising = 0;
  int ready = 0;
  int busy = 0;
  ErrorInfoEx error{};
  RfcCheckRegisterServer(program_id_.c_str(), gateway_host_.c_str(), gateway_service_.c_str(),
                         &total, &initialising, &ready, &busy, &error);
  return total != 0;
}

bool CGatewayConnection::CancelRegistration() {
  int total = 0;
  int cancelled = 0;
  ErrorInfoEx error{};
  RfcCancelRegisterServer(program_id_.c_str(), gateway_host_.c_str(), gateway_service_.c_str(),
                          &total, &cancelled, &error);
  return cancelled != 0;
}
