#include "core/fixed_record_exports.h"

#include "core/batch_insert.h"
#include "core/insert_retry.h"
#include "core/spool_write.h"

namespace scadastore {
namespace {

// Column 1 of the one row of `select`; getField where the export has that
// message, else the value as a NULL left it (0).
uint32_t SingleValueExport(const ExportCode& code, CallerToken token, const char* table,
                           Statement (*select)(DbKind, const std::string&)) {
  return RunExport(code, [&](ExportCall& call) -> uint32_t {
    if (!token || !table) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(select(call.kind(), table))) return call.failure();
    uint32_t value = 0;
    if (!ReadSingleInteger(call.db(), value) && code.serials.getField != 0)
      return call.FailField(1);
    return value;
  });
}

Statement LargestId(DbKind kind, const std::string& table) {
  return LargestIdStatement(kind, table);
}

}  // namespace

uint32_t EnsureTableExport(CallerToken token, const char* table, TableStatement create,
                           const char* timeColumn) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    if (!token || !table) return 1;
    return EnsureTableExists(table, create, timeColumn) ? 0 : 1;
  });
}

uint32_t LargestIdExport(const ExportCode& code, CallerToken token, const char* table) {
  return SingleValueExport(code, token, table, LargestId);
}

uint32_t CountExport(const ExportCode& code, CallerToken token, const char* table) {
  return SingleValueExport(code, token, table, CountStatement);
}

uint32_t CallerStatementExport(const ExportCode& code, CallerToken token, const char* table,
                               const char* sql) {
  return RunExport(code, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !sql) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    return call.ExecuteCallerText(sql) ? 0 : call.failure();
  });
}

uint32_t WriteRecordsExport(const ExportCode& code, CallerToken token, const char* table,
                            const void* records, uint32_t size, uint32_t recordSize,
                            uint32_t largestIdBuffer, const FixedRecordInserts& inserts) {
  return RunExport(code, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !records || size < recordSize) return call.InvalidParameter();
    const auto* bytes = static_cast<const unsigned char*>(records);
    const uint32_t count = size / recordSize;
    const auto kept = [&] {
      return KeptWrite{std::strcmp(code.family, "alm") == 0 ? WriteFamily::kAlarm
                                                            : WriteFamily::kLog,
                       table, recordSize,
                       std::string(reinterpret_cast<const char*>(bytes), size_t{count} * recordSize)};
    };
    return WriteOrKeep(call, kept, [&](WriteProgress& progress) -> uint32_t {
      if (!call.Open()) return call.failure();
      uint32_t k = 0;  // stored records stay; a retry goes on from the refused one
      return InsertWithFreshIds(call, [&] {
        // The max(id) result stays open beside the inserts.
        if (!call.Query(LargestIdStatement(call.kind(), table, largestIdBuffer))) return false;
        uint32_t id = 0;
        if (!ReadSingleInteger(call.db(), id)) {
          progress.answerLost = true;
          return true;
        }
        if (count - k > UINT32_MAX - id) {  // ids end at 4294967295
          call.InvalidParameter();
          return false;
        }
        // Several records go in one transaction first, unless one of them
        // would be cut alone. When that fails otherwise than for want of the
        // server, they are written one by one, so that those before a refused
        // one stay stored as they always did.
        const DbKind kind = call.kind();
        const unsigned char* rest = bytes + size_t{k} * recordSize;
        if (count - k > 1 &&
            WholeInserts(inserts, kind, table, rest, count - k, recordSize, id + 1) == count - k) {
          progress = {k, count - k, id + 1};
          uint32_t failedFrom = 0;
          if (InsertAllOrNone(call.db(),
                              FixedRecordRows(inserts, kind, table, rest, recordSize, id + 1),
                              count - k, failedFrom))
            k = count;
          else if (call.db().Unreachable())
            return call.FailExecution(inserts.single(kind, table, id + 1 + failedFrom,
                                                     rest + size_t{failedFrom} * recordSize));
        }
        for (; k < count; ++k, ++id) {
          progress = {k, 1, id + 1};
          if (!call.Execute(inserts.single(kind, table, id + 1, bytes + size_t{k} * recordSize)))
            return false;
        }
        progress = {count, 0, 0};
        return true;
      }) ? 0 : call.failure();
    });
  });
}

}  // namespace scadastore
