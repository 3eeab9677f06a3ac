#include "alarm/alarm_record.h"

#include <cmath>
#include <cstddef>

#include "core/bytes.h"

namespace scadastore::alarm {

double StoredValue(const void* record) {
  if (LoadField<uint32_t>(record, offsetof(AlarmRecord, tagtype)) == SCADASTORE_TAGTYPE_FLAG)
    return LoadField<uint8_t>(record, offsetof(AlarmRecord, value));
  return LoadField<double>(record, offsetof(AlarmRecord, value));
}

bool Writable(const void* record) {
  return std::isfinite(static_cast<float>(StoredValue(record))) &&
         Terminated(record, offsetof(AlarmRecord, station), sizeof(AlarmRecord::station)) &&
         Terminated(record, offsetof(AlarmRecord, tag), sizeof(AlarmRecord::tag)) &&
         Terminated(record, offsetof(AlarmRecord, description), sizeof(AlarmRecord::description)) &&
         Terminated(record, offsetof(AlarmRecord, batch), sizeof(AlarmRecord::batch));
}

void ReadAlarmRow(DbConnection& db, void* record, double& value) {
  auto text = [&](uint16_t column, size_t offset, int32_t width) {
    db.GetString(column, reinterpret_cast<char*>(BytesAt(record, offset)), width);
  };
  auto integer = [&](uint16_t column, size_t offset) {
    db.GetInteger(column, BytesAt(record, offset), sizeof(uint32_t));
  };
  integer(1, offsetof(AlarmRecord, id));
  text(2, offsetof(AlarmRecord, station), sizeof(AlarmRecord::station));
  text(3, offsetof(AlarmRecord, tag), sizeof(AlarmRecord::tag));
  integer(4, offsetof(AlarmRecord, tagtype));
  integer(5, offsetof(AlarmRecord, alarmtype));
  db.GetDouble(6, &value, sizeof value);
  if (LoadField<uint32_t>(record, offsetof(AlarmRecord, tagtype)) == SCADASTORE_TAGTYPE_FLAG)
    StoreField<uint8_t>(record, offsetof(AlarmRecord, value), value > 0.0 ? 1 : 0);
  else
    StoreField<double>(record, offsetof(AlarmRecord, value), value);
  integer(7, offsetof(AlarmRecord, status));
  const bool confirmed = LoadField<uint32_t>(record, offsetof(AlarmRecord, status)) != 0;
  StoreField<uint32_t>(record, offsetof(AlarmRecord, confirmed), confirmed ? 1 : 0);
  integer(8, offsetof(AlarmRecord, recovertime));
  integer(9, offsetof(AlarmRecord, arisetime));
  integer(10, offsetof(AlarmRecord, ip));
  text(11, offsetof(AlarmRecord, description), sizeof(AlarmRecord::description));
  integer(12, offsetof(AlarmRecord, millisecond));
  text(13, offsetof(AlarmRecord, batch), sizeof(AlarmRecord::batch));
  integer(14, offsetof(AlarmRecord, alarmlevel));
}

}  // namespace scadastore::alarm
