#include "tools/cli/output/output.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ostream>

#include <fmt/format.h>

#include "tools/cli/database/session.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

// Display width of UTF-8 text: one column per code point.
size_t DisplayWidth(const std::string& text) {
  return std::count_if(text.begin(), text.end(),
                       [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
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

RowWriter::RowWriter(std::vector<std::string> headers, Format format, std::ostream& out)
    : headers_(std::move(headers)), format_(format), out_(out) {
  for (const std::string& header : headers_) widths_.push_back(DisplayWidth(header));
  if (format_ == Format::Csv) {
    for (size_t c = 0; c < headers_.size(); ++c) out_ << (c ? "," : "") << CsvField(headers_[c]);
    out_ << '\n';
  } else if (format_ == Format::Json) {
    out_ << '[';
  }
}

RowWriter::~RowWriter() {
  if (!finished_) Finish();
}

void RowWriter::Write(std::vector<Cell> row) {
  ++rows_;
  switch (format_) {
    case Format::Csv:
      for (size_t c = 0; c < row.size(); ++c) out_ << (c ? "," : "") << CsvField(CellText(row[c]));
      out_ << '\n';
      break;
    case Format::Json: {
      nlohmann::ordered_json object = nlohmann::ordered_json::object();
      for (size_t c = 0; c < row.size() && c < headers_.size(); ++c) object[headers_[c]] = row[c];
      out_ << (rows_ > 1 ? ",\n  " : "\n  ") << object.dump();
      break;
    }
    case Format::Table:
      block_.push_back(std::move(row));
      if (block_.size() == 1000) Flush();
      break;
  }
}

void RowWriter::Flush() {
  // Widths only grow, so that later blocks stay aligned with earlier ones
  // wherever their values allow.
  for (const auto& row : block_)
    for (size_t c = 0; c < row.size() && c < widths_.size(); ++c)
      widths_[c] = std::max(widths_[c], DisplayWidth(CellText(row[c])));
  auto line = [&](const std::vector<std::string>& cells, const std::vector<Cell>* row) {
    std::string text;
    for (size_t c = 0; c < cells.size() && c < widths_.size(); ++c) {
      std::string pad(widths_[c] - std::min(widths_[c], DisplayWidth(cells[c])), ' ');
      bool right = row != nullptr && (*row)[c].is_number();
      text += (c ? "  " : "") + (right ? pad + cells[c] : cells[c] + pad);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out_ << text << '\n';
  };
  if (rows_ == block_.size()) {  // the first block carries the header
    line(headers_, nullptr);
    std::vector<std::string> rule;
    for (size_t width : widths_) rule.emplace_back(width, '-');
    line(rule, nullptr);
  }
  for (const auto& row : block_) {
    std::vector<std::string> texts;
    for (const Cell& cell : row) texts.push_back(CellText(cell));
    line(texts, &row);
  }
  block_.clear();
}

void RowWriter::Finish() {
  finished_ = true;
  if (format_ == Format::Table && (!block_.empty() || rows_ == 0)) Flush();
  if (format_ == Format::Json) out_ << (rows_ ? "\n]\n" : "]\n");
  out_.flush();
}

void Print(const ResultTable& table, const OutputOptions& options, std::ostream& out) {
  RowWriter writer(table.headers, options.format, out);
  for (const auto& row : table.rows) writer.Write(row);
  writer.Finish();
}

}  // namespace scadastore::cli
