#include "quillon/launchpad/protocol/assignment.h"

#include "quillon/base/record.h"

namespace quillon::launchpad {
namespace {

constexpr size_t kUsualPaths = 1024;

}  // namespace

bool sendAssignment(int socket, const host::LaunchTarget& target, const Message& request) {
  std::vector<int> descriptors;
  descriptors.reserve(request.descriptors.size());
  for (const Descriptor& descriptor : request.descriptors) descriptors.push_back(descriptor.get());
  RecordReader reader(request.bytes);
  RecordWriter writer;
  writer.reserve(request.bytes.size() + kUsualPaths).number(reader.number());
  writer.text(target.package.id).text(target.package.rootPath).text(target.application.id);
  writer.text(target.type).text(target.exec).text(target.assembly);
  writer.append(reader.rest());
  return sendMessage(socket, MessageKind::kAssign, writer.bytes(), descriptors);
}

std::optional<Assignment> readAssignment(const Message& packet) {
  RecordReader reader(packet.bytes);
  Assignment assignment;
  assignment.there = reader.number();
  assignment.target.package.id = reader.text();
  assignment.target.package.rootPath = reader.text();
  assignment.target.application.id = reader.text();
  assignment.target.type = reader.text();
  assignment.target.exec = reader.text();
  assignment.target.assembly = reader.text();
  auto request = decodeRequest(textOf(reader.rest(), assignment.there, packet.descriptors));
  if (!reader.ok() || !request) return std::nullopt;
  assignment.request = std::move(*request);
  return assignment;
}

}  // namespace quillon::launchpad
