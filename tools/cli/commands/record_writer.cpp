#include "tools/cli/commands/record_writer.h"

#include <algorithm>

namespace scadastore::cli {

size_t RecordsPerBatch(const DataTable& table) {
  // Longest value texts: "%.17g" of a double, 0 or 1, a quoted text.
  size_t rowText = 40, texts = 0;
  for (const Column& column : table.columns()) {
    rowText += column.type == SCADASTORE_VALUE_TEXT ? 258 : column.type == SCADASTORE_VALUE_INTEGER ? 3 : 26;
    texts += column.type == SCADASTORE_VALUE_TEXT;
  }
  // A statement binds at most SCADASTORE_BATCH_TEXT_LIMIT texts.
  const size_t limit =
      texts == 0 ? 5000 : std::clamp<size_t>(SCADASTORE_BATCH_TEXT_LIMIT / texts, 1, 5000);
  return std::clamp<size_t>(2'000'000 / rowText, 1, limit);
}

void StoreRecords(Session& session, const DataTable& table, const uint8_t* records, size_t count,
                  Progress& progress, size_t progressBase) {
  size_t step = session.CanBatch() ? RecordsPerBatch(table) : 1;
  uint32_t size = table.recordSize();
  for (size_t done = 0; done < count;) {
    size_t n = std::min(step, count - done);
    const uint8_t* first = records + done * size;
    uint32_t result =
        session.CanBatch()
            ? sgBatchSetRecord(session.Token(), table.info(), first, static_cast<uint32_t>(n * size))
            : sgSetRecord(session.Token(), table.info(), reinterpret_cast<const DataRecord*>(first),
                          size);
    if (result != 0) throw StoreError(done, dbGetLastError());
    done += n;
    progress.Update(progressBase + done);
  }
}

}  // namespace scadastore::cli
