#pragma once
// A stand-in RFC library whose answers the test scripts: which accepts fail,
// what RfcListen reports, which calls RfcDispatch delivers, what the last
// error says. It records what the class library handed it. Built as a shared
// library and loaded through LoadRfcLibrary like the real one; the test
// reaches the script through ScriptedRfc().

#include <algorithm>
#include <cstring>
#include <deque>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "rfc/binding/rfc_library_api.h"

struct ScriptedRfcCall {
  std::string entry;   // entry point
  ConnectionHandle handle = 0;
  std::string text;    // name, exception or documentation, as fits the entry
  std::vector<std::string> names;  // parameter or table names of the arrays
};

struct ScriptedRfc {
  std::mutex lock;

  // RfcAccept: handles count up from first_handle; the accepts whose 1-based
  // number is in failing_accepts return 0, and all do when fail_every_accept.
  ConnectionHandle first_handle = 1;
  std::set<int> failing_accepts;
  bool fail_every_accept = false;
  int accepts = 0;

  // RfcListen answers from this queue, then listen_default.
  std::deque<int> listen_results;
  int listen_default = RFC_NOTHING_WAITING;

  // RfcDispatch delivers these calls (function names) one by one through the
  // installed catch-all; once they are gone it answers dispatch_default.
  std::deque<std::string> pending_calls;
  int dispatch_default = RFC_CLOSED;
  // RfcGetName's result code, and the data exchange's.
  int get_name_result = RFC_OK;
  int get_data_result = RFC_OK;
  int send_data_result = RFC_OK;

  // What RfcLastError and RfcLastErrorEx report; a thread whose last accept
  // failed gets accept_error_ex from RfcLastErrorEx instead.
  RFC_ERROR_INFO last_error{};
  ErrorInfoEx last_error_ex{};
  ErrorInfoEx accept_error_ex{};

  // The partner release RfcGetAttributes reports.
  std::string partner_release = "46C";

  // ItGetLine first calls on_get_line with the 1-based line number, outside
  // the lock so that the hook may describe the table anew; it answers null
  // for missing_line (0: never).
  void (*on_get_line)(void* context, unsigned line) = nullptr;
  void* get_line_context = nullptr;
  unsigned missing_line = 0;

  // The registration check and cancel: result codes, and the counts they
  // write (total = ready = check_total, cancelled = cancel_cancelled) unless
  // write_counts is false, when they leave every count untouched.
  int check_result = RFC_OK;
  int check_total = 0;
  int cancel_result = RFC_OK;
  int cancel_cancelled = 0;
  bool write_counts = true;

  // Installed functions: name -> documentation; the catch-all's address.
  std::vector<std::pair<std::string, std::string>> installed;
  RfcServerFunction catch_all = nullptr;

  std::vector<ScriptedRfcCall> calls;
  // The name of the call being dispatched on each thread's handle.
  std::vector<std::pair<ConnectionHandle, std::string>> current_names;

  // Everything back to the start.
  void Reset() {
    std::lock_guard<std::mutex> hold(lock);
    first_handle = 1;
    failing_accepts.clear();
    fail_every_accept = false;
    accepts = 0;
    listen_results.clear();
    listen_default = RFC_NOTHING_WAITING;
    pending_calls.clear();
    dispatch_default = RFC_CLOSED;
    get_name_result = get_data_result = send_data_result = RFC_OK;
    last_error = RFC_ERROR_INFO{};
    last_error_ex = ErrorInfoEx{};
    accept_error_ex = ErrorInfoEx{};
    partner_release = "46C";
    on_get_line = nullptr;
    get_line_context = nullptr;
    missing_line = 0;
    check_result = cancel_result = RFC_OK;
    check_total = cancel_cancelled = 0;
    write_counts = true;
    installed.clear();
    catch_all = nullptr;
    calls.clear();
    current_names.clear();
  }

  // Entries of `entry` recorded so far.
  std::vector<ScriptedRfcCall> CallsOf(const std::string& entry) {
    std::lock_guard<std::mutex> hold(lock);
    std::vector<ScriptedRfcCall> found;
    for (const ScriptedRfcCall& call : calls) {
      if (call.entry == entry) found.push_back(call);
    }
    return found;
  }

  void SetLastError(const std::string& key, const std::string& status, const std::string& message) {
    std::lock_guard<std::mutex> hold(lock);
    Fill(last_error.key, sizeof last_error.key, key);
    Fill(last_error.status, sizeof last_error.status, status);
    Fill(last_error.message, sizeof last_error.message, message);
    Fill(last_error.intstat, sizeof last_error.intstat, "scripted");
  }

  static void SetErrorEx(ErrorInfoEx& target, int group, const std::string& key,
                         const std::string& message) {
    target.group = group;
    Fill(target.key, sizeof target.key, key);
    Fill(target.message, sizeof target.message, message);
  }

  static void Fill(char* field, size_t size, const std::string& text) {
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(size - 1, text.size()));
  }
};

extern "C" {
typedef ScriptedRfc* (*ScriptedRfc_t)(void);
}

#ifndef RFC_LIBRARY_IMPLEMENTATION
#include <stdexcept>

#include "platform/dynamic_library.h"

// The script of the library at `path`; the library stays loaded.
inline ScriptedRfc& ScriptOf(const std::string& path) {
  platform::LibraryHandle library = platform::LoadDynamicLibrary(path);
  auto get = reinterpret_cast<ScriptedRfc_t>(platform::GetLibrarySymbol(library, "ScriptedRfcScript"));
  if (get == nullptr) throw std::runtime_error("no scripted library at " + path);
  return *get();
}
#endif
