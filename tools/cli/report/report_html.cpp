#include "tools/cli/report/report_html.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>

#include <fmt/format.h>

namespace scadastore::cli {
namespace {

// Chart sizes in SVG units; each SVG scales to the width it is given.
constexpr double kTop = 8, kRight = 10, kAxis = 22;

// Time to x between a left margin for labels and the chart's width.
struct TimeScale {
  Slot period;
  double left, width;
  double X(uint32_t time) const {
    return left + (width - left - kRight) * (static_cast<double>(time) - period.start) /
                      (period.end - period.start);
  }
};

std::tm LocalTm(uint32_t seconds) {
  time_t value = seconds;
  std::tm local{};
  localtime_r(&value, &local);
  return local;
}

// Local hour labels at the hours' starts, with every hour labelled up to
// 25 of them (a day when the clocks go back) and every 2nd, 3rd, ... beyond.
// Slots of a range beyond 31 days are labelled at the first of each month.
std::string HourAxis(const std::vector<Slot>& hours, const TimeScale& scale, double top,
                     double bottom) {
  size_t step = 1;
  for (size_t candidate : {1, 2, 3, 6, 12, 24})
    if (step = candidate; hours.size() / candidate <= 25) break;
  bool manyDays = hours.size() > 25;
  bool months = scale.period.end - scale.period.start > 31u * 86400 + 3600;
  std::string svg;
  int lastMonth = -1;
  for (const Slot& hour : hours) {
    std::tm local = LocalTm(hour.start);
    std::string label;
    if (months) {
      if (local.tm_mon == lastMonth) continue;
      lastMonth = local.tm_mon;
      label = fmt::format("{:04}-{:02}", local.tm_year + 1900, local.tm_mon + 1);
    } else {
      if (local.tm_hour % step != 0) continue;
      label = manyDays && local.tm_hour == 0
                  ? fmt::format("{:02}-{:02}", local.tm_mon + 1, local.tm_mday)
                  : fmt::format("{:02}", local.tm_hour);
    }
    double x = scale.X(hour.start);
    svg += fmt::format(
        "<line class=\"grid\" x1=\"{0:.1f}\" y1=\"{1:.1f}\" x2=\"{0:.1f}\" y2=\"{2:.1f}\"/>"
        "<text class=\"hour\" x=\"{0:.1f}\" y=\"{3:.1f}\">{4}</text>\n",
        x, top, bottom, bottom + 14, label);
  }
  return svg;
}

Slot PeriodOf(const std::vector<Slot>& hours) { return {hours.front().start, hours.back().end}; }

std::string LevelColour(uint32_t level) {
  switch (level) {
    case 0: return "#8c8c8c";
    case 1: return "#d4a600";
    case 2: return "#e8730c";
    default: return "#c81e1e";
  }
}

}  // namespace

std::string EscapeHtml(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '<': escaped += "&lt;"; break;
      case '>': escaped += "&gt;"; break;
      case '&': escaped += "&amp;"; break;
      case '"': escaped += "&quot;"; break;
      case '\'': escaped += "&#39;"; break;
      default: escaped += c;
    }
  }
  return escaped;
}

std::string TrendChart(const Trend& trend) {
  constexpr double width = 600, left = 48, height = 170, bottom = height - kAxis;
  double low = INFINITY, high = -INFINITY;
  for (const HourFigures& hour : trend.hours)
    if (!std::isnan(hour.average)) low = std::min(low, hour.min), high = std::max(high, hour.max);
  if (!(low <= high)) low = 0, high = 1;  // no samples at all
  if (high - low < 1e-9) low -= 1, high += 1;
  auto y = [&](double value) { return bottom - (value - low) / (high - low) * (bottom - kTop); };
  std::vector<Slot> slots;
  for (const HourFigures& hour : trend.hours) slots.push_back(hour.slot);
  TimeScale scale{PeriodOf(slots), left, width};

  std::string svg = fmt::format(
      "<svg class=\"trend\" viewBox=\"0 0 {} {}\" role=\"img\"><title>{}</title>\n", width,
      height, EscapeHtml(trend.column));
  for (int tick = 0; tick <= 4; ++tick) {
    double value = low + (high - low) * tick / 4;
    svg += fmt::format(
        "<line class=\"grid\" x1=\"{0}\" y1=\"{1:.1f}\" x2=\"{2}\" y2=\"{1:.1f}\"/>"
        "<text class=\"value\" x=\"{3}\" y=\"{4:.1f}\">{5:.4g}</text>\n",
        left, y(value), width - kRight, left - 4, y(value) + 4, value);
  }
  svg += HourAxis(slots, scale, kTop, bottom);
  // Each run of hours with samples: its band, then its average line.
  for (size_t first = 0; first < trend.hours.size();) {
    if (std::isnan(trend.hours[first].average)) {
      ++first;
      continue;
    }
    size_t end = first;
    while (end < trend.hours.size() && !std::isnan(trend.hours[end].average)) ++end;
    std::string band, line;
    for (size_t h = first; h < end; ++h) {
      const HourFigures& hour = trend.hours[h];
      double x = (scale.X(hour.slot.start) + scale.X(hour.slot.end)) / 2;
      line += fmt::format("{:.1f},{:.1f} ", x, y(hour.average));
      band += fmt::format("{:.1f},{:.1f} ", x, y(hour.max));
    }
    for (size_t h = end; h-- > first;) {
      const HourFigures& hour = trend.hours[h];
      band += fmt::format("{:.1f},{:.1f} ",
                          (scale.X(hour.slot.start) + scale.X(hour.slot.end)) / 2, y(hour.min));
    }
    band.pop_back();
    line.pop_back();
    svg += fmt::format("<polygon class=\"band\" points=\"{}\"/>\n", band);
    svg += fmt::format("<polyline class=\"average\" points=\"{}\"/>\n", line);
    first = end;
  }
  return svg + "</svg>\n";
}

std::string AlarmTimeline(const std::vector<AlarmSpan>& alarms, const std::vector<Slot>& hours,
                          size_t maxRows) {
  std::map<std::string, std::vector<const AlarmSpan*>> points;
  for (const AlarmSpan& alarm : alarms) points[alarm.station + "/" + alarm.tag].push_back(&alarm);
  size_t rows = std::min(points.size(), maxRows);
  constexpr double width = 900, left = 150, rowHeight = 16;
  double bottom = kTop + rowHeight * static_cast<double>(rows);
  Slot period = PeriodOf(hours);
  TimeScale scale{period, left, width};

  std::string svg = fmt::format("<svg class=\"timeline\" viewBox=\"0 0 {} {:.0f}\">\n", width,
                                bottom + kAxis);
  svg += HourAxis(hours, scale, kTop, bottom);
  size_t row = 0;
  for (const auto& [point, spans] : points) {
    if (row == rows) break;
    double top = kTop + rowHeight * static_cast<double>(row++);
    svg += fmt::format("<text class=\"point\" x=\"{}\" y=\"{:.1f}\">{}</text>\n", left - 4,
                       top + 12, EscapeHtml(point));
    for (const AlarmSpan* alarm : spans) {
      uint32_t end = alarm->recover == 0 ? period.end : std::min(alarm->recover, period.end);
      double x = scale.X(std::max(alarm->arise, period.start));
      svg += fmt::format(
          "<rect class=\"alarm level{}{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" "
          "height=\"{}\" fill=\"{}\"><title>{} level {}: {}; {} to {}</title></rect>\n",
          alarm->level, alarm->recover == 0 ? " open" : "", x, top + 2,
          std::max(1.5, scale.X(end) - x), rowHeight - 4, LevelColour(alarm->level),
          EscapeHtml(point), alarm->level, EscapeHtml(alarm->description),
          FormatLocalTime(alarm->arise),
          alarm->recover == 0 ? std::string("still open") : FormatLocalTime(alarm->recover));
    }
  }
  svg += "</svg>\n<p class=\"legend\">";
  for (uint32_t level : {1, 2, 3})
    svg += fmt::format("<span style=\"background:{}\"></span>level {}{} ", LevelColour(level),
                       level, level == 3 ? " and above" : "");
  svg += "<span class=\"open\"></span>outlined: not recovered by the period's end</p>\n";
  if (points.size() > rows)
    svg += fmt::format("<p class=\"note\">{} more points with alarms are not drawn.</p>\n",
                       points.size() - rows);
  return svg;
}

std::string HtmlTable(const ResultTable& table, size_t more) {
  std::string html = "<table>\n<thead><tr>";
  for (const std::string& header : table.headers)
    html += "<th>" + EscapeHtml(header) + "</th>";
  html += "</tr></thead>\n<tbody>\n";
  for (const auto& row : table.rows) {
    html += "<tr>";
    for (const Cell& cell : row)
      html += fmt::format("<td{}>{}</td>", cell.is_number() ? " class=\"num\"" : "",
                          EscapeHtml(CellText(cell)));
    html += "</tr>\n";
  }
  html += "</tbody>\n</table>\n";
  if (more > 0)
    html += fmt::format("<p class=\"note\">{} more {} not shown.</p>\n", more,
                        more == 1 ? "row is" : "rows are");
  return html;
}

std::string HtmlPage(const std::string& title, const std::string& body) {
  return fmt::format(R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>{0}</title>
<style>
body {{ font: 14px/1.4 system-ui, sans-serif; color: #222; background: #fff; margin: 24px auto;
       max-width: 1100px; padding: 0 16px; }}
h1 {{ font-size: 22px; }} h2 {{ font-size: 18px; border-bottom: 1px solid #ccc; margin-top: 32px; }}
h3 {{ font-size: 14px; margin: 16px 0 2px; }}
svg {{ width: 100%; height: auto; display: block; }}
svg text {{ font: 11px sans-serif; fill: #444; }}
svg .value, svg .point {{ text-anchor: end; }} svg .hour {{ text-anchor: middle; }}
svg .grid {{ stroke: #e4e4e4; stroke-width: 1; }}
svg .band {{ fill: #9cc3e6; fill-opacity: 0.6; stroke: none; }}
svg .average {{ fill: none; stroke: #1f4e99; stroke-width: 2; }}
svg .open {{ stroke: #000; stroke-width: 1; }}
.legend span {{ display: inline-block; width: 12px; height: 10px; margin: 0 4px 0 12px; }}
.legend span.open {{ border: 1px solid #000; }}
table {{ border-collapse: collapse; font-size: 12px; margin: 4px 0; }}
th, td {{ border-bottom: 1px solid #ddd; padding: 2px 8px; text-align: left; vertical-align: top; }}
th {{ border-bottom: 2px solid #999; }} td.num {{ text-align: right; }}
.note {{ color: #555; font-style: italic; }}
.charts {{ display: grid; grid-template-columns: repeat(auto-fill, minmax(440px, 1fr));
          gap: 4px 24px; }}
.charts svg text {{ font-size: 13px; }}
.chart {{ break-inside: avoid; }}
@page {{ margin: 12mm; }}
@media print {{
  body {{ margin: 0; max-width: none; padding: 0; font-size: 11px; }}
  .charts {{ grid-template-columns: 1fr 1fr; }}
  h2, h3 {{ break-after: avoid; }} tr {{ break-inside: avoid; }}
  * {{ -webkit-print-color-adjust: exact; print-color-adjust: exact; }}
}}
</style>
</head>
<body>
<h1>{0}</h1>
{1}</body>
</html>
)",
                     EscapeHtml(title), body);
}

}  // namespace scadastore::cli
