// A caller's own select read in pages where the driver would hold its whole
// result (ReadsInPages). The select first runs limited to one row more than a
// page; when it gives more, the server keeps its rows in a temporary table of
// the session, numbered in the order the select gives them, and the pages read
// that table by number, so the driver holds one page at a time. The table and
// the limit end with the session, which is never pooled after a caller's text.
#pragma once

#include <cstdint>
#include <string>

#include "core/connection.h"

namespace scadastore::record {

class CallerPages {
 public:
  explicit CallerPages(DbConnection& db) : db_(db) {}

  enum class Kept {
    // Not kept, with no result open and no error reported: the statement is
    // read as given (another kind, several statements, not a select, or a
    // select whose columns no table can hold).
    No,
    // Not kept: the select ran once as given, its whole result is open.
    Whole,
    // Kept; the first page is open, forward-only.
    Yes,
    // The select failed, or was kept but could not be read; the connection's
    // error text says why.
    Failed,
  };
  Kept Keep(const char* sql);

  // Opens the page after `rowsRead` rows, where the open page was full.
  // False at the end of the rows, or when the page failed to open (failed()).
  bool NextPage(uint32_t rowsRead);
  // The next row: the driver's next row, across pages when the rows are kept.
  bool MoveNext();
  bool failed() const { return failed_; }
  DbConnection& db() { return db_; }

 private:
  bool OpenPage();

  DbConnection& db_;
  bool kept_ = false;
  bool failed_ = false;
  // Numbered 1, 2, ... without gaps, so that a page starts after the number
  // of the rows read, not by skipping them.
  bool numbered_ = false;
  std::string columns_;  // the select's columns, quoted, in its order
  uint32_t page_start_ = 0;
  uint32_t page_rows_ = 0;  // rows the open page may hold
  uint32_t rows_read_ = 0;
};

}  // namespace scadastore::record
