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
 *     wait on a server that stopped answering (default 300, 0: no bound),
 *     "spool=DIR" keeps the inserts of almSetAlarm, logSetLog, sgSetRecord
 *     and sgBatchSetRecord whose database cannot be reached on disk under
 *     DIR and forwards them later (a kept write returns 0), "spoolmax=MB"
 *     bounds it (default 1024).
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
/* The tag type whose value is a one-byte flag (0 or 1 when read back) at
 * SCADASTORE_FLAG_OFFSET, the first byte of AlarmRecord.value; the other
 * seven bytes of value carry nothing. */
#define SCADASTORE_TAGTYPE_FLAG 4
#define SCADASTORE_FLAG_OFFSET 72

/* One alarm, 364 bytes. */
typedef struct AlarmRecord {
  uint32_t id;            /* assigned by almSetAlarm; ignored on input */
  char station[32];
  char tag[32];
  uint32_t tagtype;       /* SCADASTORE_TAGTYPE_FLAG: value is a one-byte flag */
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

/* Value types of a data table column and their widths in a DataRecord. */
enum {
  SCADASTORE_VALUE_FLOAT = 3,    /* double */
  SCADASTORE_VALUE_INTEGER = 4,  /* int32; stored as 1 or 0 */
  SCADASTORE_VALUE_TEXT = 12     /* NUL-terminated text; the column is varchar(64) */
  /* any other code: a float column that carries no value (0 bytes) */
};
#define SCADASTORE_FLOAT_WIDTH 8u
#define SCADASTORE_INTEGER_WIDTH 4u
#define SCADASTORE_TEXT_WIDTH 256u
/* Bytes a value of this type takes in a DataRecord. */
#define SCADASTORE_VALUE_WIDTH(type)                                  \
  ((type) == SCADASTORE_VALUE_FLOAT     ? SCADASTORE_FLOAT_WIDTH      \
   : (type) == SCADASTORE_VALUE_INTEGER ? SCADASTORE_INTEGER_WIDTH    \
   : (type) == SCADASTORE_VALUE_TEXT    ? SCADASTORE_TEXT_WIDTH       \
                                        : 0u)

typedef struct ColumnInfo {
  uint32_t type;          /* a SCADASTORE_VALUE_* code */
  uint8_t reserved[64];
  char name[32];
} ColumnInfo;

/* A data table: its name, default statistic and value columns. A bare
 * table name may be passed wherever only the name is read. */
typedef struct DataTableInfo {
  char name[436];
  uint32_t statMode;      /* a SCADASTORE_STAT_* code; any other: average */
  uint32_t reserved1;
  uint32_t recordSize;    /* bytes of one DataRecord of this table */
  uint32_t reserved2;
  uint32_t columnCount;
  ColumnInfo columns[];   /* columnCount entries */
} DataTableInfo;

/* Statistic codes: the statKind of sgGetRecordStatValueOfInterval (1 to 4;
 * any other takes the table's statMode) and DataTableInfo.statMode. */
enum {
  SCADASTORE_STAT_MAX = 1,
  SCADASTORE_STAT_MIN = 2,
  SCADASTORE_STAT_AVERAGE = 3,
  SCADASTORE_STAT_SUM = 4,
  SCADASTORE_STAT_SUM_MODE = 5   /* statMode only: sums, as 4 */
};

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
SCADASTORE_STATIC_ASSERT(offsetof(AlarmRecord, value) == SCADASTORE_FLAG_OFFSET, "flag offset");
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
SCADASTORE_STATIC_ASSERT(sizeof(double) == SCADASTORE_FLOAT_WIDTH, "float width");
SCADASTORE_STATIC_ASSERT(sizeof(int32_t) == SCADASTORE_INTEGER_WIDTH, "integer width");

/* ---- Contracts ------------------------------------------------------------
 *
 * Each export below states its arguments, what it returns and the codes of
 * the texts it can write (convention 5). In every family serial 01 is
 * "invalid parameter" (a null pointer, a zero id or position, a size that
 * does not fit) and 02 "failed to open DSN: <dsn>"; the further messages are
 * "failed to open table: <statement>", "exec error: <driver text>, sql:
 * <statement>", "failed to get field <column>", "failed to alloc memory",
 * "failed to create sql: <statement>", "no record" and "invalid Norvak data
 * table". A code names one message of one export: grep it in the sources to
 * find where it is written. An update or delete that matches no row fails
 * with the export's exec-error code ("ret: 100, msg: "), except on MariaDB,
 * whose driver reports success.
 */

/* ---- Configuration and tables ------------------------------------------ */

/* Stores "DSN;user;password;kind[;option...]" (fields cut to 63 characters,
 * kind 1..6; options as in convention 2, unknown ones ignored) and proves it
 * with a test connection; disconnects the pooled connections. config is read
 * during the call only.
 * 0: stored and connected. 1: config null or rejected (settings unchanged),
 * or the connection failed (settings kept). Writes no error text. Must not
 * run concurrently with other calls. */
SCADASTORE_API uint32_t dbInitialize(const char* config);

/* Does nothing; 0. */
SCADASTORE_API uint32_t dbUninitialize(void);

/* The last failure text of any export, on any thread: never null, empty
 * before the first failure. Failing threads write it one whole text at a time
 * under a lock; the pointer is a copy of the calling thread's own, valid and
 * unchanged until that thread calls dbGetLastError again. Another thread's
 * failure may replace the text at any time: read it right after your own
 * failure. */
SCADASTORE_API const char* dbGetLastError(void);

/* 1 when a table of exactly this name (case-sensitive) exists in any schema
 * the user sees; 0 when it does not, token or tableName is null, or the
 * lookup failed. Writes no error text. */
SCADASTORE_API unsigned char dbIsTableExist(CallerToken token, const char* tableName);

/* Drops the table tableName.
 * 0: dropped. 1: token or tableName null, no connection, or the drop failed;
 * on a failed drop the connection's "ret: %d, msg: %s" text goes to
 * errorText (errorTextSize bytes, NUL-terminated) when it is not null.
 * Writes no error text of its own. */
SCADASTORE_API uint32_t dbRemoveTable(CallerToken token, const char* tableName,
                                      char* errorText, uint32_t errorTextSize);

/* ---- Alarms ----------------------------------------------------------------
 * table: the alarm table's name, at most 111 characters. */

/* Creates the alarm table and, except under kind 4, its indexes on id and
 * arisetime, when no table of that name exists (an existing one is not
 * compared).
 * 0: existed, or creation tried (a rejected statement is not reported).
 * 1: token or table null, or no connection. Writes no error text. */
SCADASTORE_API uint32_t almEnsureTableExist(CallerToken token, const char* table);

/* Stores size / 364 records (a remainder is ignored) under new ids, the
 * table's largest id plus 1, 2, ..., one insert each; records[k].id is not
 * read, all in one transaction first. A rejected insert stops the call and
 * keeps the records before it (they are then written one at a time).
 * 0: stored (also when the largest id could not be read: nothing written).
 * 1: [alm101] token, table or records null or size < 364; [alm102];
 * [alm103] the largest-id select failed; [alm104] an insert failed. */
SCADASTORE_API uint32_t almSetAlarm(CallerToken token, const char* table,
                                    const AlarmRecord* records, uint32_t size);

/* Sets status of the alarm with this id.
 * 0: set. 1: [alm501] token or table null, or id 0; [alm502];
 * [alm503] the update failed. */
SCADASTORE_API uint32_t almConfirmAlarm(CallerToken token, const char* table,
                                        uint32_t id, uint32_t status);

/* Sets recovertime of the alarm with this id.
 * 0: set. 1: [alm801] token or table null, or id 0; [alm802];
 * [alm803] the update failed. */
SCADASTORE_API uint32_t almSetRecoverAlarm(CallerToken token, const char* table,
                                           uint32_t id, uint32_t recovertime);

/* Runs the caller's statement sql as given (table is only checked).
 * 0: ran. 1: [alm601] token, table or sql null; [alm602];
 * [alm603] the statement failed. */
SCADASTORE_API uint32_t almDeleteAlarm(CallerToken token, const char* table,
                                       const char* sql);

/* The largest id; 0 for an empty table and on failure: [alm701] token or
 * table null; [alm702]; [alm703] the select failed; [alm704] its value
 * could not be read (column 1). */
SCADASTORE_API uint32_t almGetLastID(CallerToken token, const char* table);

/* Fills records (size bytes, size / 364 records) with the alarms of lowest
 * id, confirmed set from status; the bytes after the last record filled are
 * zero. A failure leaves the buffer as it was.
 * 0: filled. 1: [alm201] token, table or records null or size < 364;
 * [alm202]; [alm203] the select failed. */
SCADASTORE_API uint32_t almGetAllAlarm(CallerToken token, const char* table,
                                       AlarmRecord* records, uint32_t size);

/* The alarms that query selects (its head and the lists after it), in id
 * order, in a block (convention 7) the caller frees; *size in bytes (364
 * per record). *size is 0 from the start; no match: *records null.
 * 0: handed out. 1: [alm301] token, table, query, records or size null;
 * [alm302]; [alm303] the select failed or is cut (convention 11);
 * [alm304] no memory for the statement or the block. */
SCADASTORE_API uint32_t almGetAlarmByQuery(CallerToken token, const char* table,
                                           const AlarmQuery* query,
                                           AlarmRecord** records, uint32_t* size);

/* The number of alarms; 0 for an empty table and on failure: [alm401]
 * token or table null; [alm402]; [alm403] the select failed. */
SCADASTORE_API uint32_t almGetAlarmCount(CallerToken token, const char* table);

/* ---- Logs ------------------------------------------------------------------ */

/* Creates the log table and, except under kind 4, its indexes on id and
 * logtime, when no table of that name exists (an existing one is not
 * compared).
 * 0: existed, or creation tried (a rejected statement is not reported).
 * 1: token or table null, or no connection. Writes no error text. */
SCADASTORE_API uint32_t logEnsureTableExist(CallerToken token, const char* table);

/* Stores size / 914 records (a remainder is ignored) under new ids, the
 * table's largest id plus 1, 2, ..., one insert each; records[k].id and
 * rsvd are not read, all in one transaction first. A rejected insert stops
 * the call and keeps the records before it (they are then written one at a
 * time). Texts (quotes doubled) must fit a 1023-character statement.
 * 0: stored (also when the largest id could not be read: nothing written).
 * 1: [log101] token, table or records null or size < 914; [log102];
 * [log103] the largest-id select failed; [log104] an insert failed or did
 * not fit. */
SCADASTORE_API uint32_t logSetLog(CallerToken token, const char* table,
                                  const LogRecord* records, uint32_t size);

/* Fills buffer (size bytes, size / 914 records) with the entries of lowest
 * id; the bytes after the last record filled are zero. A failure leaves the
 * buffer as it was.
 * 0: filled. 1: [log201] token, table or buffer null or size < 914;
 * [log202]; [log203] the select failed. */
SCADASTORE_API uint32_t logGetAllLog(CallerToken token, const char* table,
                                     LogRecord* buffer, uint32_t size);

/* Entries with startTime <= logtime <= endTime, in id order, in a block
 * (convention 7) the caller frees; *size in bytes (914 per record). No
 * match: *records null and *size 0.
 * 0: handed out. 1: [log301] token, table, records or size null, or
 * startTime >= endTime; [log302]; [log303] the select failed or is cut;
 * [log304] no memory for the block. */
SCADASTORE_API uint32_t logGetLogByTime(CallerToken token, const char* table,
                                        uint32_t startTime, uint32_t endTime,
                                        LogRecord** records, uint32_t* size);

/* The number of entries; 0 for an empty table and on failure: [log401]
 * token or table null; [log402]; [log403] the select failed. */
SCADASTORE_API uint32_t logGetLogCount(CallerToken token, const char* table);

/* The largest id; 0 for an empty table and on failure: [log501] token or
 * table null; [log502]; [log503] the select failed; [log504] its value
 * could not be read (column 1). */
SCADASTORE_API uint32_t logGetLastID(CallerToken token, const char* table);

/* Runs the caller's statement sql as given (table is only checked).
 * 0: ran. 1: [log601] token, table or sql null; [log602];
 * [log603] the statement failed. */
SCADASTORE_API uint32_t logDeleteLog(CallerToken token, const char* table, const char* sql);

/* ---- Data records -----------------------------------------------------------
 * table: the caller's DataTableInfo, read during the call only; its name is
 * the data table's. A record (and each slot of the statistics) is
 * recordSize bytes: the 16-byte head and the values packed in column order,
 * SCADASTORE_VALUE_WIDTH bytes each. Where the getField codes run over
 * several serials, they follow the columns read: the id, time, ms, modify,
 * then float, integer and text values; the number in the text is the
 * result column. */

/* Creates the data table (id, time, ms, modify and one column per value
 * column) and, except under kind 4, its indexes on id and time, when no
 * table of that name exists. When the create fails (or no index follows it), the
 * connection's error text goes to errorText (errorTextSize bytes) if given.
 * 0: existed, or creation tried (a rejected statement is not reported).
 * 1: token or table null, or no connection. Writes no error text. */
SCADASTORE_API uint32_t sgEnsureTableExist(CallerToken token, const DataTableInfo* table,
                                           char* errorText, int errorTextSize);

/* Stores one record (size bytes, more than 16) under a new id, the table's
 * largest id plus 1; record->id and modify are not read.
 * 0: stored. 1: [rcd101] token, table or record null or size <= 16;
 * [rcd102]; [rcd103] the largest-id select failed; [rcd105] its value could
 * not be read (column 1); [rcd106] the insert does not fit its statement;
 * [rcd104] the insert failed. */
SCADASTORE_API uint32_t sgSetRecord(CallerToken token, const DataTableInfo* table,
                                    const DataRecord* record, uint32_t size);

/* Text values one sgBatchSetRecord call binds at most (records times text
 * columns); a larger batch fails with "[rcd1704] failed to create sql". */
#define SCADASTORE_BATCH_TEXT_LIMIT 4096

/* Stores size / recordSize records of buffer (kinds 2, 3, 4, 5) under
 * consecutive new ids, all or none: in a transaction of the library's own,
 * a prepared multi-row insert with the values bound, run once per up to 500
 * records. The session commits each statement again afterwards.
 * 0: stored. 1: [rcd1701] token, table or buffer null, size <= 16, or kind
 * 1 or 6; [rcd1702]; [rcd1703] the largest-id select failed; [rcd1706] its
 * value could not be read (column 1); [rcd1704] the statement does not fit
 * or binds more than SCADASTORE_BATCH_TEXT_LIMIT texts; [rcd1705] the
 * insert failed, naming the statement of the records that failed. */
SCADASTORE_API uint32_t sgBatchSetRecord(CallerToken token, const DataTableInfo* table,
                                         const void* buffer, uint32_t size);

/* Rewrites the values of the record at position index (from 1, in id
 * order) and sets its modify to 1; the head of record is not read.
 * 0: rewritten. 1: [rcd1101] token, table or record null, index 0, or size
 * other than recordSize; the codes of sgGetIdByIndex ([rcd9xx]) for the
 * position; [rcd1102]; [rcd1104] the update does not fit its statement;
 * [rcd1103] the update failed. */
SCADASTORE_API uint32_t sgModifyRecordByIndex(CallerToken token, const DataTableInfo* table,
                                              uint32_t index, const DataRecord* record,
                                              uint32_t size);

/* Runs the caller's statement sql as given (table is only checked).
 * 0: ran. 1: [rcd1601] token, table or sql null; [rcd1602];
 * [rcd1603] the statement failed. */
SCADASTORE_API uint32_t sgOperateRecord(CallerToken token, const DataTableInfo* table,
                                        const char* sql);

/* Empties the table, or runs the caller's statement sql as given when it is
 * neither null nor empty.
 * 0: ran. 1: [rcd801] token or table null; [rcd802]; [rcd803] the
 * statement failed or is cut (convention 11). */
SCADASTORE_API uint32_t sgDeleteRecord(CallerToken token, const DataTableInfo* table,
                                       const char* sql);

/* Deletes the record at position index (from 1, in id order).
 * 0: deleted. 1: [rcd1201] token or table null, or index 0; the codes of
 * sgGetIdByIndex ([rcd9xx]) for the position; [rcd1202]; [rcd1203] the
 * delete failed or is cut. */
SCADASTORE_API uint32_t sgDeleteRecordByIndex(CallerToken token, const DataTableInfo* table,
                                              uint32_t index);

/* The whole table in id order, or the rows of the caller's select sql (run
 * as given when neither null nor empty), in a block (convention 7) the
 * caller frees; *size in bytes (recordSize per record). No rows: *records
 * null and *size 0. A failure writes neither.
 * 0: handed out. 1: [rcd201] token, table, records or size null; [rcd202];
 * [rcd203] the select failed or is cut; [rcd204] its columns are not the
 * table's, or recordSize cannot hold the values; [rcd205] no memory for the
 * block, or it would pass 4 GiB; a value could not be read: [rcd206] id,
 * [rcd207] time, [rcd208] ms, [rcd209] modify, [rcd210] float, [rcd211]
 * integer, [rcd212] text. */
SCADASTORE_API uint32_t sgGetRecord(CallerToken token, const DataTableInfo* table,
                                    void** records, uint32_t* size, const char* sql);

/* Records with startTime <= time <= endTime, as sgGetRecord: 0 handed out;
 * 1: [rcd301] token, table, records or size null, or startTime >= endTime;
 * then the codes of sgGetRecord ([rcd202] .. [rcd212]). */
SCADASTORE_API uint32_t sgGetAllRecordOfInterval(CallerToken token, const DataTableInfo* table,
                                                 uint32_t startTime, uint32_t endTime,
                                                 void** records, uint32_t* size);

/* The first record (lowest id) of the minute startTime .. startTime + 59
 * into record.
 * 0: read. 1: [rcd401] token, table or record null, or size other than
 * recordSize; [rcd402]; [rcd403] the select failed; [rcd404] its columns
 * are not the table's, or recordSize cannot hold the values; [rcd405] no
 * record in that minute; a value could not be read: [rcd406] id, [rcd407]
 * time, [rcd408] ms, [rcd409] modify, [rcd410] float, [rcd411] integer,
 * [rcd412] text. */
SCADASTORE_API uint32_t sgGetRecordByTime(CallerToken token, const DataTableInfo* table,
                                          uint32_t startTime, DataRecord* record,
                                          uint32_t size);

/* The id at position index (from 1, in id order); 0 on failure: [rcd901]
 * token or table null, or index 0; [rcd902]; [rcd903] the select failed;
 * [rcd904] "invalid parameter": index past the last record; [rcd905] the
 * id could not be read (column 1). */
SCADASTORE_API uint32_t sgGetIdByIndex(CallerToken token, const DataTableInfo* table,
                                       uint32_t index);

/* The record at position index (from 1, in id order) into record.
 * 0: read. 1: [rcd1001] token, table or record null, index 0, size other
 * than recordSize, or recordSize cannot hold the values; [rcd1002];
 * [rcd1003] the select failed; [rcd1004] "invalid parameter": index past
 * the last record; a value could not be read: [rcd1005] id, [rcd1006]
 * time, [rcd1007] ms, [rcd1008] modify, [rcd1009] float, [rcd1010]
 * integer, [rcd1011] text. */
SCADASTORE_API uint32_t sgGetRecordByIndex(CallerToken token, const DataTableInfo* table,
                                           uint32_t index, DataRecord* record,
                                           uint32_t size);

/* The number of records; 0xFFFFFFFF on failure: [rcd1301] token or table
 * null; [rcd1302]; [rcd1303] the select failed or is cut; [rcd1304] the
 * count could not be read (column 1). */
SCADASTORE_API uint32_t sgGetRecordCount(CallerToken token, const DataTableInfo* table);

/* One slot of statistics of the float columns over startTime <= time <
 * endTime into record: statKind a SCADASTORE_STAT_* code 1 to 4, any other
 * takes the table's statMode. The slot's head is 0, startTime, 0, 0; a
 * column without rows keeps the caller's bytes; other values are left.
 * 0: filled. 1: [rcd1401] token, table or record null, startTime > endTime,
 * size other than recordSize, or recordSize cannot hold the values;
 * [rcd1402]; [rcd1405] the statement cannot be built (empty interval,
 * too many columns); [rcd1403] it failed, or the table has no float
 * column; [rcd1404] a statistic could not be read (result column). */
SCADASTORE_API uint32_t sgGetRecordStatValueOfInterval(CallerToken token,
                                                       const DataTableInfo* table,
                                                       uint32_t statKind, int32_t startTime,
                                                       int32_t endTime, DataRecord* record,
                                                       uint32_t size);

/* 24 hourly slots from startTime with the table's statMode, as
 * sgGetRecordStatValueOfInterval; size = 24 * recordSize; the unused
 * arguments are ignored. 0: filled. 1: [rcd501] [rcd502] [rcd503] [rcd504]
 * [rcd505] as [rcd1401] .. [rcd1405]; the slots before the failing one are
 * filled. */
SCADASTORE_API uint32_t sgGetRecord_Day(CallerToken token, const DataTableInfo* table,
                                        uint32_t unused1, uint32_t startTime, uint32_t unused2,
                                        uint32_t unused3, uint32_t unused4, void* slots,
                                        uint32_t size);

/* days daily slots (86400 seconds each) from startTime; size = days *
 * recordSize; otherwise as sgGetRecord_Day, codes [rcd601] [rcd602] [rcd603]
 * [rcd604] [rcd605]. */
SCADASTORE_API uint32_t sgGetRecord_Month(CallerToken token, const DataTableInfo* table,
                                          uint32_t unused1, uint32_t startTime, uint32_t unused2,
                                          uint32_t unused3, int32_t days, void* slots,
                                          uint32_t size);

/* 12 monthly slots from startTime, with the month lengths of year; size =
 * 12 * recordSize; otherwise as sgGetRecord_Day, codes [rcd701] [rcd702]
 * [rcd703] [rcd704] [rcd705]. */
SCADASTORE_API uint32_t sgGetRecord_Year(CallerToken token, const DataTableInfo* table,
                                         uint32_t unused1, uint32_t startTime, int32_t year,
                                         void* slots, uint32_t size);

/* Any select sql, run as given, as a text table: *rowCount result rows,
 * *fieldCount kept columns (columns named id, ms and modify are left out),
 * *text the NUL-terminated names and cells one after another (*textLength
 * bytes with the NULs), and (*offsets)[r * fieldCount + f] the offset of
 * field f of row r in *text, row 0 the header. Cells of the column time
 * and of the names in timeColumns ("a;b", may be null) are local date-times
 * "YYYY-MM-DD hh:mm:ss" within 2010 .. 2034. Both blocks (convention 7)
 * belong to the caller. table must not be null; it is not read.
 * No column or no row: *text null and *textLength 0, the rest unwritten.
 * 0: handed out. 1, nothing written: [rcd1501] token, table, sql or any of
 * the five output pointers null; [rcd1502]; [rcd1503] the select failed;
 * [rcd1504] no memory for the offsets, [rcd1505] for the text; [rcd1506] /
 * [rcd1507] a header name too large / refused, [rcd1508] / [rcd1509] a
 * cell too large / refused. */
SCADASTORE_API uint32_t sgGetRecordBySQL(CallerToken token, const void* table, const char* sql,
                                         const char* timeColumns, uint32_t* rowCount,
                                         uint32_t* fieldCount, uint32_t** offsets, char** text,
                                         uint32_t* textLength);

#ifdef __cplusplus
}
#endif

#endif /* SCADASTORE_H */
