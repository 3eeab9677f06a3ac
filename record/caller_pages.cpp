#include "record/caller_pages.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "core/settings.h"
#include "record/record_statements.h"

namespace scadastore::record {

namespace {

// Names no caller's table or column is expected to have: a select with a
// column of that name is read as given.
constexpr const char* kTable = "`#scadastore caller rows`";
constexpr const char* kNumber = "`#scadastore row`";

// A text that starts as a query ("select" or "with", also in parentheses):
// only such a text may run again.
bool StartsAsQuery(const char* sql) {
  while (*sql == '(' || std::isspace(static_cast<unsigned char>(*sql))) ++sql;
  auto startsWith = [sql](const char* word) {
    size_t i = 0;
    for (; word[i]; ++i)
      if (std::tolower(static_cast<unsigned char>(sql[i])) != word[i]) return false;
    return !std::isalnum(static_cast<unsigned char>(sql[i])) && sql[i] != '_';
  };
  return startsWith("select") || startsWith("with");
}

std::string Quoted(const char* name) {
  std::string quoted = "`";
  for (const char* c = name; *c; ++c) quoted += *c == '`' ? std::string("``") : std::string(1, *c);
  return quoted + '`';
}

}  // namespace

CallerPages::Kept CallerPages::Keep(const char* sql) {
  // Several statements are run once, as given, never inside another.
  if (!ReadsInPages(db_.kind()) || std::strchr(sql, ';') || !StartsAsQuery(sql)) return Kept::No;
  db_.DoNotPool();
  // Most selects fit in a page: they run once, and the driver holds at most
  // one row more. An explicit "limit" of the select outranks this one.
  const std::string limit = "set sql_select_limit=" + std::to_string(kFirstPageRows + 1);
  if (!db_.Execute(limit.c_str())) return Kept::No;
  // A select that fails here is not run again: the failure is the caller's.
  if (!db_.OpenQuery(sql, {}, DbConnection::Cursor::ForwardOnly)) return Kept::Failed;
  const int64_t rows = db_.ResultRows();
  if (db_.ColumnCount() == 0 || (rows >= 0 && rows <= kFirstPageRows)) return Kept::Whole;
  db_.CloseQuery();
  // A select that cannot be kept runs again as given, not limited.
  if (!db_.Execute("set sql_select_limit=default")) return Kept::Failed;
  // Rows are numbered in the order the select hands them over, its own
  // "order by" included. A select whose columns no table can hold (two of one
  // name, a name too long) and a user who may not create temporary tables
  // fail here before the select runs.
  const std::string create = std::string("create temporary table ") + kTable + " (" + kNumber +
                             " bigint unsigned auto_increment primary key) " + sql;
  if (!db_.TryOpenQuery(create.c_str(), {}, DbConnection::Cursor::ForwardOnly)) return Kept::No;
  kept_ = true;
  // Numbers come without gaps unless the server steps them (a cluster's
  // auto_increment_increment): then a page skips the rows read.
  const std::string check = std::string("select coalesce(max(") + kNumber +
                            "),0)=row_count() from " + kTable;
  const std::string described = std::string("select * from ") + kTable + " limit 0";
  uint32_t numbered = 0;
  if (!db_.OpenQuery(check.c_str()) || !db_.MoveNext() ||
      !db_.GetInteger(1, &numbered, sizeof numbered) || !db_.OpenQuery(described.c_str()))
    return Kept::Failed;
  numbered_ = numbered == 1;
  const int columns = db_.ColumnCount();
  for (int c = 2; c <= columns; ++c) {
    char name[1024] = {};
    int32_t type = 0, length = sizeof name;
    if (!db_.DescribeColumn(static_cast<uint16_t>(c), name, &type, &length)) return Kept::Failed;
    if (c > 2) columns_ += ',';
    columns_ += Quoted(name);
  }
  return OpenPage() ? Kept::Yes : Kept::Failed;
}

bool CallerPages::OpenPage() {
  page_rows_ = std::max(kFirstPageRows, page_start_ / 4);
  const std::string start = std::to_string(page_start_);
  std::string page = "select " + columns_ + " from " + kTable;
  if (numbered_) page += std::string(" where ") + kNumber + ">" + start;
  page += std::string(" order by ") + kNumber + " limit " + std::to_string(page_rows_);
  if (!numbered_) page += " offset " + start;
  failed_ = !db_.OpenQuery(page.c_str(), {}, DbConnection::Cursor::ForwardOnly);
  return !failed_;
}

bool CallerPages::NextPage(uint32_t rowsRead) {
  if (!kept_ || rowsRead - page_start_ < page_rows_) return false;
  db_.CloseQuery();
  page_start_ = rowsRead;
  return OpenPage();
}

bool CallerPages::MoveNext() {
  if (db_.MoveNext() || (NextPage(rows_read_) && db_.MoveNext())) {
    ++rows_read_;
    return true;
  }
  return false;
}

}  // namespace scadastore::record
