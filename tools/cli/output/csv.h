// A small CSV reader: comma-separated fields, double-quoted fields with ""
// for a quote (they may span lines), CR LF or LF line ends.
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace scadastore::cli {

class CsvReader {
 public:
  explicit CsvReader(std::istream& in) : in_(in) {}

  // Reads the next record, skipping blank lines; false at the end. Throws
  // a CommandError naming the line for a malformed quoted field.
  bool Next(std::vector<std::string>& fields);
  // The line on which the record last read starts, counted from 1.
  size_t line() const { return recordLine_; }

 private:
  std::istream& in_;
  size_t lineNumber_ = 0;
  size_t recordLine_ = 0;
};

}  // namespace scadastore::cli
