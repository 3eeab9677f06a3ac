// The inserting exports' way through the spool (option "spool=DIR"): while
// the spool holds writes, or when the direct write fails for want of the
// database, the write is kept behind the others and the call returns 0.
#pragma once

#include <cstdint>

#include "core/export_call.h"
#include "core/spool.h"

namespace scadastore {

// How far a direct write got before it failed.
struct WriteProgress {
  uint32_t stored = 0;  // records that reached the database
  // Records sent after those, whose outcome is not known, and their first id.
  uint32_t sentCount = 0;
  uint32_t sentId = 0;
  // The export gave up without a failure where the database's answer was
  // lost (its largest id could not be read): with the spool that is kept.
  bool answerLost = false;
};

// Keeps the write, or what `progress` says is left of it; 0 when kept.
uint32_t KeepWrite(ExportCall& call, KeptWrite write, const WriteProgress& progress,
                   const char* why);

// direct(progress) is the export's own write; write() describes it for the
// spool, and is called only when it is kept.
template <class Write, class Direct>
uint32_t WriteOrKeep(ExportCall& call, Write&& write, Direct&& direct) {
  WriteProgress progress;
  if (Settings().spoolDirectory.empty()) return direct(progress);
  Spool* spool = ActiveSpool();
  if (spool && spool->Holds()) spool->Forward(kForwardSlice);
  if (spool && spool->Holds()) return KeepWrite(call, write(), progress, "");
  const uint32_t result = direct(progress);
  if (progress.answerLost) return KeepWrite(call, write(), progress, "no answer from the database");
  if (result == 0 || !call.db().Unreachable()) return result;
  return KeepWrite(call, write(), progress, call.db().ErrorText());
}

}  // namespace scadastore
