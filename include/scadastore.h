/*
 * scadastore: alarm, log and sample history of a supervisory host, kept in a
 * relational database reached through ODBC.
 *
 * Conventions of this interface:
 *
 *  1. Configure once with dbInitialize("DSN;user;password;kind") before any
 *     other call. The data source is declared to the ODBC driver manager
 *     (odbc.ini); the kind selects the SQL dialect:
 *       2 backtick quoting (MariaDB/MySQL); 1, 3, 6 bracket quoting;
 *       4, 5 double-quote quoting (4 also fetches first rows with NEXT).
 *  2. Every call opens its own connection and closes it before returning;
 *     nothing is kept between calls but the settings and the last error.
 *     Options may follow the kind: "pool" keeps idle connections for later
 *     calls (each call still starts as on a new connection), "login=SECONDS"
 *     bounds the connect (default 7), "timeout=SECONDS" bounds a statement's
 *     wait on a server that stopped answering (default 300, 0: no bound).
 *  3. The first argument of most exports is a CallerToken: any non-null
 *     pointer. It is checked, never read.
 *  4. Results: exports returning a code give 0 for success and 1 for failure;
 *     id and count exports give their value, 0 on failure, except
 *     sgGetRecordCount, which gives 0xFFFFFFFF on failure.
 *  5. On failure an export writes a coded text such as
 *     "[alm101] invalid parameter" that dbGetLastError returns; a success
 *     leaves the previous text in place. Database error texts are also
 *     delivered to a monitor process of the same user, if one is listening
 *     (scadastore-monitor); a delivery delays the call by 5 seconds at most.
 *  6. Texts are narrow, NUL-terminated, in the character set of the process's
 *     LC_CTYPE locale (UTF-8 under the C locale). Fixed-width text fields hold
 *     at most their width less one byte.
 *  7. Blocks handed out by the library (almGetAlarmByQuery, logGetLogByTime,
 *     sgGetRecord, sgGetAllRecordOfInterval, sgGetRecordBySQL) belong to the
 *     caller, who releases them: on Linux they come from malloc and go back
 *     with free; on Windows they come from the process heap and go back with
 *     HeapFree(GetProcessHeap(), 0, block). An empty result hands out a null
 *     pointer and size 0.
 *  8. Records have a fixed little-endian binary layout, asserted below, the
 *     same in 32-bit and 64-bit programs.
 *     Several records in one buffer stand back to back without padding.
 *  9. Calls may run on several threads at once; dbInitialize must not run
 *     concurrently with any other call.
 * 10. Text values (record fields, the station and tag lists of a query) are
 *     sent as bound parameters, never inside the statement, and stored exactly
 *     as given; error texts show them between single quotes with quotes
 *     doubled. Under kind 2 they are converted to UTF-8 first; one that is not
 *     valid in the host's character set is refused. Table names and the
 *     caller's own statements are used as given.
 * 11. A select, update or delete whose text does not fit its fixed buffer is
 *     not run; the export fails naming the cut statement. A result block whose
 *     size would not fit 32 bits fails with "failed to alloc memory".
 */
#ifndef SCADASTORE_H
#define SCADASTORE_H

#include <stddef.h>
#include <stdint.h>

/* The release; CMake reads the project version from these lines. */
#define SCADASTORE_VERSION_MAJOR 0
#define SCADASTORE_VERSION_MINOR 2
#define SCADASTORE_VERSION_PATCH 0
#define SCADASTORE_VERSION "0.2.0"

#ifdef __cplusplus
extern "C" {
#endif

/* Windows: scadastore.dll exports these cdecl functions under their plain
 * names (no decoration), for hosts that link the import library or find
 * them with GetProcAddress. */
#if defined(_WIN32)
#define SCADASTORE_API
#elif defined(SCADASTORE_BUILDING)
#define SCADASTORE_API __attribute__((visibility("default")))
#else
#define SCADASTORE_API
#endif

typedef void* CallerToken;

/* ---- Records ---------------------------------------------------------- */

#pragma pack(push, 4)
/* One alarm, 364 bytes. */
typedef struct AlarmRecord {
  uint32_t id;            /* assigned by almSetAlarm; ignored on input */
  char station[32];
  char tag[32];
  uint32_t tagtype;       /* 4: value is a one-byte flag at offset 72 */
  double value;
  uint32_t alarmtype;
  uint32_t confirmed;     /* output only: status != 0 */
  uint32_t arisetime;
  uint32_t ip;
  uint32_t status;        /* 0: not confirmed */
  char description[128];
  uint32_t millisecond;
  uint32_t recovertime;
  char batch[64];
  uint32_t alarmlevel;
  uint8_t reserved[60];   /* zero in every record the library returns */
} AlarmRecord;

/* Head of an alarm query. Four lists follow it without gaps, in this order:
 * typeCount int32 alarm types, stationCount 32-byte station names,
 * tagCount 32-byte tag names, pointCount PointKey entries. */
typedef struct AlarmQuery {
  uint32_t startTime;     /* inclusive */
  uint32_t endTime;       /* inclusive */
  uint32_t reserved;
  uint32_t filter;        /* list bit | (minimum level << 8) */
  uint32_t typeCount;
  uint32_t stationCount;
  uint32_t tagCount;
  uint32_t pointCount;
} AlarmQuery;
#pragma pack(pop)

/* List bits of AlarmQuery.filter; the first set in the order
 * types, stations, station tags, points decides. */
enum {
  SCADASTORE_FILTER_STATIONS = 2,
  SCADASTORE_FILTER_STATION_TAGS = 4, /* tags of the single listed station */
  SCADASTORE_FILTER_ALARM_TYPES = 8,
  SCADASTORE_FILTER_POINTS = 16
};

#pragma pack(push, 2)
/* One monitored point of a query's point list, 66 bytes. */
typedef struct PointKey {
  char station[32];
  char tag[32];
  uint16_t tagtype;
} PointKey;
#pragma pack(pop)

#pragma pack(push, 1)
/* One log entry, 914 bytes; ip stands at the unaligned offset 458. */
typedef struct LogRecord {
  uint32_t id;            /* assigned by logSetLog; ignored on input */
  uint32_t logtime;
  uint32_t millisecond;
  uint32_t logtype;
  char source[64];
  char loginfo[250];
  char operator_[32];
  char monitor[32];
  char logverify[64];
  uint32_t ip;
  char ackinfo[256];      /* the column holds 250 characters */
  char batch[64];
  char rsvd[128];         /* never written; read back as stored */
  uint8_t reserved[4];    /* never touched */
} LogRecord;

/* Value types of a data table column. */
enum {
  SCADASTORE_VALUE_FLOAT = 3,    /* double, 8 bytes in a record */
  SCADASTORE_VALUE_INTEGER = 4,  /* int32, 4 bytes; stored as 1 or 0 */
  SCADASTORE_VALUE_TEXT = 12     /* 256-byte text field; varchar(64) */
  /* any other code: a float column that carries no value (0 bytes) */
};

typedef struct ColumnInfo {
  uint32_t type;          /* a SCADASTORE_VALUE_* code */
  uint8_t reserved[64];
  char name[32];
} ColumnInfo;

/* A data table: its name, default statistic and value columns. A bare
 * table name may be passed wherever only the name is read. */
typedef struct DataTableInfo {
  char name[436];
  uint32_t statMode;      /* 1 max, 2 min, 4 or 5 sum, other: average */
  uint32_t reserved1;
  uint32_t recordSize;    /* bytes of one DataRecord of this table */
  uint32_t reserved2;
  uint32_t columnCount;
  ColumnInfo columns[];   /* columnCount entries */
} DataTableInfo;

/* One sample row: a 16-byte head and the values packed without alignment
 * in column order (float 8 bytes, integer 4, text 256, other codes 0). */
typedef struct DataRecord {
  uint32_t id;            /* assigned by the writers; ignored on input */
  uint32_t time;          /* seconds since 1970-01-01 00:00:00 UTC */
  uint32_t ms;
  uint32_t modify;        /* 1 once rewritten by sgModifyRecordByIndex */
  uint8_t values[];
} DataRecord;
#pragma pack(pop)

#if defined(__cplusplus)
#define SCADASTORE_STATIC_ASSERT static_assert
#else
#define SCADASTORE_STATIC_ASSERT _Static_assert
#endif
SCADASTORE_STATIC_ASSERT(sizeof(AlarmRecord) == 364, "AlarmRecord size");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, station) == 4, "station");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, tag) == 36, "tag");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, tagtype) == 68, "tagtype");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, value) == 72, "value");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, alarmtype) == 80, "alarmtype");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, confirmed) == 84, "confirmed");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, arisetime) == 88, "arisetime");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, ip) == 92, "ip");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, status) == 96, "status");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, description) == 100, "description");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, millisecond) == 228, "millisecond");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, recovertime) == 232, "recovertime");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, batch) == 236, "batch");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, alarmlevel) == 300, "alarmlevel");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, reserved) == 304, "reserved");
SCADASTORE_STATIC_ASSERT(sizeof(AlarmQuery) == 32, "AlarmQuery head size");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmQuery, endTime) == 4, "endTime");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmQuery, filter) == 12, "filter");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmQuery, typeCount) == 16, "typeCount");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmQuery, stationCount) == 20, "stationCount");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmQuery, tagCount) == 24, "tagCount");
SCADASTORE_STATIC_ASSERT(offsetof(AlarmQuery, pointCount) == 28, "pointCount");
SCADASTORE_STATIC_ASSERT(sizeof(PointKey) == 66, "PointKey size");
SCADASTORE_STATIC_ASSERT(offsetof(PointKey, tag) == 32, "PointKey tag");
SCADASTORE_STATIC_ASSERT(offsetof(PointKey, tagtype) == 64, "PointKey tagtype");
SCADASTORE_STATIC_ASSERT(sizeof(LogRecord) == 914, "LogRecord size");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, logtime) == 4, "logtime");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, millisecond) == 8, "log millisecond");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, logtype) == 12, "logtype");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, source) == 16, "source");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, loginfo) == 80, "loginfo");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, operator_) == 330, "operator");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, monitor) == 362, "monitor");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, logverify) == 394, "logverify");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, ip) == 458, "log ip");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, ackinfo) == 462, "ackinfo");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, batch) == 718, "log batch");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, rsvd) == 782, "rsvd");
SCADASTORE_STATIC_ASSERT(offsetof(LogRecord, reserved) == 910, "log reserved");
SCADASTORE_STATIC_ASSERT(sizeof(ColumnInfo) == 100, "ColumnInfo size");
SCADASTORE_STATIC_ASSERT(offsetof(ColumnInfo, type) == 0, "column type");
SCADASTORE_STATIC_ASSERT(offsetof(ColumnInfo, name) == 68, "column name");
SCADASTORE_STATIC_ASSERT(offsetof(DataTableInfo, statMode) == 436, "statMode");
SCADASTORE_STATIC_ASSERT(offsetof(DataTableInfo, recordSize) == 444, "recordSize");
SCADASTORE_STATIC_ASSERT(offsetof(DataTableInfo, columnCount) == 452, "columnCount");
SCADASTORE_STATIC_ASSERT(offsetof(DataTableInfo, columns) == 456, "columns");
SCADASTORE_STATIC_ASSERT(sizeof(DataTableInfo) == 456, "DataTableInfo head size");
SCADASTORE_STATIC_ASSERT(offsetof(DataRecord, time) == 4, "DataRecord time");
SCADASTORE_STATIC_ASSERT(offsetof(DataRecord, ms) == 8, "DataRecord ms");
SCADASTORE_STATIC_ASSERT(offsetof(DataRecord, modify) == 12, "DataRecord modify");
SCADASTORE_STATIC_ASSERT(offsetof(DataRecord, values) == 16, "DataRecord values");
SCADASTORE_STATIC_ASSERT(sizeof(DataRecord) == 16, "DataRecord head size");

/* ---- Configuration and tables ------------------------------------------ */

/* Stores "DSN;user;password;kind[;option...]" (fields cut to 63 characters,
 * kind 1..6; options as in convention 2, unknown ones ignored) and proves it
 * with a test connection. Disconnects the pooled connections. 0: stored and connected; 1: the text
 * was rejected (settings unchanged) or the connection failed (settings kept).
 * Writes no error text. Must not run concurrently with other calls. */
SCADASTORE_API uint32_t dbInitialize(const char* config);

/* Does nothing; returns 0. */
SCADASTORE_API uint32_t dbUninitialize(void);

/* The last failure text of any export; never null, empty before the first
 * failure. Owned by the library; valid for the life of the process. */
SCADASTORE_API const char* dbGetLastError(void);

/* 1 when a table of exactly this name exists in any schema the user sees;
 * 0 when it does not or the lookup failed. */
SCADASTORE_API unsigned char dbIsTableExist(CallerToken token, const char* tableName);

/* Drops a table. 0 dropped, 1 failure; on a failed statement the
 * connection's "ret: %d, msg: %s" text goes to errorText when given. */
SCADASTORE_API uint32_t dbRemoveTable(CallerToken token, const char* tableName,
                                      char* errorText, uint32_t errorTextSize);

/* ---- Alarms --------------------------------------------------------------- */

/* Creates the alarm table and its index when missing. 0: existed or
 * creation tried; 1: null argument or no connection. */
SCADASTORE_API uint32_t almEnsureTableExist(CallerToken token, const char* table);

/* Stores size / 364 records under consecutive new ids. */
SCADASTORE_API uint32_t almSetAlarm(CallerToken token, const char* table,
                                    const AlarmRecord* records, uint32_t size);

SCADASTORE_API uint32_t almConfirmAlarm(CallerToken token, const char* table,
                                        uint32_t id, uint32_t status);

SCADASTORE_API uint32_t almSetRecoverAlarm(CallerToken token, const char* table,
                                           uint32_t id, uint32_t recovertime);

/* Runs the caller's statement as given. */
SCADASTORE_API uint32_t almDeleteAlarm(CallerToken token, const char* table,
                                       const char* sql);

/* The largest id; 0 for an empty table and on failure. */
SCADASTORE_API uint32_t almGetLastID(CallerToken token, const char* table);

/* Fills the buffer with the alarms of lowest id; records after the last
 * one filled are zero. */
SCADASTORE_API uint32_t almGetAllAlarm(CallerToken token, const char* table,
                                       AlarmRecord* records, uint32_t size);

/* The alarms that the query selects, in id order, in a block (convention 7) the
 * caller frees; *size is in bytes (364 per record). No match: *records null
 * and *size 0. records and size must not be null. */
SCADASTORE_API uint32_t almGetAlarmByQuery(CallerToken token, const char* table,
                                           const AlarmQuery* query,
                                           AlarmRecord** records, uint32_t* size);

/* The number of alarms; 0 on failure. */
SCADASTORE_API uint32_t almGetAlarmCount(CallerToken token, const char* table);

/* ---- Logs ------------------------------------------------------------------ */

/* Creates the log table and its index when missing. 0: existed or
 * creation tried; 1: null argument or no connection. */
SCADASTORE_API uint32_t logEnsureTableExist(CallerToken token, const char* table);

/* Stores size / 914 records under consecutive new ids, one statement each;
 * a rejected record stops the call and keeps those before it. Texts
 * (quotes doubled) must fit a 1023-character statement. */
SCADASTORE_API uint32_t logSetLog(CallerToken token, const char* table,
                                  const LogRecord* records, uint32_t size);

/* Fills the buffer with the entries of lowest id; records after the last
 * one filled are zero. */
SCADASTORE_API uint32_t logGetAllLog(CallerToken token, const char* table,
                                     LogRecord* buffer, uint32_t size);

/* Entries with startTime <= logtime <= endTime (startTime < endTime), in id
 * order, in a block (convention 7) the caller frees; *size in bytes (914 per record).
 * No match: *records null and *size 0. records and size must not be null. */
SCADASTORE_API uint32_t logGetLogByTime(CallerToken token, const char* table,
                                        uint32_t startTime, uint32_t endTime,
                                        LogRecord** records, uint32_t* size);

/* The number of entries; 0 on failure. */
SCADASTORE_API uint32_t logGetLogCount(CallerToken token, const char* table);

/* The largest id; 0 for an empty table and on failure. */
SCADASTORE_API uint32_t logGetLastID(CallerToken token, const char* table);

/* Runs the caller's statement as given. */
SCADASTORE_API uint32_t logDeleteLog(CallerToken token, const char* table, const char* sql);

/* ---- Data records ----------------------------------------------------------- */

/* Creates the data table when missing; a failed statement's text goes to
 * errorText when given. */
SCADASTORE_API uint32_t sgEnsureTableExist(CallerToken token, const DataTableInfo* table,
                                           char* errorText, int errorTextSize);

SCADASTORE_API uint32_t sgSetRecord(CallerToken token, const DataTableInfo* table,
                                    const DataRecord* record, uint32_t size);

/* Text values one sgBatchSetRecord call binds at most (records times text
 * columns); a larger batch fails with "[rcd1704] failed to create sql". */
#define SCADASTORE_BATCH_TEXT_LIMIT 4096

/* Stores size / recordSize records in one statement (kinds 2, 3, 4, 5). */
SCADASTORE_API uint32_t sgBatchSetRecord(CallerToken token, const DataTableInfo* table,
                                         const void* buffer, uint32_t size);

SCADASTORE_API uint32_t sgModifyRecordByIndex(CallerToken token, const DataTableInfo* table,
                                              uint32_t index, const DataRecord* record,
                                              uint32_t size);

/* Runs the caller's statement as given. */
SCADASTORE_API uint32_t sgOperateRecord(CallerToken token, const DataTableInfo* table,
                                        const char* sql);

/* Empties the table, or runs the caller's delete statement when sql is set. */
SCADASTORE_API uint32_t sgDeleteRecord(CallerToken token, const DataTableInfo* table,
                                       const char* sql);

SCADASTORE_API uint32_t sgDeleteRecordByIndex(CallerToken token, const DataTableInfo* table,
                                              uint32_t index);

/* The whole table in id order, or the rows of the caller's select, in a
 * block (convention 7) the caller frees; *size in bytes. */
SCADASTORE_API uint32_t sgGetRecord(CallerToken token, const DataTableInfo* table,
                                    void** records, uint32_t* size, const char* sql);

/* Records with startTime <= time <= endTime, as sgGetRecord. */
SCADASTORE_API uint32_t sgGetAllRecordOfInterval(CallerToken token, const DataTableInfo* table,
                                                 uint32_t startTime, uint32_t endTime,
                                                 void** records, uint32_t* size);

/* The first record of the minute startTime .. startTime + 59. */
SCADASTORE_API uint32_t sgGetRecordByTime(CallerToken token, const DataTableInfo* table,
                                          uint32_t startTime, DataRecord* record,
                                          uint32_t size);

/* The id at a position counted from 1 in id order; 0 on failure. */
SCADASTORE_API uint32_t sgGetIdByIndex(CallerToken token, const DataTableInfo* table,
                                       uint32_t index);

SCADASTORE_API uint32_t sgGetRecordByIndex(CallerToken token, const DataTableInfo* table,
                                           uint32_t index, DataRecord* record,
                                           uint32_t size);

/* The number of records; 0xFFFFFFFF on failure. */
SCADASTORE_API uint32_t sgGetRecordCount(CallerToken token, const DataTableInfo* table);

/* Statistics of the float columns over [startTime, endTime): statKind 1 max,
 * 2 min, 3 avg, 4 sum, anything else the table's statMode. */
SCADASTORE_API uint32_t sgGetRecordStatValueOfInterval(CallerToken token,
                                                       const DataTableInfo* table,
                                                       uint32_t statKind, int32_t startTime,
                                                       int32_t endTime, DataRecord* record,
                                                       uint32_t size);

/* 24 hourly slots from startTime; size = 24 * recordSize. */
SCADASTORE_API uint32_t sgGetRecord_Day(CallerToken token, const DataTableInfo* table,
                                        uint32_t unused1, uint32_t startTime, uint32_t unused2,
                                        uint32_t unused3, uint32_t unused4, void* slots,
                                        uint32_t size);

/* One slot per day from startTime; size = days * recordSize. */
SCADASTORE_API uint32_t sgGetRecord_Month(CallerToken token, const DataTableInfo* table,
                                          uint32_t unused1, uint32_t startTime, uint32_t unused2,
                                          uint32_t unused3, int32_t days, void* slots,
                                          uint32_t size);

/* 12 monthly slots from startTime, month lengths of year; size = 12 * recordSize. */
SCADASTORE_API uint32_t sgGetRecord_Year(CallerToken token, const DataTableInfo* table,
                                         uint32_t unused1, uint32_t startTime, int32_t year,
                                         void* slots, uint32_t size);

/* Any select as a text table: offsets[r * fieldCount + f] locates field f of
 * row r (row 0 is the header) in text. Both blocks (convention 7)
 * belong to the caller. */
SCADASTORE_API uint32_t sgGetRecordBySQL(CallerToken token, const void* table, const char* sql,
                                         const char* timeColumns, uint32_t* rowCount,
                                         uint32_t* fieldCount, uint32_t** offsets, char** text,
                                         uint32_t* textLength);

#ifdef __cplusplus
}
#endif

#endif /* SCADASTORE_H */
