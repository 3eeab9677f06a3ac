/* scadastore-example: a small Windows host. It loads scadastore.dll at run
 * time, stores one alarm, reads the alarms of the last hour back and
 * releases the block with HeapFree, as every host of the library does. */
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <stdio.h>
#include <string.h>
#include <time.h>

#include "scadastore.h"

typedef uint32_t (*InitializeFunction)(const char*);
typedef const char* (*LastErrorFunction)(void);
typedef uint32_t (*EnsureTableFunction)(CallerToken, const char*);
typedef uint32_t (*SetAlarmFunction)(CallerToken, const char*, const AlarmRecord*, uint32_t);
typedef uint32_t (*QueryFunction)(CallerToken, const char*, const AlarmQuery*, AlarmRecord**,
                                  uint32_t*);

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3 || strcmp(argv[1], "--help") == 0) {
    fputs("Usage: scadastore-example \"DSN;user;password;kind\" [TABLE]\n"
          "\n"
          "Loads scadastore.dll, stores one alarm in TABLE (default example_alarms,\n"
          "created when missing) and prints the alarms of the last hour.\n"
          "Exit status: 0 on success, 1 when a call fails, 2 on wrong arguments.\n",
          argc < 2 || argc > 3 ? stderr : stdout);
    return argc < 2 || argc > 3 ? 2 : 0;
  }
  const char* table = argc == 3 ? argv[2] : "example_alarms";

  HMODULE library = LoadLibraryA("scadastore.dll");
  if (library == NULL) {
    fprintf(stderr, "cannot load scadastore.dll (error %lu)\n", (unsigned long)GetLastError());
    return 1;
  }
  /* Through void (*)(void): GetProcAddress's type matches no export. */
  typedef void (*AnyFunction)(void);
  InitializeFunction initialize =
      (InitializeFunction)(AnyFunction)GetProcAddress(library, "dbInitialize");
  LastErrorFunction lastError =
      (LastErrorFunction)(AnyFunction)GetProcAddress(library, "dbGetLastError");
  EnsureTableFunction ensureTable =
      (EnsureTableFunction)(AnyFunction)GetProcAddress(library, "almEnsureTableExist");
  SetAlarmFunction setAlarm = (SetAlarmFunction)(AnyFunction)GetProcAddress(library, "almSetAlarm");
  QueryFunction query = (QueryFunction)(AnyFunction)GetProcAddress(library, "almGetAlarmByQuery");
  if (!initialize || !lastError || !ensureTable || !setAlarm || !query) {
    fprintf(stderr, "scadastore.dll lacks an export\n");
    return 1;
  }

  CallerToken token = (CallerToken)library; /* any non-null pointer */
  int status = 1;
  if (initialize(argv[1]) != 0) {
    fprintf(stderr, "cannot connect with \"%s\"\n", argv[1]);
  } else if (ensureTable(token, table) != 0) {
    fprintf(stderr, "%s\n", lastError());
  } else {
    AlarmRecord alarm;
    memset(&alarm, 0, sizeof alarm);
    strcpy(alarm.station, "station1");
    strcpy(alarm.tag, "pump1.pressure");
    strcpy(alarm.description, "pressure high");
    alarm.value = 7.5;
    alarm.alarmtype = 1;
    alarm.alarmlevel = 2;
    alarm.arisetime = (uint32_t)time(NULL);

    AlarmQuery range;
    memset(&range, 0, sizeof range);
    range.startTime = alarm.arisetime - 3600;
    range.endTime = alarm.arisetime;
    AlarmRecord* records = NULL;
    uint32_t size = 0;
    if (setAlarm(token, table, &alarm, sizeof alarm) != 0 ||
        query(token, table, &range, &records, &size) != 0) {
      fprintf(stderr, "%s\n", lastError());
    } else {
      for (uint32_t i = 0; i < size / sizeof(AlarmRecord); ++i)
        printf("alarm %u: %s %s %.2f %s\n", records[i].id, records[i].station, records[i].tag,
               records[i].value, records[i].description);
      /* Blocks of the library belong to the process heap. */
      HeapFree(GetProcessHeap(), 0, records);
      status = 0;
    }
  }
  FreeLibrary(library);
  return status;
}
