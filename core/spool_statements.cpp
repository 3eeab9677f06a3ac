#include "core/spool_statements.h"

namespace scadastore {
namespace {

constexpr const char* kSequenceTable = "scadastore_spool";

}  // namespace

Statement ForwardedSequenceSelect(SqlDialect dialect, const std::string& spoolId) {
  return FormatStatement(dialect, kStatementSize, "select `forwarded` from `%s` where `spool` = ",
                         kSequenceTable)
      .AppendText(spoolId);
}

Statement ForwardedSequenceInsert(SqlDialect dialect, const std::string& spoolId) {
  Statement insert = FormatStatement(
      dialect, kStatementSize, "insert into `%s` (`spool`, `forwarded`) values (", kSequenceTable);
  insert.AppendText(spoolId) += Statement{", 0)"};
  return insert;
}

Statement ForwardedSequenceUpdate(SqlDialect dialect, const std::string& spoolId,
                                  uint64_t sequence) {
  return FormatStatement(dialect, kStatementSize,
                         "update `%s` set `forwarded` = %llu where `spool` = ", kSequenceTable,
                         static_cast<unsigned long long>(sequence))
      .AppendText(spoolId);
}

Statement SequenceTableCreate(SqlDialect dialect) {
  return FormatStatement(dialect, kStatementSize,
                         "create table `%s` (`spool` varchar(32) not null primary key, "
                         "`forwarded` bigint not null)",
                         kSequenceTable);
}

}  // namespace scadastore
