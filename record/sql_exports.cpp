// sgGetRecordBySQL: any select as a text table.
#include <cstring>
#include <string>
#include <vector>

#include "core/export_call.h"
#include "record/caller_pages.h"
#include "record/text_table.h"
#include "scadastore.h"

using namespace scadastore;
using namespace scadastore::record;

namespace {

// Every column name and cell passes through one buffer of this size.
constexpr int32_t kCellBuffer = 256;

std::vector<std::string> ResultColumnNames(DbConnection& db, int columns) {
  std::vector<std::string> names;
  char name[kCellBuffer];
  for (int c = 1; c <= columns; ++c) {
    std::memset(name, 0, sizeof name);
    int32_t type = 0, length = kCellBuffer;
    db.DescribeColumn(static_cast<uint16_t>(c), name, &type, &length);
    names.emplace_back(name);
  }
  return names;
}

// A date-time cell, else whatever a second read of the column gives (the
// number on drivers that allow it, nothing on the others).
void ReadDateTimeCell(DbConnection& db, uint16_t column, char* cell) {
  uint32_t seconds = 0;
  db.GetInteger(column, &seconds, sizeof seconds);
  if (!FormatDateTimeCell(seconds, cell, kCellBuffer)) db.GetString(column, cell, kCellBuffer);
}

}  // namespace

extern "C" {

uint32_t sgGetRecordBySQL(CallerToken token, const void* table, const char* sql,
                          const char* timeColumns, uint32_t* rowCount, uint32_t* fieldCount,
                          uint32_t** offsets, char** text, uint32_t* textLength) {
  return RunExport(Export::kSgGetRecordBySQL, [&](ExportCall& call) -> uint32_t {
    // Every output is checked, also those an empty result leaves unwritten.
    if (!token || !table || !sql || !rowCount || !fieldCount || !offsets || !text || !textLength)
      return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    // Read once, forward-only: the blocks grow with the rows, as the driver
    // streams them or hands over its pages.
    DbConnection& db = call.db();
    CallerPages pages(db);
    auto openFailed = [&] { return call.Fail(Serial::kOpenTable, Statement{sql}); };
    switch (pages.Keep(sql)) {
      case CallerPages::Kept::No:
        if (!call.QueryCallerText(sql, DbConnection::Cursor::ForwardOnly)) return call.failure();
        break;
      case CallerPages::Kept::Failed: return openFailed();
      case CallerPages::Kept::Whole:
      case CallerPages::Kept::Yes: break;
    }
    int columns = db.ColumnCount();
    if (columns == 0 || !pages.MoveNext()) {
      if (pages.failed()) return openFailed();
      *text = nullptr;
      *textLength = 0;
      return 0;
    }

    // Room for the first row; both blocks double as the rows come.
    TextTableBuilder builder;
    if (!builder.AllocateOffsets(1, static_cast<uint32_t>(columns)))
      return call.Fail(Serial::kAllocMemory);
    if (!builder.AllocateText(1)) return call.Fail(Serial::kAllocMemory, 1);
    // Serial step of a failed append: the first when doubling is not enough,
    // the second when the allocation is refused.
    auto appended = [&](std::string_view piece, int tooLargeStep) {
      TextTableBuilder::AppendResult result = builder.Append(piece);
      if (result == TextTableBuilder::AppendResult::Appended) return true;
      bool tooLarge = result == TextTableBuilder::AppendResult::TooLarge;
      call.Fail(Serial::kAllocMemory, tooLarge ? tooLargeStep : tooLargeStep + 1);
      return false;
    };

    std::vector<std::string> names = ResultColumnNames(db, columns);
    std::vector<CellKind> kinds = ClassifyColumns(names, CutTimeColumnList(timeColumns));
    uint32_t kept = 0;
    for (int c = 0; c < columns; ++c) {
      if (kinds[c] == CellKind::Skipped) continue;
      if (!appended(names[c], 2)) return call.failure();
      ++kept;
    }

    char cell[kCellBuffer];
    uint32_t rows = 0;
    do {
      if (rows == UINT32_MAX || !builder.GrowOffsets(++rows)) return call.Fail(Serial::kAllocMemory);
      for (int c = 0; c < columns; ++c) {
        if (kinds[c] == CellKind::Skipped) continue;
        std::memset(cell, 0, sizeof cell);
        uint16_t column = static_cast<uint16_t>(c + 1);
        if (kinds[c] == CellKind::DateTime)
          ReadDateTimeCell(db, column, cell);
        else
          db.GetString(column, cell, kCellBuffer);
        if (!appended(cell, 4)) return call.failure();
      }
    } while (pages.MoveNext());
    if (pages.failed()) return openFailed();

    builder.Fit(rows);
    *rowCount = rows;
    *fieldCount = kept;
    *offsets = builder.ReleaseOffsets();
    *textLength = builder.text_length();
    *text = builder.ReleaseText();
    return 0;
  });
}

}  // extern "C"
