#include "quillon/launchpad/protocol/status.h"

#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/fields.h"

namespace quillon::launchpad {
namespace {

constexpr size_t kMaxElements = 10'000;

template <typename Archive, typename AnyStatus>
void visitHead(Archive&& archive, AnyStatus& status) {
  archive(status.pid, status.isStopping, status.prepared, status.pools, status.latencySumUs,
          status.known, status.ownMemoryKib, status.watchesPressure, status.shortages,
          status.shortage);
}

struct VisitProcess {
  template <typename Archive, typename AnyProcess>
  void operator()(Archive&& archive, AnyProcess& process) const {
    archive(process.pid, process.stage, process.pool, process.application, process.memoryKib);
  }
};
struct VisitDirect {
  template <typename Archive, typename AnyLaunch>
  void operator()(Archive&& archive, AnyLaunch& launch) const {
    archive(launch.time, launch.application, launch.reason);
  }
};
struct VisitReason {
  template <typename Archive, typename AnyReason>
  void operator()(Archive&& archive, AnyReason& reason) const {
    archive(reason.text, reason.launches);
  }
};
struct VisitNumber {
  template <typename Archive, typename AnyNumber>
  void operator()(Archive&& archive, AnyNumber& number) const {
    archive(number);
  }
};

template <typename Visit, typename T>
void write(RecordWriter& writer, const std::vector<T>& elements, const Visit& visit) {
  writer.number(elements.size());
  for (const T& element : elements) {
    visit(Encoder(writer), element);
  }
}

template <typename Visit, typename T>
void read(RecordReader& reader, std::vector<T>& elements, const Visit& visit) {
  uint64_t left = reader.number();
  reader.require(left < kMaxElements);
  for (; left > 0 && reader.ok(); --left) {
    visit(Decoder(reader), elements.emplace_back());
  }
}

std::string encodeAll(const Status& status) {
  RecordWriter writer;
  visitHead(Encoder(writer), status);
  write(writer, status.processes, VisitProcess());
  write(writer, status.recent, VisitDirect());
  write(writer, status.reasons, VisitReason());
  write(writer, status.latencies, VisitNumber());
  return writer.take();
}

}  // namespace

std::string encode(const Status& status) {
  constexpr size_t kRoomForKind = 64;
  std::string bytes = encodeAll(status);
  if (bytes.size() + kRoomForKind <= kMaxMessageSize || status.processes.empty()) {
    return bytes;
  }
  Status shorter = status;
  shorter.processes.resize(status.processes.size() / 2);
  return encode(shorter);
}

std::optional<Status> decodeStatus(std::string_view bytes) {
  RecordReader reader(bytes);
  Status status;
  visitHead(Decoder(reader), status);
  read(reader, status.processes, VisitProcess());
  read(reader, status.recent, VisitDirect());
  read(reader, status.reasons, VisitReason());
  read(reader, status.latencies, VisitNumber());
  return reader.atEnd() ? std::optional(std::move(status)) : std::nullopt;
}

}  // namespace quillon::launchpad
