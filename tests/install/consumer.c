/* A host built against an installed scadastore: stores one alarm through the
 * data source named on the command line and reads it back. */
#include <scadastore.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: consumer DSN\n");
    return 2;
  }
  char config[256];
  snprintf(config, sizeof config, "%s;;;3", argv[1]);
  static int host;
  CallerToken token = &host;
  AlarmRecord alarm = {0}, stored[2];
  strcpy(alarm.station, "north");
  strcpy(alarm.tag, "temp");
  alarm.value = 71.25;
  alarm.arisetime = 1714550400;
  alarm.alarmlevel = 3;
  if (dbInitialize(config) != 0 || almEnsureTableExist(token, "alarms") != 0 ||
      almSetAlarm(token, "alarms", &alarm, sizeof alarm) != 0 ||
      almGetAllAlarm(token, "alarms", stored, sizeof stored) != 0) {
    fprintf(stderr, "consumer: %s\n", dbGetLastError());
    return 1;
  }
  if (stored[0].id != 1 || strcmp(stored[0].station, "north") != 0 || stored[0].value != 71.25 ||
      stored[1].id != 0) {
    fprintf(stderr, "consumer: read back id %u station '%s' value %g, next id %u\n",
            (unsigned)stored[0].id, stored[0].station, stored[0].value, (unsigned)stored[1].id);
    return 1;
  }
  printf("scadastore %s: alarm %u stored and read back (%s/%s %.2f)\n", SCADASTORE_VERSION,
         (unsigned)stored[0].id, stored[0].station, stored[0].tag, stored[0].value);
  dbUninitialize();
  return 0;
}
