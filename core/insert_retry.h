// Several writers of one table. Ids are the largest id + 1, read just before
// the insert, so two writers may choose the same ids; the later insert is
// refused and, run again from a fresh read of the largest id, stores.
#pragma once

#include <functional>

#include "core/export_call.h"

namespace scadastore {

inline constexpr int kInsertAttempts = 16;

// True when the last failure on `db` stored nothing and came only from
// another writer: a duplicate id, or a statement Galera rolled back because
// another node's write of the same id certified first.
bool RefusedForAnotherWriter(const DbConnection& db);

// Runs `insert` (read the largest id, insert records with the ids after it)
// until it succeeds, fails for another reason or has run kInsertAttempts
// times, reconnecting after a short random pause between attempts. Each
// statement stores whole or not at all, so an `insert` of several records that
// resumes at the refused one never stores a record twice. Only the last
// attempt is reported: its failure text and its monitor announcements.
bool InsertWithFreshIds(ExportCall& call, const std::function<bool()>& insert);

}  // namespace scadastore
