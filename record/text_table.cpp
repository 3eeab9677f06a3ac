#include "record/text_table.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "core/bytes.h"
#include "core/format.h"
#include "platform/local_time.h"

namespace scadastore::record {
namespace {

constexpr size_t kMaxTimeColumns = 16;
constexpr size_t kMaxTimeColumnName = 63;
constexpr uint64_t kTextBytesPerRow = 512;
// Times outside this window are shown as the stored number.
constexpr uint32_t kFirstDateTime = 1262275201;
constexpr uint32_t kDateTimeEnd = 2051193600;

bool IsSkippedName(const std::string& name) {
  return name == "id" || name == "ms" || name == "modify";
}

}  // namespace

std::vector<std::string> CutTimeColumnList(const char* list) {
  std::vector<std::string> names;
  if (list == nullptr) return names;
  std::string_view rest(list);
  while (names.size() < kMaxTimeColumns) {
    size_t separator = rest.find(';');
    std::string_view piece = rest.substr(0, separator);
    if (!piece.empty() && piece.size() <= kMaxTimeColumnName) names.emplace_back(piece);
    if (separator == std::string_view::npos) break;
    rest.remove_prefix(separator + 1);
  }
  return names;
}

std::vector<CellKind> ClassifyColumns(const std::vector<std::string>& columnNames,
                                      const std::vector<std::string>& timeColumns) {
  std::vector<CellKind> kinds;
  std::vector<bool> nameTaken(timeColumns.size(), false);
  for (const std::string& name : columnNames) {
    bool listedTime = false;
    for (size_t i = 0; i < timeColumns.size() && !listedTime; ++i)
      if (!nameTaken[i] && timeColumns[i] == name) nameTaken[i] = listedTime = true;
    if (IsSkippedName(name))
      kinds.push_back(CellKind::Skipped);
    else if (listedTime || name == "time")
      kinds.push_back(CellKind::DateTime);
    else
      kinds.push_back(CellKind::Text);
  }
  return kinds;
}

bool FormatDateTimeCell(uint32_t seconds, char* cell, uint32_t capacity) {
  if (seconds < kFirstDateTime || seconds >= kDateTimeEnd) return false;
  std::tm local{};
  if (!ToLocalTime(static_cast<int64_t>(seconds), local)) return false;
  FormatBounded(cell, capacity, "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return true;
}

bool TextTableBuilder::AllocateOffsets(uint32_t rows, uint32_t columns) {
  const uint64_t bytes = (uint64_t{rows} + 1) * columns * sizeof(uint32_t);
  // A size past size_t (32-bit Windows) would wrap into a small block.
  if (bytes > SIZE_MAX) return false;
  offsets_ = AllocateResultBlock(static_cast<size_t>(bytes));
  return offsets_ != nullptr;
}

bool TextTableBuilder::AllocateText(uint32_t rows) {
  capacity_ = std::min((uint64_t{rows} + 1) * kTextBytesPerRow, text_limit_);
  text_ = AllocateResultBlock(capacity_);
  return text_ != nullptr;
}

TextTableBuilder::AppendResult TextTableBuilder::Append(std::string_view text) {
  // The block always keeps at least one zero byte after the content.
  if (capacity_ - used_ <= text.size()) {
    uint64_t doubled = std::min(capacity_ * 2, text_limit_);
    if (doubled - used_ <= text.size()) return AppendResult::TooLarge;
    ResultBlock grown = AllocateResultBlock(doubled);
    if (!grown) return AppendResult::NoMemory;
    std::memcpy(grown.get(), text_.get(), used_);
    text_ = std::move(grown);
    capacity_ = doubled;
  }
  std::memcpy(BytesAt(text_.get(), used_), text.data(), text.size());
  StoreField<uint32_t>(offsets_.get(), next_entry_++ * sizeof(uint32_t),
                       static_cast<uint32_t>(used_));
  used_ += text.size() + 1;
  return AppendResult::Appended;
}

}  // namespace scadastore::record
