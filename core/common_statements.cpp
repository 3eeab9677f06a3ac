#include "core/common_statements.h"

#include "core/time_index.h"

namespace scadastore {

Statement CreateIndexStatement(DbKind kind, const std::string& table, uint32_t bufferSize) {
  return FormatStatement(DialectOf(kind), bufferSize, "create index `idx_%s` on `%s` (`id`)",
                         table.c_str(), table.c_str());
}

Statement CreateTimeIndexStatement(DbKind kind, const std::string& table, const char* column) {
  constexpr uint32_t kBufferSize = 1024;
  return FormatStatement(DialectOf(kind), kBufferSize, "create index `%s` on `%s` (`%s`)",
                         TimeIndexName(table).c_str(), table.c_str(), column);
}

Statement LargestIdStatement(DbKind kind, const std::string& table, uint32_t bufferSize) {
  return FormatStatement(DialectOf(kind), bufferSize, "select max(`id`) from `%s`", table.c_str());
}

Statement CountStatement(DbKind kind, const std::string& table) {
  return FormatStatement(DialectOf(kind), kStatementSize, "select count(*) from `%s`",
                         table.c_str());
}

Statement SelectAllStatement(DbKind kind, const std::string& table, uint32_t bufferSize) {
  return FormatStatement(DialectOf(kind), bufferSize, "select * from `%s` order by `id` asc",
                         table.c_str());
}

Statement DeleteByIdStatement(DbKind kind, const std::string& table, uint32_t id) {
  return FormatStatement(DialectOf(kind), kStatementSize, "delete from `%s` where `id`=%u",
                         table.c_str(), id);
}

Statement DropTableStatement(DbKind kind, const std::string& table) {
  return FormatStatement(DialectOf(kind), kStatementSize, "drop table `%s`", table.c_str());
}

Statement CreateFixedTableStatement(DbKind kind, const char* table, const char* backtickColumns) {
  constexpr uint32_t kCreateBufferSize = 1024;
  std::string columns = backtickColumns;
  for (size_t at = columns.find(" integer"); at != std::string::npos;
       at = columns.find(" integer", at + 1))
    columns.replace(at, 8, UnsignedType(kind));
  const std::string backtickTemplate = "create table `%s` (" + columns + ")%s%s";
  return FormatStatement(DialectOf(kind), kCreateBufferSize, backtickTemplate.c_str(), table,
                         HasTableOptions(kind) ? " " : "", TableOptions(kind));
}

const char* TableOptions(DbKind kind) {
  return HasTableOptions(kind) ? "ENGINE=InnoDB DEFAULT CHARSET=utf8 COLLATE=utf8_nopad_bin" : "";
}

const char* UnsignedType(DbKind kind) { return WidensUnsigned(kind) ? " bigint" : " integer"; }

}  // namespace scadastore
