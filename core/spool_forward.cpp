#include "core/spool_forward.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "alarm/alarm_record.h"
#include "alarm/alarm_statements.h"
#include "core/batch_insert.h"
#include "core/common_statements.h"
#include "core/row_reader.h"
#include "core/spool_statements.h"
#include "log/log_record.h"
#include "log/log_statements.h"
#include "record/data_layout.h"
#include "record/record_statements.h"

namespace scadastore {
namespace {

bool IsRecord(WriteFamily family) {
  return family == WriteFamily::kRecord || family == WriteFamily::kBatch;
}

// Writes whose records can travel together in one multi-row insert.
bool Mergeable(const KeptWrite& first, const KeptWrite& next) {
  return first.sentCount == 0 && next.sentCount == 0 &&
         IsRecord(first.family) == IsRecord(next.family) && first.table == next.table &&
         first.recordSize == next.recordSize;
}

// Each table's writes in their order, the tables in the order they first
// appear: rows keep their order per table, and writes of one table lie side
// by side to travel as one multi-row insert.
std::vector<const KeptWrite*> GroupedByTable(const std::vector<const KeptWrite*>& writes) {
  std::vector<std::string> names;
  std::map<std::string, std::vector<const KeptWrite*>> byName;
  for (const KeptWrite* write : writes) {
    std::vector<const KeptWrite*>& group = byName[write->TableName()];
    if (group.empty()) names.push_back(write->TableName());
    group.push_back(write);
  }
  std::vector<const KeptWrite*> grouped;
  for (const std::string& name : names)
    grouped.insert(grouped.end(), byName[name].begin(), byName[name].end());
  return grouped;
}

// A kept write's table and its statements.
class Target {
 public:
  explicit Target(const KeptWrite& write) : write_(write) {
    if (IsRecord()) {
      info_.assign(write.table.size() / sizeof(uint32_t) + 1, 0);
      std::memcpy(info_.data(), write.table.data(), write.table.size());
      layout_ = record::DescribeTable(*reinterpret_cast<const DataTableInfo*>(info_.data()));
    }
  }
  bool IsRecord() const { return scadastore::IsRecord(write_.family); }
  std::string Name() const { return IsRecord() ? layout_.name : write_.TableName(); }
  const unsigned char* Record(uint32_t k) const {
    return reinterpret_cast<const unsigned char*>(write_.records.data()) +
           size_t{k} * write_.recordSize;
  }
  Statement Insert(DbKind kind, uint32_t id, const void* record) const {
    if (IsRecord()) return record::InsertStatement(kind, layout_, record, write_.recordSize, id);
    return Inserts().single(kind, write_.table.c_str(), id, record);
  }
  // Stores the records from `first` on under the ids from `firstId`, inside
  // the caller's transaction, as the exports' batches write them: bound
  // values, several rows to a statement where the kind has them.
  bool Store(DbConnection& db, uint32_t first, uint32_t firstId, std::string& reason) const {
    const uint32_t count = write_.RecordCount();
    if (first >= count) return true;
    const DbKind kind = db.kind();
    uint32_t failedFrom = 0;
    if (!IsRecord()) {
      const char* table = write_.table.c_str();
      const uint32_t whole =
          WholeInserts(Inserts(), kind, table, Record(first), count - first, write_.recordSize, firstId);
      if (whole < count - first) {
        reason = "not run, cut: " + Insert(kind, firstId + whole, Record(first + whole)).text;
        return false;
      }
      return InsertSlices(
          db, FixedRecordRows(Inserts(), kind, table, Record(first), write_.recordSize, firstId),
          count - first, failedFrom);
    }
    if (record::AllowsBatches(kind)) {
      return InsertSlices(db, record::BatchRows(kind, layout_, Record(first), firstId),
                          count - first, failedFrom);
    }
    for (uint32_t k = first; k < count; ++k) {
      const Statement insert = Insert(kind, firstId + (k - first), Record(k));
      if (!insert.complete) reason = "not run, cut: " + insert.text;
      if (!insert.complete || !db.Execute(insert.Sent().c_str(), insert.texts)) return false;
    }
    return true;
  }
  // The row stored under `id` reads back as `record` would be written.
  bool StoredAs(DbConnection& db, uint32_t id, const void* record) const {
    const Statement select = FormatStatement(db.dialect(), 8192, "select * from `%s` where `id` = %u",
                                             Name().c_str(), id);
    if (!select.complete || !db.OpenQuery(select.text.c_str()) || !db.MoveToFirstRow()) return false;
    std::vector<unsigned char> stored(write_.recordSize, 0);
    double value = 0.0;
    switch (write_.family) {
      case WriteFamily::kAlarm: alarm::ReadAlarmRow(db, stored.data(), value); break;
      case WriteFamily::kLog: log::ReadLogRecord(db, stored.data()); break;
      default:
        if (record::ReadRecord(db, layout_.columns, stored.data())) return false;
    }
    const Statement expected = Insert(db.kind(), id, record);
    const Statement found = Insert(db.kind(), id, stored.data());
    return expected.text == found.text && expected.texts == found.texts;
  }

 private:
  const FixedRecordInserts& Inserts() const {
    return write_.family == WriteFamily::kAlarm ? alarm::kInserts : log::kInserts;
  }

  const KeptWrite& write_;
  std::vector<uint32_t> info_;  // the DataTableInfo, aligned
  record::TableLayout layout_;
};

// Rolls the transaction back, keeping the database's reason.
ForwardOutcome Failed(DbConnection& db, std::string& reason) {
  const ForwardOutcome outcome =
      db.Unreachable() ? ForwardOutcome::kUnreachable : ForwardOutcome::kRefused;
  if (reason.empty()) reason = db.ErrorText();
  db.EndTransaction(false);
  db.SetAutocommit(true);
  return outcome;
}

}  // namespace

bool ReadForwardedSequence(DbConnection& db, const std::string& spoolId, uint64_t& sequence) {
  const Statement select = ForwardedSequenceSelect(db.dialect(), spoolId);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (db.OpenQuery(select.Sent().c_str(), select.texts)) {
      double forwarded = 0;
      if (db.MoveToFirstRow() && db.GetDouble(1, &forwarded, sizeof forwarded)) {
        sequence = static_cast<uint64_t>(forwarded);
        return true;
      }
      const Statement insert = ForwardedSequenceInsert(db.dialect(), spoolId);
      sequence = 0;
      return db.Execute(insert.Sent().c_str(), insert.texts);
    }
    if (db.Unreachable()) return false;
    // Another process may have made it meanwhile: the select decides.
    db.Execute(SequenceTableCreate(db.dialect()).text.c_str());
  }
  return false;
}

ForwardOutcome ForwardWrites(DbConnection& db, const std::string& spoolId, uint64_t sequence,
                             const std::vector<const KeptWrite*>& writes, std::string& reason) {
  reason.clear();
  if (!db.SetAutocommit(false)) return Failed(db, reason);
  std::map<std::string, uint32_t> nextIds;
  const std::vector<const KeptWrite*> grouped = GroupedByTable(writes);
  for (size_t i = 0; i < grouped.size();) {
    // Writes of one table kept one by one are stored together.
    KeptWrite merged;
    const KeptWrite* write = grouped[i++];
    if (i < grouped.size() && Mergeable(*write, *grouped[i])) {
      merged = *write;
      for (; i < grouped.size() && Mergeable(*write, *grouped[i]); ++i)
        merged.records += grouped[i]->records;
      write = &merged;
    }
    const Target target(*write);
    const std::string name = target.Name();
    uint32_t first = 0;
    if (write->sentCount > 0) {
      first = write->sentCount;
      for (uint32_t k = 0; k < write->sentCount && first != 0; ++k)
        if (!target.StoredAs(db, write->sentId + k, target.Record(k))) first = 0;
      if (db.Unreachable()) return Failed(db, reason);
    }
    auto next = nextIds.find(name);
    if (next == nextIds.end()) {
      if (!db.OpenQuery(LargestIdStatement(db.kind(), name, record::kLookupStatementSize)
                            .text.c_str()))
        return Failed(db, reason);
      uint32_t largest = 0;
      db.MoveToFirstRow();
      db.GetInteger(1, &largest, sizeof largest);
      next = nextIds.emplace(name, largest + 1).first;
    }
    if (!target.Store(db, first, next->second, reason)) return Failed(db, reason);
    next->second += write->RecordCount() - first;
  }
  const Statement update = ForwardedSequenceUpdate(db.dialect(), spoolId, sequence);
  if (!db.Execute(update.Sent().c_str(), update.texts) || !db.EndTransaction(true))
    return Failed(db, reason);
  db.SetAutocommit(true);
  return ForwardOutcome::kCommitted;
}

}  // namespace scadastore
