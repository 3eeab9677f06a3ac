// The spool's on-disk form. A journal is a sequence of frames:
//
//   u32 magic "SPL1" | u32 CRC-32 of bytes 8..23 and the payload | u8 type |
//   3 zero bytes | u32 payload length | u64 sequence number | payload
//
// in host byte order. A write frame carries one kept write; a forwarded frame
// says that every write up to its sequence number has reached the database
// (and, as the first frame of a fresh journal, where numbering goes on). The
// file of set-aside entries uses the same frames.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace scadastore {

class SpoolFile;

enum class FrameType : uint8_t { kWrite = 1, kForwarded = 2, kAside = 3 };

constexpr size_t kFrameHeaderSize = 24;
constexpr uint32_t kMaxFramePayload = 1u << 30;

// The bytes of one frame.
std::string EncodeFrame(FrameType type, uint64_t sequence, std::string_view payload);

// The inserting exports whose writes are kept.
enum class WriteFamily : uint8_t { kAlarm = 1, kLog = 2, kRecord = 3, kBatch = 4 };

// One kept insert, as the export was called.
struct KeptWrite {
  WriteFamily family = WriteFamily::kAlarm;
  std::string table;    // alarm, log: the name; record, batch: the DataTableInfo bytes
  uint32_t recordSize = 0;
  std::string records;  // the records to store, recordSize bytes each
  // The first sentCount records were sent under the ids from sentId and
  // their outcome is not known: the connection was lost before the answer.
  uint32_t sentId = 0;
  uint32_t sentCount = 0;
  uint32_t keptAt = 0;  // seconds since 1970

  std::string TableName() const;
  uint32_t RecordCount() const { return recordSize ? records.size() / recordSize : 0; }
};

std::string EncodeWrite(const KeptWrite& write);
bool DecodeWrite(std::string_view payload, KeptWrite& write);

// A set-aside entry: why, and what (a write frame's payload or damaged bytes).
struct AsideEntry {
  uint64_t key = 0;  // sequence number of the write, or of the frame after the damage
  std::string reason;
  std::string bytes;
};
std::string EncodeAside(const AsideEntry& entry);
bool DecodeAside(std::string_view payload, AsideEntry& entry);

struct JournalFrame {
  uint64_t offset;  // of the payload
  FrameType type;
  uint32_t length;
  uint64_t sequence;
};

// Bytes between two good frames that are no frame.
struct DamagedSpan {
  uint64_t offset;
  uint64_t size;
  uint64_t nextSequence;  // of the good frame after it
};

struct JournalScan {
  std::vector<JournalFrame> frames;
  std::vector<DamagedSpan> damaged;
  uint64_t end = 0;  // after the last good frame: anything beyond is a torn tail
};

// Reads every frame of the file from `from` on.
JournalScan ScanJournal(const SpoolFile& file, uint64_t from = 0);

bool ReadPayload(const SpoolFile& file, const JournalFrame& frame, std::string& payload);

// Reads a spool directory without its lock (a running host may append):
// waiting(sequence, write) for each write not marked forwarded, in order,
// and aside(entry) for each set-aside entry. False when it cannot be read.
bool ReadSpoolDirectory(const std::string& directory,
                        const std::function<void(uint64_t, const KeptWrite&)>& waiting,
                        const std::function<void(const AsideEntry&)>& aside, std::string& error);

}  // namespace scadastore
