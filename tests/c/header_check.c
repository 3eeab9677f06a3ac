/* Compiled as strict C11 against the public header and linked with the shared library. */
#include <scadastore.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  if (dbUninitialize() != 0) return 1;
  const char* text = dbGetLastError();
  if (text == NULL || strcmp(text, "") != 0) return 2;
  if (dbInitialize(NULL) != 1) return 3;
  if (dbIsTableExist(NULL, "t") != 0) return 4;
  if (dbRemoveTable(NULL, "t", NULL, 0) != 1) return 5;
  printf("C11 header check passed\n");
  return 0;
}
