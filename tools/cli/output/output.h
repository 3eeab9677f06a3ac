// Results as rows of cells, printed as an aligned table, CSV or JSON.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace scadastore::cli {

enum class Format { Table, Csv, Json };

// A cell is a JSON value: a number, a text, or null for "no value".
using Cell = nlohmann::json;

struct ResultTable {
  std::vector<std::string> headers;
  std::vector<std::vector<Cell>> rows;
};

// Table on a terminal, CSV otherwise, unless the user chose.
Format DefaultFormat();
Format ParseFormat(const std::string& name);

// Times print as local date-times, or as seconds since 1970 under --epoch.
struct OutputOptions {
  Format format = Format::Table;
  bool epoch = false;
};

Cell TimeCell(uint32_t seconds, const OutputOptions& options);
std::string CellText(const Cell& cell);

// Writes rows as they come, so that memory does not grow with them. An
// aligned table is aligned per block of rows; CSV and JSON are written
// row by row.
class RowWriter {
 public:
  RowWriter(std::vector<std::string> headers, Format format, std::ostream& out);
  ~RowWriter();  // finishes when Finish was not called
  void Write(std::vector<Cell> row);
  void Finish();
  size_t rows() const { return rows_; }

 private:
  void Flush();
  std::vector<std::string> headers_;
  Format format_;
  std::ostream& out_;
  std::vector<std::vector<Cell>> block_;  // table rows not yet printed
  std::vector<size_t> widths_;
  size_t rows_ = 0;
  bool finished_ = false;
};

void Print(const ResultTable& table, const OutputOptions& options, std::ostream& out);

}  // namespace scadastore::cli
