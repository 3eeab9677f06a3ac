#include "tools/cli/database/session.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "core/sql_text.h"

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
volatile sig_atomic_t deferInterrupts = 0;
volatile sig_atomic_t interrupted = 0;

void RemoveCleanupPaths() {
  for (const char* file : cleanupFiles)
    if (file[0] != '\0') unlink(file);
  if (cleanupDir[0] != '\0') rmdir(cleanupDir);
}

void RemoveAndDie(int signal) {
  if (deferInterrupts && signal != SIGPIPE && signal != SIGHUP) {
    interrupted = 1;
    return;
  }
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

std::vector<std::string> SplitConfig(const std::string& config) {
  std::vector<std::string> fields(1);
  for (char c : config) {
    if (c == ';') fields.emplace_back();
    else fields.back() += c;
  }
  return fields;
}

}  // namespace

Session::~Session() { RemoveDataSourceFiles(); }

CallerToken Session::Token() {
  // Any non-null pointer will do; the library only checks it.
  static int anchor;
  if (connected_) return &anchor;
  Configure();
  // A server's connections are kept between the tool's many calls (a
  // statistic asks once per slot, an import once per batch). A file's are
  // not: one left open at exit would leave its WAL files beside it.
  std::string config = fmt::format("{};{};{};{};{}{}", dsn_, user_, password_, kind_,
                                   libraryOptions_, databasePath_.empty() ? "pool" : "");
  if (dbInitialize(config.c_str()) != 0) {
    // dbInitialize writes no text of its own; once it has stored the
    // settings, a call through them fails with the library's coded text.
    std::string text = "the settings text was refused";
    if (sgGetRecordCount(&anchor, reinterpret_cast<const DataTableInfo*>("")) == UINT32_MAX)
      text = dbGetLastError();
    std::string reason = Reason();
    throw CommandError(fmt::format("cannot connect to {}: {}{}{}", Describe(), text,
                                   reason.empty() ? "" : "; the database says: ", reason));
  }
  connected_ = true;
  return &anchor;
}

OdbcConnection& Session::Database() {
  std::string reason = Reason();
  if (!reason.empty()) {
    Token();  // throws with the library's text beside the reason
    throw CommandError(fmt::format("cannot connect to {}: {}", Describe(), reason));
  }
  return *database_;
}

std::string Session::Reason() {
  if (database_) return "";
  Configure();
  try {
    database_ = std::make_unique<OdbcConnection>(dsn_, user_, password_);
    return "";
  } catch (const OdbcError& error) {
    return error.what();
  }
}

std::string Session::StatementReason(const std::string& libraryText) {
  // The library's text of a statement that failed ends with the statement.
  const std::string marker = "failed to open table: ";
  size_t start = libraryText.find(marker);
  // A text of the full 1023 characters may hold a cut statement, whose
  // reason would be the cut.
  if (start == std::string::npos || libraryText.size() >= 1023 || !database_) return "";
  try {
    database_->Statement().Prepare(libraryText.substr(start + marker.size()));
    return "";
  } catch (const OdbcError& error) {
    return error.what();
  }
}

void Session::Fail(const std::string& what) {
  const char* text = dbGetLastError();
  std::string reason = Reason();
  if (reason.empty()) reason = StatementReason(text);
  throw CommandError(fmt::format("{}: {}{}{}", what, *text ? text : "failed (no error text)",
                                 reason.empty() ? "" : "; the database says: ", reason));
}

std::string Session::Quote(const std::string& name) const {
  return QuoteName(DialectOf(kind_), name);
}

void Session::DeferInterrupts(bool defer) { deferInterrupts = defer; }

bool Session::Interrupted() { return interrupted != 0; }

std::string Session::Describe() const {
  if (!databasePath_.empty())
    return fmt::format("SQLite database {} (kind {})", databasePath_, kind_);
  return fmt::format("data source {} (kind {})", dsn_, kind_);
}

void Session::Configure() {
  if (configured_) return;
  // SIGPIPE too: `scadastore ... | head` must not leave the data source files.
  for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) ::signal(signal, RemoveAndDie);
  if (!options.sqlite.empty()) {
    WriteSqliteDataSource();
    dsn_ = "scadastore";
    kind_ = options.sqliteKind;
  } else if (options.config.empty()) {
    throw UsageError("no database: give --sqlite FILE or --config 'DSN;user;password;kind'");
  } else {
    std::vector<std::string> fields = SplitConfig(options.config);
    char* end = nullptr;
    long kind = fields.size() >= 4 ? std::strtol(fields[3].c_str(), &end, 10) : 0;
    if (fields.size() < 4 || fields[0].empty() || *end != '\0' || kind < 1 || kind > 6)
      throw UsageError(fmt::format(
          "--config '{}' is not 'DSN;user;password;kind[;option...]' with a kind from 1 to 6",
          options.config));
    dsn_ = fields[0];
    user_ = fields[1];
    password_ = fields[2];
    kind_ = static_cast<int>(kind);
    for (size_t f = 4; f < fields.size(); ++f)
      if (fields[f] != "pool") libraryOptions_ += fields[f] + ";";
  }
  configured_ = true;
}

void Session::WriteSqliteDataSource() {
  namespace fs = std::filesystem;
  std::string driver = FindSqliteDriver();
  fs::path database = fs::absolute(options.sqlite);
  if (!fs::is_directory(database.parent_path()))
    throw CommandError(fmt::format("{}: no such directory", database.parent_path().string()));
  if (!options.createSqlite && !fs::exists(database))
    throw CommandError(fmt::format(
        "no database file {} (the commands ensure and demo create one)", database.string()));
  databasePath_ = database.string();
  // WAL needs a writable directory for its side files; a read-only one is
  // read in the default journal mode.
  bool writable = access(database.parent_path().c_str(), W_OK) == 0;

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

  // Timeout is the busy wait (ms) when another process writes the file.
  std::ofstream(odbcinst) << fmt::format("[SQLite3]\nDriver={}\n", driver);
  std::ofstream(odbc) << fmt::format(
      "[scadastore]\nDriver=SQLite3\nDatabase={}\nTimeout=10000\n{}SyncPragma=NORMAL\n",
      databasePath_, writable ? "JournalMode=WAL\n" : "");
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
