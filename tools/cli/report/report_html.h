// The report's page: pure functions from figures to self-contained HTML
// (inline CSS and SVG, no script), so a browser needs nothing else to show
// or print it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/cli/output/output.h"
#include "tools/cli/times.h"

namespace scadastore::cli {

// Text as HTML content or attribute value.
std::string EscapeHtml(std::string_view text);

// The database's figures of one local hour; NaN when it has no samples.
struct HourFigures {
  Slot slot;
  double min, max, average;
};

struct Trend {
  std::string column, unit;  // unit: "" when the column name says it
  std::vector<HourFigures> hours;
};

// Hourly min-max band and average line over the period, hours labelled in
// local time. The line breaks where an hour has no samples.
std::string TrendChart(const Trend& trend);

struct AlarmSpan {
  std::string station, tag, description;
  uint32_t level, arise, recover;  // recover 0: still open
};

// One row per station/tag, a bar from raised to recovered (or the end of
// the period that `hours` cover) coloured by level; at most `maxRows` rows.
std::string AlarmTimeline(const std::vector<AlarmSpan>& alarms, const std::vector<Slot>& hours,
                          size_t maxRows);

// The rows of a result as an HTML table; `more` rows not shown are noted.
std::string HtmlTable(const ResultTable& table, size_t more = 0);

// A whole page: `title` is escaped, `body` is HTML already.
std::string HtmlPage(const std::string& title, const std::string& body);

}  // namespace scadastore::cli
