// Local calendar time of the process (TZ).
#pragma once

#include <cstdint>
#include <ctime>

namespace scadastore {

bool ToLocalTime(int64_t seconds, std::tm& out);

}  // namespace scadastore
