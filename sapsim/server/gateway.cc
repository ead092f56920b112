#include "sapsim/server/gateway.h"

#include <algorithm>
#include <chrono>

#include "sapsim/server/event_log.h"
#include "sapsim/wire/error_codes.h"

namespace sapsim::server {

std::shared_ptr<Registration> Gateway::Register(const std::string& program_id,
                                                std::shared_ptr<wire::FrameChannel> channel) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto registration = std::make_shared<Registration>(next_id_++, program_id, std::move(channel), system_);
  registrations_.push_back(registration);
  freed_.notify_all();
  return registration;
}

void Gateway::Unregister(const std::shared_ptr<Registration>& registration) {
  std::lock_guard<std::mutex> lock(mutex_);
  registrations_.erase(std::remove(registrations_.begin(), registrations_.end(), registration),
                       registrations_.end());
  freed_.notify_all();
}

wire::RegistrationCounts Gateway::Count(const std::string& program_id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  wire::RegistrationCounts counts;
  for (const auto& registration : registrations_) {
    if (registration->program_id() != program_id || registration->closed()) continue;
    ++counts.total;
    if (registration->starting()) {
      ++counts.initialising;
    } else if (registration->busy()) {
      ++counts.busy;
    } else {
      ++counts.ready;
    }
  }
  return counts;
}

wire::RegistrationCounts Gateway::Cancel(const std::string& program_id) {
  std::vector<std::shared_ptr<Registration>> doomed;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = registrations_.begin(); it != registrations_.end();) {
      if ((*it)->program_id() == program_id && !(*it)->closed()) {
        doomed.push_back(*it);
        it = registrations_.erase(it);
      } else {
        ++it;
      }
    }
  }
  wire::ErrorNotice notice{wire::kGroupCancelled, wire::kKeyCancelled,
                           "registration of program " + program_id + " cancelled at the gateway"};
  for (const auto& registration : doomed) registration->Cancel(notice);
  wire::RegistrationCounts counts;
  counts.total = static_cast<int32_t>(doomed.size());
  counts.cancelled = counts.total;
  return counts;
}

bool Gateway::Route(const std::string& program_id, const CallSource& call, int wait_ms, wire::Frame* reply,
                    wire::ErrorNotice* error, bool* delivered) {
  *delivered = false;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(wait_ms);
  std::shared_ptr<Registration> chosen;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      bool any = false;
      for (const auto& registration : registrations_) {
        if (registration->program_id() != program_id || registration->closed()) continue;
        any = true;
        if (registration->TryReserve()) {
          chosen = registration;
          break;
        }
      }
      if (chosen) break;
      if (!any) {
        *error = wire::ErrorNotice{wire::kGroupRegistration, wire::kKeyRegistration,
                                   "no RFC server program is registered under program id " + program_id};
        return false;
      }
      // Short waits: a registration also becomes free without telling us
      // (after serving a callback on its own).
      if (std::chrono::steady_clock::now() >= deadline) {
        *error = wire::ErrorNotice{wire::kGroupRegistration, wire::kKeyRegistration,
                                   "every server registered under program id " + program_id +
                                       " stayed busy for " + std::to_string(wait_ms / 1000) + " seconds"};
        return false;
      }
      freed_.wait_for(lock, std::chrono::milliseconds(50));
    }
  }
  *delivered = true;
  bool ok = chosen->Exchange(call, reply, error);
  freed_.notify_all();
  return ok;
}

void Gateway::ShutdownAll() {
  std::vector<std::shared_ptr<Registration>> all;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    all = registrations_;
  }
  for (const auto& registration : all) registration->Shutdown();
}

}  // namespace sapsim::server
