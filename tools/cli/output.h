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

void Print(const ResultTable& table, const OutputOptions& options, std::ostream& out);
void WriteCsv(const ResultTable& table, std::ostream& out);

}  // namespace scadastore::cli
