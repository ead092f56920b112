#include "sapsim/server/message_server.h"

#include "sapsim/server/event_log.h"
#include "sapsim/server/simulated_system.h"
#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/error_codes.h"

namespace sapsim::server {

void MessageServer::Serve(wire::FrameChannel& channel) const {
  for (;;) {
    wire::Frame frame;
    std::string error;
    if (channel.Receive(&frame, &error) != wire::IoStatus::kOk) return;
    wire::FrameWriter answer(wire::FrameType::kError);
    try {
      wire::MessageServerQuery query = wire::MessageServerQuery::Decode(frame);
      const SystemDefinition& system = system_.definition();
      bool group_known = false;
      for (const std::string& group : system.groups) group_known = group_known || group == query.group;
      if (query.system_name != system.system_id) {
        std::string message = "message server of system " + system.system_id + " does not serve system " +
                              query.system_name;
        EventLog::Write(message);
        answer = wire::ErrorNotice{wire::kGroupCommunication, wire::kKeyCommunication, message}.Encode(
            wire::FrameType::kError);
      } else if (!group_known) {
        std::string known;
        for (const std::string& group : system.groups) known += (known.empty() ? "" : ", ") + group;
        std::string message = "logon group " + query.group + " is not known in system " + system.system_id +
                              " (groups: " + (known.empty() ? std::string("none") : known) + ")";
        EventLog::Write(message);
        answer = wire::ErrorNotice{wire::kGroupCommunication, wire::kKeyCommunication, message}.Encode(
            wire::FrameType::kError);
      } else {
        EventLog::Write("message server: group " + query.group + " -> port " + std::to_string(port_));
        answer = wire::MessageServerAnswer{host_, port_}.Encode();
      }
    } catch (const wire::DecodeError& e) {
      answer = wire::ErrorNotice{wire::kGroupProtocol, wire::kKeyProtocol, std::string("protocol error: ") + e.what()}
                   .Encode(wire::FrameType::kError);
    }
    if (channel.Send(answer, &error) != wire::IoStatus::kOk) return;
  }
}

}  // namespace sapsim::server
