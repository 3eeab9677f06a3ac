#include "tools/cli/session.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

namespace scadastore::cli {
namespace {

// Where Debian and other distributions put the SQLite3 ODBC driver.
const char* const kSqliteDriverPaths[] = {
    "/usr/lib/x86_64-linux-gnu/odbc/libsqlite3odbc.so",
    "/usr/lib/aarch64-linux-gnu/odbc/libsqlite3odbc.so",
    "/usr/lib/i386-linux-gnu/odbc/libsqlite3odbc.so",
    "/usr/lib/odbc/libsqlite3odbc.so",
    "/usr/lib64/libsqlite3odbc.so",
    "/usr/lib/libsqlite3odbc.so",
    "/usr/local/lib/libsqlite3odbc.so",
};

// Paths the signal handler removes; fixed buffers because it may only make
// async-signal-safe calls.
char cleanupFiles[2][4096];
char cleanupDir[4096];

void RemoveCleanupPaths() {
  for (const char* file : cleanupFiles)
    if (file[0] != '\0') unlink(file);
  if (cleanupDir[0] != '\0') rmdir(cleanupDir);
}

void RemoveAndDie(int signal) {
  RemoveCleanupPaths();
  ::signal(signal, SIG_DFL);
  raise(signal);
}

std::string FindSqliteDriver() {
  for (const char* path : kSqliteDriverPaths)
    if (access(path, R_OK) == 0) return path;
  std::string tried;
  for (const char* path : kSqliteDriverPaths) tried += fmt::format("\n  {}", path);
  throw CommandError(
      "the SQLite3 ODBC driver was not found (Debian package libsqliteodbc); looked for:" +
      tried);
}

int KindOfConfig(const std::string& config) {
  size_t position = std::string::npos;
  for (int field = 0; field < 3; ++field) {
    position = config.find(';', position + 1);  // npos + 1 is 0
    if (position == std::string::npos) return 0;
  }
  return std::atoi(config.c_str() + position + 1);
}

}  // namespace

void ThrowLibraryError(const std::string& what) {
  const char* text = dbGetLastError();
  throw CommandError(fmt::format("{}: {}", what, *text ? text : "failed (no error text)"));
}

Session::~Session() { RemoveDataSourceFiles(); }

CallerToken Session::token() const {
  // Any non-null pointer will do; the library only checks it.
  static int anchor;
  return &anchor;
}

std::string Session::Describe() const {
  if (!databasePath_.empty())
    return fmt::format("SQLite database {} (kind {})", databasePath_, kind_);
  return fmt::format("data source {} (kind {})", options.config.substr(0, options.config.find(';')),
                     kind_);
}

void Session::Connect() {
  if (connected_) return;
  std::string config = options.config;
  if (!options.sqlite.empty()) {
    if (options.sqliteKind < 1 || options.sqliteKind > 6)
      throw CommandError("--kind must be 1 to 6");
    WriteSqliteDataSource();
    config = fmt::format("scadastore;;;{}", options.sqliteKind);
  }
  if (config.empty())
    throw CommandError("no database: give --sqlite FILE or --config 'DSN;user;password;kind'");
  kind_ = KindOfConfig(config);
  if (dbInitialize(config.c_str()) != 0) {
    // dbInitialize writes no text of its own; once it has stored the
    // settings, a call through them fails with the library's coded text.
    std::string text = "the settings text was refused";
    if (kind_ >= 1 && kind_ <= 6 &&
        sgGetRecordCount(token(), reinterpret_cast<const DataTableInfo*>("")) == UINT32_MAX)
      text = dbGetLastError();
    throw CommandError(fmt::format("cannot connect to {}: {}", Describe(), text));
  }
  connected_ = true;
}

void Session::WriteSqliteDataSource() {
  namespace fs = std::filesystem;
  std::string driver = FindSqliteDriver();
  fs::path database = fs::absolute(options.sqlite);
  if (!fs::is_directory(database.parent_path()))
    throw CommandError(fmt::format("{}: no such directory", database.parent_path().string()));
  databasePath_ = database.string();

  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = fmt::format("{}/scadastore-odbc-XXXXXX", tmp && *tmp ? tmp : "/tmp");
  if (mkdtemp(pattern.data()) == nullptr)
    throw CommandError(fmt::format("cannot create a directory like {}: {}", pattern,
                                   std::strerror(errno)));
  iniDir_ = pattern;
  std::string odbcinst = iniDir_ + "/odbcinst.ini", odbc = iniDir_ + "/odbc.ini";
  std::snprintf(cleanupDir, sizeof cleanupDir, "%s", iniDir_.c_str());
  std::snprintf(cleanupFiles[0], sizeof cleanupFiles[0], "%s", odbcinst.c_str());
  std::snprintf(cleanupFiles[1], sizeof cleanupFiles[1], "%s", odbc.c_str());
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) ::signal(signal, RemoveAndDie);

  // Timeout is the busy wait (ms) when another process writes the file.
  std::ofstream(odbcinst) << fmt::format("[SQLite3]\nDriver={}\n", driver);
  std::ofstream(odbc) << fmt::format(
      "[scadastore]\nDriver=SQLite3\nDatabase={}\nTimeout=10000\nJournalMode=WAL\n"
      "SyncPragma=NORMAL\n",
      databasePath_);
  setenv("ODBCSYSINI", iniDir_.c_str(), 1);
  setenv("ODBCINI", odbc.c_str(), 1);
}

void Session::RemoveDataSourceFiles() {
  if (iniDir_.empty()) return;
  RemoveCleanupPaths();
  cleanupDir[0] = cleanupFiles[0][0] = cleanupFiles[1][0] = '\0';
  iniDir_.clear();
}

}  // namespace scadastore::cli
