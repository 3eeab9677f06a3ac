#include "tools/cli/output.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ostream>

#include <fmt/format.h>

#include "tools/cli/session.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

// Display width of UTF-8 text: one column per code point.
size_t DisplayWidth(const std::string& text) {
  return std::count_if(text.begin(), text.end(),
                       [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
}

void PrintAligned(const ResultTable& table, std::ostream& out) {
  std::vector<size_t> widths;
  for (const std::string& header : table.headers) widths.push_back(DisplayWidth(header));
  std::vector<std::vector<std::string>> texts;
  for (const auto& row : table.rows) {
    texts.emplace_back();
    for (size_t c = 0; c < row.size() && c < widths.size(); ++c) {
      texts.back().push_back(CellText(row[c]));
      widths[c] = std::max(widths[c], DisplayWidth(texts.back().back()));
    }
  }
  auto line = [&](const std::vector<std::string>& cells, const std::vector<Cell>* row) {
    std::string text;
    for (size_t c = 0; c < cells.size(); ++c) {
      std::string pad(widths[c] - DisplayWidth(cells[c]), ' ');
      bool right = row != nullptr && (*row)[c].is_number();
      text += (c ? "  " : "") + (right ? pad + cells[c] : cells[c] + pad);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out << text << '\n';
  };
  line(table.headers, nullptr);
  std::vector<std::string> rule;
  for (size_t width : widths) rule.emplace_back(width, '-');
  line(rule, nullptr);
  for (size_t r = 0; r < texts.size(); ++r) line(texts[r], &table.rows[r]);
}

std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos &&
      (text.empty() || (text.front() != ' ' && text.back() != ' ')))
    return text;
  std::string quoted = "\"";
  for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

}  // namespace

Format DefaultFormat() { return isatty(STDOUT_FILENO) ? Format::Table : Format::Csv; }

Format ParseFormat(const std::string& name) {
  if (name == "table") return Format::Table;
  if (name == "csv") return Format::Csv;
  if (name == "json") return Format::Json;
  throw CommandError("--format must be table, csv or json");
}

Cell TimeCell(uint32_t seconds, const OutputOptions& options) {
  if (options.epoch) return seconds;
  return FormatLocalTime(seconds);
}

std::string CellText(const Cell& cell) {
  if (cell.is_null()) return "";
  if (cell.is_string()) return cell.get<std::string>();
  if (cell.is_number_float()) return fmt::format("{}", cell.get<double>());
  return cell.dump();
}

void WriteCsv(const ResultTable& table, std::ostream& out) {
  auto line = [&](const auto& cells, auto text) {
    for (size_t c = 0; c < cells.size(); ++c) out << (c ? "," : "") << CsvField(text(cells[c]));
    out << '\n';
  };
  line(table.headers, [](const std::string& header) { return header; });
  for (const auto& row : table.rows) line(row, CellText);
}

void Print(const ResultTable& table, const OutputOptions& options, std::ostream& out) {
  if (table.headers.empty() && options.format != Format::Json) return;  // nothing selected
  switch (options.format) {
    case Format::Table:
      PrintAligned(table, out);
      break;
    case Format::Csv:
      WriteCsv(table, out);
      break;
    case Format::Json: {
      nlohmann::ordered_json rows = nlohmann::ordered_json::array();
      for (const auto& row : table.rows) {
        nlohmann::ordered_json object = nlohmann::ordered_json::object();
        for (size_t c = 0; c < row.size() && c < table.headers.size(); ++c)
          object[table.headers[c]] = row[c];
        rows.push_back(std::move(object));
      }
      out << rows.dump(2) << '\n';
      break;
    }
  }
}

}  // namespace scadastore::cli
