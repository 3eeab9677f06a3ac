/* scadastore-monitor for Windows: receives the database error texts that
 * scadastore.dll announces and prints one a line.
 *
 * It creates the named mapping "message_mem", publishes a message-only
 * window at its start, and handles message 6119 (wParam 21): lParam is the
 * text's address in the host process, read with ReadProcessMemory before the
 * host's call returns. */
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#include <tlhelp32.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define MONITOR_MESSAGE 6119
#define MONITOR_WPARAM 21
#define BLOCK_SIZE 32768
#define TEXT_CAPACITY 256 /* the library's texts are at most 255 characters */

static DWORD hostPid;          /* --pid */
static const char* hostName;   /* --process */
static long remaining = -1;    /* --count; -1: until stopped */
static HWND monitorWindow;

static void Usage(FILE* out) {
  fputs("Usage: scadastore-monitor (--pid ID | --process NAME) [--count N]\n"
        "\n"
        "Prints each database error text that scadastore.dll announces in the\n"
        "host process, one a line, until Ctrl+C or N texts.\n"
        "\n"
        "  --pid ID        the host's process id\n"
        "  --process NAME  the host's program file name, such as host.exe; with\n"
        "                  several such processes, the first whose memory holds\n"
        "                  the text\n"
        "  --count N       stop after N texts\n"
        "  --help          this text\n"
        "\n"
        "Exit status: 0 when stopped, 1 on an error, 2 on wrong arguments.\n",
        out);
}

/* Copies the NUL-terminated text at `address` in `process`; 0 when unreadable. */
static int ReadText(HANDLE process, const char* address, char* text) {
  SIZE_T got = 0;
  /* The text may end near the end of a page: read what is readable. */
  for (SIZE_T want = TEXT_CAPACITY; want > 0; want /= 2) {
    if (ReadProcessMemory(process, address, text, want, &got) && got > 0) break;
    got = 0;
  }
  if (got == 0 || memchr(text, '\0', got) == NULL) return 0;
  return 1;
}

static int ReadFromPid(DWORD pid, const char* address, char* text) {
  HANDLE process = OpenProcess(PROCESS_VM_READ, FALSE, pid);
  if (process == NULL) return 0;
  int ok = ReadText(process, address, text);
  CloseHandle(process);
  return ok;
}

static int ReadFromHost(const char* address, char* text) {
  if (hostName == NULL) return ReadFromPid(hostPid, address, text);
  HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return 0;
  PROCESSENTRY32 entry;
  entry.dwSize = sizeof entry;
  int ok = 0;
  for (BOOL more = Process32First(snapshot, &entry); more && !ok;
       more = Process32Next(snapshot, &entry))
    if (_stricmp(entry.szExeFile, hostName) == 0)
      ok = ReadFromPid(entry.th32ProcessID, address, text);
  CloseHandle(snapshot);
  return ok;
}

static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == MONITOR_MESSAGE && wParam == MONITOR_WPARAM) {
    char text[TEXT_CAPACITY];
    if (ReadFromHost((const char*)lParam, text))
      printf("%s\n", text);
    else
      fprintf(stderr, "a text came from a process this monitor cannot read\n");
    fflush(stdout);
    if (remaining > 0 && --remaining == 0) DestroyWindow(window);
    return 0;
  }
  if (message == WM_CLOSE) {
    DestroyWindow(window);
    return 0;
  }
  if (message == WM_DESTROY) {
    PostQuitMessage(0);
    return 0;
  }
  return DefWindowProcA(window, message, wParam, lParam);
}

static BOOL WINAPI OnConsoleControl(DWORD event) {
  (void)event;
  PostMessageA(monitorWindow, WM_CLOSE, 0, 0);
  return TRUE;
}

static int WrongArguments(const char* why, const char* argument) {
  fprintf(stderr, "scadastore-monitor: %s%s\n", why, argument);
  Usage(stderr);
  return 2;
}

/* 0 when the arguments are complete, else the exit status 2. */
static int ParseArguments(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* value = i + 1 < argc ? argv[i + 1] : "";
    char* end = NULL;
    if (strcmp(argv[i], "--help") == 0) {
      Usage(stdout);
      exit(0);
    } else if (strcmp(argv[i], "--pid") == 0) {
      hostPid = strtoul(value, &end, 10);
      if (*end != '\0' || hostPid == 0) return WrongArguments("not a process id: ", value);
    } else if (strcmp(argv[i], "--process") == 0) {
      if (*value == '\0') return WrongArguments("--process needs a program name", "");
      hostName = value;
    } else if (strcmp(argv[i], "--count") == 0) {
      remaining = strtol(value, &end, 10);
      if (*end != '\0' || remaining <= 0) return WrongArguments("not a count: ", value);
    } else {
      return WrongArguments("unexpected argument: ", argv[i]);
    }
    ++i;
  }
  if ((hostPid != 0) == (hostName != NULL))
    return WrongArguments("give the host with either --pid or --process", "");
  return 0;
}

int main(int argc, char** argv) {
  int usage = ParseArguments(argc, argv);
  if (usage != 0) return usage;

  HANDLE mapping =
      CreateFileMappingA(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, BLOCK_SIZE, "message_mem");
  if (mapping == NULL || GetLastError() == ERROR_ALREADY_EXISTS) {
    fprintf(stderr, "scadastore-monitor: %s\n",
            mapping == NULL ? "cannot create the mapping \"message_mem\""
                            : "another monitor owns \"message_mem\"");
    if (mapping != NULL) CloseHandle(mapping);
    return 1;
  }
  HWND* published = (HWND*)MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, BLOCK_SIZE);

  WNDCLASSA windowClass = {0};
  windowClass.lpfnWndProc = WindowProcedure;
  windowClass.hInstance = GetModuleHandleA(NULL);
  windowClass.lpszClassName = "scadastore-monitor";
  if (published != NULL && RegisterClassA(&windowClass) != 0)
    monitorWindow = CreateWindowExA(0, windowClass.lpszClassName, "scadastore-monitor", 0, 0, 0,
                                    0, 0, HWND_MESSAGE, NULL, windowClass.hInstance, NULL);
  if (monitorWindow == NULL) {
    fprintf(stderr, "scadastore-monitor: cannot create its window (error %lu)\n",
            (unsigned long)GetLastError());
    if (published != NULL) UnmapViewOfFile(published);
    CloseHandle(mapping);
    return 1;
  }
  *published = monitorWindow;
  SetConsoleCtrlHandler(OnConsoleControl, TRUE);
  fprintf(stderr, "scadastore-monitor: listening in \"message_mem\"\n");

  MSG message;
  while (GetMessageA(&message, NULL, 0, 0) > 0) DispatchMessageA(&message);

  *published = NULL;
  UnmapViewOfFile(published);
  CloseHandle(mapping);
  return 0;
}
