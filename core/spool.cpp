#include "core/spool.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <random>

#include "core/connection.h"
#include "core/settings.h"
#include "core/spool_forward.h"
#include "platform/monitor_channel.h"

namespace scadastore {
namespace {

constexpr size_t kBatchWrites = 1000;
constexpr size_t kIdLength = 16;
// Damaged bytes are set aside up to this size; the span's size is in the reason.
constexpr uint64_t kAsideBytesLimit = 1 << 20;

void Announce(const std::string& text) { NotifyMonitorWindow(("spool: " + text).c_str()); }

std::string Megabytes(uint64_t bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / (1 << 20));
  return text;
}

std::unique_ptr<Spool>& ActiveSpoolSlot() {
  static std::unique_ptr<Spool> spool;
  return spool;
}

std::string& SpoolErrorSlot() {
  static std::string error;
  return error;
}

}  // namespace

bool ServerUnreachable(const char* state, long nativeError, const char* message) {
  if (std::strncmp(state, "08", 2) == 0 || std::strcmp(state, "HYT00") == 0 ||
      std::strcmp(state, "HYT01") == 0 || std::strncmp(state, "57P0", 4) == 0)
    return true;
  // MariaDB reports a server gone or lost under HY000.
  if (std::strcmp(state, "HY000") == 0) {
    switch (nativeError) {
      case 1053: case 1927: case 2002: case 2003: case 2006: case 2013: case 2055: return true;
      default: break;
    }
  }
  // psqlODBC passes libpq's texts of a lost session under other states; the
  // SQLite driver has no states of its own for a file it cannot reach.
  for (const char* lost : {"server closed the connection unexpectedly",
                           "terminating connection due to administrator command",
                           "could not send data to server", "no connection to the server",
                           "database is locked", "unable to open database file"})
    if (std::strstr(message, lost) != nullptr) return true;
  return false;
}

std::unique_ptr<Spool> Spool::Open(const std::string& directory, uint64_t maxBytes,
                                   std::string& error) {
  std::unique_ptr<Spool> spool(new Spool(directory, maxBytes));
  if (!spool->lock_.Take(directory, error) || !spool->ReadIdentity(error) || !spool->Load(error))
    return nullptr;
  return spool;
}

bool Spool::ReadIdentity(std::string& error) {
  SpoolFile file;
  if (!file.Open(directory_ + "/id", error)) return false;
  id_.assign(kIdLength, '\0');
  if (file.Size() == kIdLength && file.ReadAt(0, id_.data(), kIdLength)) return true;
  std::random_device random;
  std::mt19937_64 generator((uint64_t{random()} << 32) ^ random());
  const uint64_t number = generator();
  char text[kIdLength + 1];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(number));
  id_ = text;
  return file.Truncate(0, error) && file.Append(id_.data(), id_.size(), error) &&
         file.Sync(error);
}

bool Spool::Load(std::string& error) {
  if (!journal_.Open(directory_ + "/journal", error) ||
      !aside_.Open(directory_ + "/aside", error))
    return false;
  const JournalScan scan = ScanJournal(journal_);
  if (scan.end < journal_.Size() && (!journal_.Truncate(scan.end, error) || !journal_.Sync(error)))
    return false;
  const std::vector<uint64_t> setAside = AsideKeys();
  for (const DamagedSpan& damage : scan.damaged) {
    if (std::find(setAside.begin(), setAside.end(), damage.nextSequence) != setAside.end())
      continue;
    AsideEntry entry{damage.nextSequence,
                     "damaged frame at offset " + std::to_string(damage.offset) + " (" +
                         std::to_string(damage.size) + " bytes) before write " +
                         std::to_string(damage.nextSequence) + ": checksum mismatch",
                     {}};
    entry.bytes.resize(std::min(damage.size, kAsideBytesLimit));
    journal_.ReadAt(damage.offset, entry.bytes.data(), entry.bytes.size());
    SetAside(entry);
  }
  for (const JournalFrame& frame : scan.frames) {
    next_sequence_ = std::max(next_sequence_, frame.sequence + 1);
    if (frame.type == FrameType::kForwarded) forwarded_ = std::max(forwarded_, frame.sequence);
  }
  for (const JournalFrame& frame : scan.frames)
    if (frame.type == FrameType::kWrite && frame.sequence > forwarded_)
      waiting_frames_.push_back(frame);
  waiting_ = waiting_frames_.size();
  return waiting_frames_.empty() ? Restart(error) : true;
}

std::vector<uint64_t> Spool::AsideKeys() {
  std::vector<uint64_t> keys;
  for (const JournalFrame& frame : ScanJournal(aside_).frames) keys.push_back(frame.sequence);
  return keys;
}

void Spool::SetAside(const AsideEntry& entry) {
  std::string error;
  const std::string frame = EncodeFrame(FrameType::kAside, entry.key, EncodeAside(entry));
  if (!aside_.Append(frame.data(), frame.size(), error) || !aside_.Sync(error))
    Announce("cannot set aside in " + directory_ + ": " + error);
  Announce("set aside in " + directory_ + ": " + entry.reason);
}

bool Spool::Keep(const std::vector<KeptWrite>& writes, const char* why, std::string& error) {
  std::unique_lock<std::mutex> lock(mutex_);
  const uint64_t start = journal_.Size();
  std::string frames;
  std::vector<JournalFrame> kept;
  const auto now = static_cast<uint32_t>(std::time(nullptr));
  for (KeptWrite write : writes) {
    write.keptAt = now;
    const std::string payload = EncodeWrite(write);
    const uint64_t sequence = next_sequence_ + kept.size();
    kept.push_back({start + frames.size() + kFrameHeaderSize, FrameType::kWrite,
                    static_cast<uint32_t>(payload.size()), sequence});
    frames += EncodeFrame(FrameType::kWrite, sequence, payload);
  }
  if (start + frames.size() > max_bytes_) {
    error = "spool full: " + directory_ + " holds " + Megabytes(start) + " of " +
            Megabytes(max_bytes_);
  } else if (!journal_.Append(frames.data(), frames.size(), error) || !journal_.Sync(error)) {
    std::string ignored;
    journal_.Truncate(start, ignored);
    error = "spool full: " + directory_ + ": " + error;
  } else {
    const bool started = waiting_frames_.empty();
    waiting_frames_.insert(waiting_frames_.end(), kept.begin(), kept.end());
    next_sequence_ += kept.size();
    waiting_ = waiting_frames_.size();
    full_announced_ = false;
    lock.unlock();
    if (started) Announce("keeping writes in " + directory_ + ": " + why);
    return true;
  }
  const bool announce = !full_announced_;
  full_announced_ = true;
  lock.unlock();
  if (announce) Announce(error);
  return false;
}

void Spool::MarkForwarded(uint64_t sequence) {
  std::lock_guard<std::mutex> lock(mutex_);
  while (!waiting_frames_.empty() && waiting_frames_.front().sequence <= sequence) {
    waiting_frames_.pop_front();
    ++forwarded_count_;
  }
  forwarded_ = std::max(forwarded_, sequence);
  waiting_ = waiting_frames_.size();
  // Not flushed: the database's sequence number decides after a crash.
  const std::string frame = EncodeFrame(FrameType::kForwarded, forwarded_, {});
  std::string error;
  journal_.Append(frame.data(), frame.size(), error);
}

bool Spool::Restart(std::string& error) {
  const std::string path = directory_ + "/journal";
  const std::string fresh = path + ".new";
  {
    SpoolFile file;
    const std::string frame = EncodeFrame(FrameType::kForwarded, next_sequence_ - 1, {});
    if (!file.Open(fresh, error) || !file.Truncate(0, error) ||
        !file.Append(frame.data(), frame.size(), error) || !file.Sync(error))
      return false;
  }
  journal_.Close();
  const bool replaced = ReplaceSpoolFile(fresh, path, error);
  return journal_.Open(path, error) && replaced;
}

std::vector<Spool::Pending> Spool::NextBatch(size_t count) {
  std::vector<Pending> batch;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const size_t take = std::min(count, waiting_frames_.size());
    for (size_t i = 0; i < take; ++i) batch.push_back({waiting_frames_[i], {}, {}});
  }
  for (Pending& pending : batch)
    if (!ReadPayload(journal_, pending.frame, pending.payload) ||
        !DecodeWrite(pending.payload, pending.write))
      pending.write.recordSize = 0;
  return batch;
}

void Spool::Forward(std::chrono::milliseconds slice) {
  // With nothing waiting, as on every call to a healthy database, one atomic read.
  if (!Holds()) return;
  std::unique_lock<std::mutex> forwarding(forwarding_, std::try_to_lock);
  const auto now = std::chrono::steady_clock::now();
  if (!forwarding.owns_lock() || now < retry_after_) return;
  const auto deadline = now + slice;
  DbConnection db;
  uint64_t stored = 0;
  if (!db.Open() || !ReadForwardedSequence(db, id_, stored)) {
    retry_after_ = std::chrono::steady_clock::now() + kRetryPause;
    return;
  }
  if (stored > forwarded_) MarkForwarded(stored);
  uint64_t alone_through = 0;  // writes up to here go one per transaction
  std::string reason;
  while (Holds() && std::chrono::steady_clock::now() < deadline) {
    std::vector<Pending> batch = NextBatch(kBatchWrites);
    if (batch.empty()) break;
    if (batch.front().frame.sequence <= alone_through || batch.front().write.recordSize == 0)
      batch.resize(1);
    std::vector<const KeptWrite*> writes;
    for (const Pending& pending : batch)
      if (pending.write.recordSize != 0) writes.push_back(&pending.write);
    const uint64_t last = batch.back().frame.sequence;
    ForwardOutcome outcome = writes.size() == batch.size() || batch.size() == 1
                                 ? ForwardWrites(db, id_, last, writes, reason)
                                 : ForwardOutcome::kRefused;
    if (outcome == ForwardOutcome::kRefused && batch.size() > 1) {
      alone_through = last;
      continue;
    }
    if (outcome == ForwardOutcome::kRefused || writes.empty()) {
      const Pending& refused = batch.front();
      SetAside({refused.frame.sequence,
                (writes.empty() ? std::string("unreadable write") : "refused: " + reason) +
                    " (write " + std::to_string(refused.frame.sequence) + ", table " +
                    refused.write.TableName() + ")",
                refused.payload});
      outcome = ForwardWrites(db, id_, last, {}, reason);
    }
    if (outcome != ForwardOutcome::kCommitted) {
      retry_after_ = std::chrono::steady_clock::now() + kRetryPause;
      break;
    }
    MarkForwarded(last);
  }
  if (Holds()) return;
  std::string error, forwarded;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!waiting_frames_.empty()) return;
    if (!Restart(error)) error = "cannot restart the journal of " + directory_ + ": " + error;
    forwarded = "forwarded " + std::to_string(forwarded_count_) + " writes from " + directory_ +
                "; nothing waits";
    forwarded_count_ = 0;
  }
  if (!error.empty()) Announce(error);
  Announce(forwarded);
}

Spool* ActiveSpool() { return ActiveSpoolSlot().get(); }

const std::string& SpoolError() { return SpoolErrorSlot(); }

bool StartSpool() {
  const ConnectionSettings& settings = Settings();
  std::unique_ptr<Spool>& spool = ActiveSpoolSlot();
  SpoolErrorSlot().clear();
  if (spool && spool->directory() == settings.spoolDirectory) return true;
  spool.reset();
  if (settings.spoolDirectory.empty()) return true;
  spool = Spool::Open(settings.spoolDirectory, settings.spoolMegabytes << 20, SpoolErrorSlot());
  return spool != nullptr;
}

}  // namespace scadastore
