#include "log/log_record.h"

#include <cstddef>

#include "core/bytes.h"

namespace scadastore::log {
namespace {

struct ColumnField {
  size_t offset;
  int32_t width;
  bool text;
};

#define NUMBER(field) {offsetof(LogRecord, field), sizeof(LogRecord::field), false}
#define TEXT(field) {offsetof(LogRecord, field), sizeof(LogRecord::field), true}

// In table column order, column 1 first.
constexpr ColumnField kColumns[] = {
    NUMBER(id),   NUMBER(logtime),  NUMBER(millisecond), NUMBER(logtype),   TEXT(source),
    TEXT(loginfo), TEXT(operator_), TEXT(monitor),       TEXT(logverify),   NUMBER(ip),
    TEXT(ackinfo), TEXT(batch),     TEXT(rsvd)};

#undef NUMBER
#undef TEXT

}  // namespace

void ReadLogRecord(DbConnection& db, void* record) {
  uint16_t column = 1;
  for (const ColumnField& field : kColumns) {
    unsigned char* target = BytesAt(record, field.offset);
    if (field.text)
      db.GetString(column, reinterpret_cast<char*>(target), field.width);
    else
      db.GetInteger(column, target, field.width);
    ++column;
  }
}

bool Writable(const void* record) {
  for (const ColumnField& field : kColumns)
    if (field.text && field.offset != offsetof(LogRecord, rsvd) &&
        !Terminated(record, field.offset, static_cast<size_t>(field.width)))
      return false;
  return true;
}

}  // namespace scadastore::log
