#include "launcher/launchpad/assignment.h"

#include "launcher/launchpad/text_record.h"

namespace quillon::launchpad {

bool sendAssignment(int socket, const launcher::LaunchTarget& target, const Packet& request) {
  std::vector<int> descriptors;
  for (const Descriptor& descriptor : request.descriptors) descriptors.push_back(descriptor.get());
  RecordWriter writer;
  writer.number(RecordReader(request.bytes).number());
  writer.text(target.package.id).text(target.package.rootPath).text(target.application.id);
  writer.text(target.type).text(target.exec).text(target.assembly);
  return sendPacket(socket, PacketKind::kAssign, writer.bytes(), descriptors);
}

std::optional<Assignment> readAssignment(const std::string& bytes) {
  RecordReader reader(bytes);
  Assignment assignment;
  assignment.there = reader.number();
  assignment.target.package.id = reader.text();
  assignment.target.package.rootPath = reader.text();
  assignment.target.application.id = reader.text();
  assignment.target.type = reader.text();
  assignment.target.exec = reader.text();
  assignment.target.assembly = reader.text();
  if (!reader.atEnd()) return std::nullopt;
  return assignment;
}

}  // namespace quillon::launchpad
