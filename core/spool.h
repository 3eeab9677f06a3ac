// Store and forward: inserts whose database cannot be reached are kept in a
// journal under the directory of the option "spool=DIR" and forwarded, each
// exactly once, by later calls (or the tool) once the database answers.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/spool_journal.h"
#include "platform/spool_file.h"

namespace scadastore {

// How long a call forwards kept writes before doing its own work.
constexpr std::chrono::milliseconds kForwardSlice{200};
// After the database failed a forward, calls do not try again before this.
constexpr std::chrono::milliseconds kRetryPause{500};

// A failure that means the server could not be reached or was lost, rather
// than refused the statement: SQLSTATE class 08, HYT00, HYT01, PostgreSQL's
// shutdown states, MariaDB's lost-connection errors, and a SQLite file that
// cannot be opened or stays locked past the busy time-out.
bool ServerUnreachable(const char* state, long nativeError, const char* message);

class Spool {
 public:
  // Takes the directory's lock and reads its journal: a torn last frame is
  // dropped, damaged frames elsewhere are set aside.
  static std::unique_ptr<Spool> Open(const std::string& directory, uint64_t maxBytes,
                                     std::string& error);

  // Anything waiting to be forwarded.
  bool Holds() const { return waiting_.load(std::memory_order_acquire) > 0; }
  // Appends the writes behind what the spool holds and flushes them to the
  // device. False with the reason ("spool full: ...") when they do not fit.
  bool Keep(const std::vector<KeptWrite>& writes, const char* why, std::string& error);
  // Forwards in batches until nothing waits, the database fails, or `slice`
  // has passed. A call already forwarding on another thread makes this one
  // return at once.
  void Forward(std::chrono::milliseconds slice);

  const std::string& directory() const { return directory_; }

 private:
  Spool(std::string directory, uint64_t maxBytes)
      : directory_(std::move(directory)), max_bytes_(maxBytes) {}
  bool Load(std::string& error);
  bool ReadIdentity(std::string& error);
  std::vector<uint64_t> AsideKeys();
  void SetAside(const AsideEntry& entry);
  void MarkForwarded(uint64_t sequence);
  // With nothing waiting: a fresh journal that carries the numbering on.
  bool Restart(std::string& error);
  struct Pending {
    JournalFrame frame;
    std::string payload;
    KeptWrite write;  // recordSize 0: the payload does not decode
  };
  std::vector<Pending> NextBatch(size_t count);

  const std::string directory_;
  const uint64_t max_bytes_;
  DirectoryLock lock_;
  std::string id_;
  std::mutex mutex_;  // guards what follows
  SpoolFile journal_;
  SpoolFile aside_;
  std::deque<JournalFrame> waiting_frames_;
  uint64_t next_sequence_ = 1;
  uint64_t forwarded_ = 0;   // through this sequence number
  uint64_t forwarded_count_ = 0;  // since the spool last emptied
  bool full_announced_ = false;
  std::atomic<size_t> waiting_{0};
  std::mutex forwarding_;  // guards what follows
  std::chrono::steady_clock::time_point retry_after_{};
};

// The spool of the settings in force; null without the option or when it
// could not be opened (then SpoolError() says why).
Spool* ActiveSpool();
const std::string& SpoolError();
// Opens the spool of the settings in force, closing the one before. True
// without the option.
bool StartSpool();

}  // namespace scadastore
