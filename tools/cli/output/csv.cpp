#include "tools/cli/output/csv.h"

#include <fmt/format.h>

#include "tools/cli/database/session.h"

namespace scadastore::cli {

bool CsvReader::Next(std::vector<std::string>& fields) {
  std::string line;
  do {
    if (!std::getline(in_, line)) return false;
    ++lineNumber_;
    if (!line.empty() && line.back() == '\r') line.pop_back();
  } while (line.empty());
  recordLine_ = lineNumber_;
  fields.assign(1, "");
  auto fail = [this](const char* problem) {
    throw CommandError(fmt::format("line {}: {}", recordLine_, problem));
  };
  bool quoted = false, afterQuote = false;
  for (size_t i = 0;; ++i) {
    if (i == line.size()) {
      if (!quoted) break;
      // A quoted field goes on on the next line.
      if (!std::getline(in_, line)) fail("a quoted field is not closed");
      ++lineNumber_;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      fields.back() += '\n';
      i = static_cast<size_t>(-1);
      continue;
    }
    char c = line[i];
    if (quoted) {
      if (c != '"') fields.back() += c;
      else if (i + 1 < line.size() && line[i + 1] == '"') fields.back() += line[++i];
      else quoted = false, afterQuote = true;
    } else if (c == ',') {
      fields.emplace_back();
      afterQuote = false;
    } else if (afterQuote) {
      fail("text after a closing quote");
    } else if (c == '"' && fields.back().empty()) {
      quoted = true;
    } else {
      fields.back() += c;
    }
  }
  return true;
}

}  // namespace scadastore::cli
