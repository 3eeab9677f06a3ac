// The name of the index on a table's time column.
#pragma once

#include <string>
#include <string_view>

namespace scadastore {

// "<prefix>_time_<hash>": the table name's first letters, digits and
// underscores (at most 40) and 8 hex digits of a hash of the whole name.
// Never longer than 54 bytes, so that PostgreSQL (63) and MariaDB (64) keep
// it whole and two long names that share their start still differ; plain
// ASCII, so that no multibyte character is cut.
std::string TimeIndexName(std::string_view table);

}  // namespace scadastore
