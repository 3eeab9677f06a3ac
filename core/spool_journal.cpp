#include "core/spool_journal.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/spool_file.h"

namespace scadastore {
namespace {

constexpr uint32_t kMagic = 0x314C5053;  // "SPL1"
constexpr size_t kScanChunk = 1 << 16;

uint32_t Crc32(uint32_t crc, const void* data, size_t size) {
  static const std::array<uint32_t, 256> table = [] {
    std::array<uint32_t, 256> t{};
    for (uint32_t n = 0; n < 256; ++n) {
      uint32_t c = n;
      for (int k = 0; k < 8; ++k) c = c & 1 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      t[n] = c;
    }
    return t;
  }();
  const auto* bytes = static_cast<const unsigned char*>(data);
  crc = ~crc;
  for (size_t i = 0; i < size; ++i) crc = table[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

template <class T>
void Put(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void PutText(std::string& out, std::string_view text) {
  Put(out, static_cast<uint32_t>(text.size()));
  out.append(text);
}

// Reads fields front to back; any read past the end fails the whole decode.
struct Reader {
  std::string_view rest;
  bool ok = true;

  template <class T>
  T Get() {
    T value{};
    if (rest.size() < sizeof value) {
      ok = false;
      return value;
    }
    std::memcpy(&value, rest.data(), sizeof value);
    rest.remove_prefix(sizeof value);
    return value;
  }
  std::string Text() {
    const uint32_t size = Get<uint32_t>();
    if (!ok || rest.size() < size) {
      ok = false;
      return {};
    }
    std::string text(rest.substr(0, size));
    rest.remove_prefix(size);
    return text;
  }
};

struct Header {
  uint32_t magic;
  uint32_t crc;
  uint8_t type;
  uint8_t zero[3];
  uint32_t length;
  uint64_t sequence;
};
static_assert(sizeof(Header) == kFrameHeaderSize);

bool ReadHeader(const SpoolFile& file, uint64_t offset, uint64_t size, Header& header) {
  return offset + kFrameHeaderSize <= size && file.ReadAt(offset, &header, sizeof header) &&
         header.magic == kMagic && header.type >= 1 && header.type <= 3 &&
         header.length <= kMaxFramePayload && offset + kFrameHeaderSize + header.length <= size;
}

// True when a whole, intact frame starts at `offset`.
bool GoodFrameAt(const SpoolFile& file, uint64_t offset, uint64_t size, Header& header) {
  if (!ReadHeader(file, offset, size, header)) return false;
  uint32_t crc = Crc32(0, reinterpret_cast<const char*>(&header) + 8, 16);
  std::string chunk;
  for (uint64_t done = 0; done < header.length; done += chunk.size()) {
    chunk.resize(std::min<uint64_t>(kScanChunk, header.length - done));
    if (!file.ReadAt(offset + kFrameHeaderSize + done, chunk.data(), chunk.size())) return false;
    crc = Crc32(crc, chunk.data(), chunk.size());
  }
  return crc == header.crc;
}

// The offset of the next intact frame after `offset`, or `size` when none.
uint64_t NextGoodFrame(const SpoolFile& file, uint64_t offset, uint64_t size, Header& header) {
  std::string chunk;
  for (uint64_t at = offset + 1; at + kFrameHeaderSize <= size; at += kScanChunk) {
    chunk.resize(std::min<uint64_t>(kScanChunk + 3, size - at));
    if (!file.ReadAt(at, chunk.data(), chunk.size())) return size;
    for (size_t i = 0; i + 4 <= chunk.size() && i < kScanChunk; ++i) {
      uint32_t magic;
      std::memcpy(&magic, chunk.data() + i, 4);
      if (magic == kMagic && GoodFrameAt(file, at + i, size, header)) return at + i;
    }
  }
  return size;
}

}  // namespace

std::string EncodeFrame(FrameType type, uint64_t sequence, std::string_view payload) {
  Header header{kMagic, 0, static_cast<uint8_t>(type), {}, static_cast<uint32_t>(payload.size()),
                sequence};
  header.crc = Crc32(Crc32(0, reinterpret_cast<const char*>(&header) + 8, 16), payload.data(),
                     payload.size());
  std::string frame(reinterpret_cast<const char*>(&header), sizeof header);
  frame.append(payload);
  return frame;
}

std::string KeptWrite::TableName() const {
  // A DataTableInfo starts with its NUL-terminated name.
  return std::string(table.c_str());
}

std::string EncodeWrite(const KeptWrite& write) {
  std::string out;
  Put(out, static_cast<uint8_t>(write.family));
  Put(out, write.recordSize);
  Put(out, write.sentId);
  Put(out, write.sentCount);
  Put(out, write.keptAt);
  PutText(out, write.table);
  PutText(out, write.records);
  return out;
}

bool DecodeWrite(std::string_view payload, KeptWrite& write) {
  Reader in{payload};
  const auto family = in.Get<uint8_t>();
  write.family = static_cast<WriteFamily>(family);
  write.recordSize = in.Get<uint32_t>();
  write.sentId = in.Get<uint32_t>();
  write.sentCount = in.Get<uint32_t>();
  write.keptAt = in.Get<uint32_t>();
  write.table = in.Text();
  write.records = in.Text();
  return in.ok && in.rest.empty() && family >= 1 && family <= 4 && write.recordSize > 0 &&
         write.records.size() % write.recordSize == 0 && write.sentCount <= write.RecordCount();
}

std::string EncodeAside(const AsideEntry& entry) {
  std::string out;
  Put(out, entry.key);
  PutText(out, entry.reason);
  PutText(out, entry.bytes);
  return out;
}

bool DecodeAside(std::string_view payload, AsideEntry& entry) {
  Reader in{payload};
  entry.key = in.Get<uint64_t>();
  entry.reason = in.Text();
  entry.bytes = in.Text();
  return in.ok;
}

JournalScan ScanJournal(const SpoolFile& file, uint64_t from) {
  JournalScan scan;
  const uint64_t size = file.Size();
  uint64_t offset = from;
  Header header{};
  while (offset < size) {
    if (!GoodFrameAt(file, offset, size, header)) {
      const uint64_t next = NextGoodFrame(file, offset, size, header);
      if (next >= size) break;  // nothing good follows: a torn tail
      scan.damaged.push_back({offset, next - offset, header.sequence});
      offset = next;
    }
    scan.frames.push_back({offset + kFrameHeaderSize, static_cast<FrameType>(header.type),
                           header.length, header.sequence});
    offset += kFrameHeaderSize + header.length;
    scan.end = offset;
  }
  if (scan.frames.empty()) scan.end = from;
  return scan;
}

bool ReadPayload(const SpoolFile& file, const JournalFrame& frame, std::string& payload) {
  payload.resize(frame.length);
  return frame.length == 0 || file.ReadAt(frame.offset, payload.data(), frame.length);
}

bool ReadSpoolDirectory(const std::string& directory,
                        const std::function<void(uint64_t, const KeptWrite&)>& waiting,
                        const std::function<void(const AsideEntry&)>& aside, std::string& error) {
  SpoolFile journal, asideFile;
  if (!journal.Open(directory + "/journal", error) || !asideFile.Open(directory + "/aside", error))
    return false;
  const JournalScan scan = ScanJournal(journal);
  uint64_t forwarded = 0;
  for (const JournalFrame& frame : scan.frames)
    if (frame.type == FrameType::kForwarded) forwarded = std::max(forwarded, frame.sequence);
  std::string payload;
  KeptWrite write;
  for (const JournalFrame& frame : scan.frames)
    if (frame.type == FrameType::kWrite && frame.sequence > forwarded &&
        ReadPayload(journal, frame, payload) && DecodeWrite(payload, write))
      waiting(frame.sequence, write);
  AsideEntry entry;
  for (const JournalFrame& frame : ScanJournal(asideFile).frames)
    if (ReadPayload(asideFile, frame, payload) && DecodeAside(payload, entry)) aside(entry);
  return true;
}

}  // namespace scadastore
