// The db* exports: configuration, last error, table lookup and removal.
#include "scadastore.h"

#include "core/common_statements.h"
#include "core/connection.h"
#include "core/connection_pool.h"
#include "core/export_call.h"
#include "core/format.h"
#include "core/host_order.h"
#include "core/last_error.h"
#include "core/settings.h"
#include "core/spool.h"

using namespace scadastore;

extern "C" {

uint32_t dbInitialize(const char* config) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    if (!ParseSettings(config, Settings())) return 1;
    ConnectionPool::Instance().Clear();
    ForgetSilentHosts();
    if (!StartSpool()) return 1;
    DbConnection probe;
    if (!probe.Open()) return 1;
    probe.Close();
    return 0;
  });
}

uint32_t dbUninitialize(void) { return 0; }

const char* dbGetLastError(void) { return LastErrorCopy(); }

unsigned char dbIsTableExist(CallerToken token, const char* tableName) {
  return Guarded<unsigned char>(0, [&]() -> unsigned char {
    if (token == nullptr || tableName == nullptr) return 0;
    DbConnection db;
    return db.TableExists(tableName) ? 1 : 0;
  });
}

uint32_t dbRemoveTable(CallerToken token, const char* tableName, char* errorText,
                       uint32_t errorTextSize) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    if (token == nullptr || tableName == nullptr) return 1;
    DbConnection db;
    if (!db.Open()) return 1;
    if (db.Execute(DropTableStatement(db.kind(), tableName).text.c_str())) return 0;
    if (errorText != nullptr) FormatBounded(errorText, errorTextSize, "%s", db.ErrorText());
    return 1;
  });
}

}  // extern "C"
