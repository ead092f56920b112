#include "sapsim/server/call_context.h"

#include "sapsim/server/module_error.h"
#include "sapsim/server/simulated_system.h"
#include "sapsim/wire/frame.h"

namespace sapsim::server {

namespace {

wire::ValueDesc DescribeParameter(const SimulatedSystem& system, const ParameterDefinition& p) {
  if (p.IsSimple()) return wire::ValueDesc::Simple(p.type, p.length, p.decimals);
  const StructureDefinition* structure = system.dictionary().Find(p.structure);
  if (structure == nullptr) throw ModuleError("parameter " + p.name + " uses unknown structure " + p.structure);
  return structure->layout;
}

}  // namespace

CallContext::CallContext(const SimulatedSystem& system, FunctionInterface interface, SessionInfo session)
    : system_(system), interface_(std::move(interface)), session_(std::move(session)) {
  for (const ParameterDefinition& p : interface_.parameters) {
    wire::ValueDesc desc = DescribeParameter(system_, p);
    switch (p.param_class) {
      case ParameterDefinition::Class::kImport: {
        DataBlock block = DataBlock::Value(desc);
        if (!p.default_value.empty()) block.SetText(0, "", p.default_value);
        imports_.emplace(p.name, std::move(block));
        break;
      }
      case ParameterDefinition::Class::kExport:
        exports_.emplace(p.name, DataBlock::Value(desc));
        break;
      case ParameterDefinition::Class::kTable:
        tables_.emplace(p.name, DataBlock(desc));
        break;
    }
  }
}

bool CallContext::Take(const wire::CallMessage& call, std::string* error) {
  for (const wire::WireValue& value : call.values) {
    auto it = imports_.find(value.name);
    if (it == imports_.end()) continue;
    std::string why;
    if (!it->second.Assign(value.desc, value.data, 1, &why)) {
      *error = "import " + value.name + ": " + why;
      return false;
    }
  }
  for (const wire::WireTable& table : call.tables) {
    auto it = tables_.find(table.name);
    if (it == tables_.end()) continue;
    std::string why;
    if (!it->second.Assign(table.desc, table.rows, table.row_count, &why)) {
      *error = "table " + table.name + ": " + why;
      return false;
    }
  }
  return true;
}

std::string CallContext::Import(const std::string& name) const {
  auto it = imports_.find(name);
  return it == imports_.end() ? std::string() : it->second.Text(0, "");
}

DataBlock& CallContext::Block(std::map<std::string, DataBlock>& blocks, const std::string& kind,
                              const std::string& name) {
  auto it = blocks.find(name);
  if (it == blocks.end()) throw ModuleError("the interface has no " + kind + " " + name);
  return it->second;
}

DataBlock& CallContext::Export(const std::string& name) { return Block(exports_, "export", name); }
DataBlock& CallContext::Table(const std::string& name) { return Block(tables_, "table", name); }

wire::FrameWriter CallContext::Reply() const {
  wire::FrameWriter w(wire::FrameType::kReply);
  if (!exception_.empty()) {
    wire::EncodeReplyHead(w, wire::ReplyStatus::kException, exception_, "");
    w.U32(0);
    w.U32(0);
    return w;
  }
  wire::EncodeReplyHead(w, wire::ReplyStatus::kOk, "", "");
  w.U32(static_cast<uint32_t>(exports_.size()));
  for (const auto& entry : exports_) wire::EncodeValue(w, entry.first, entry.second.desc(), entry.second.Line(0));
  w.U32(static_cast<uint32_t>(tables_.size()));
  for (const auto& entry : tables_) {
    wire::EncodeTableHead(w, entry.first, entry.second.desc(), entry.second.rows());
    w.Borrow(entry.second.bytes().data(), entry.second.bytes().size());
  }
  return w;
}

}  // namespace sapsim::server
