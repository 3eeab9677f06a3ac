// The tool's connection to the library: --config or a private SQLite data
// source, the caller token, and how failures leave a command.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "scadastore.h"

namespace scadastore::cli {

// A failure that ends the command: printed after "scadastore: ", exit 1.
struct CommandError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws a CommandError carrying the library's last error text.
[[noreturn]] void ThrowLibraryError(const std::string& what);

// Throws unless an export that returns a code gave 0.
inline void Check(uint32_t result, const std::string& what) {
  if (result != 0) ThrowLibraryError(what);
}

struct ConnectionOptions {
  std::string config;  // "DSN;user;password;kind"
  std::string sqlite;  // database file of the embedded default
  int sqliteKind = 3;
};

class Session {
 public:
  Session() = default;
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  ConnectionOptions options;

  // Initialises the library once; throws a CommandError when it refuses.
  void Connect();
  int kind() const { return kind_; }
  // Multi-row inserts need kind 2 to 5; kinds 1 and 6 write row by row.
  bool CanBatch() const { return kind_ >= 2 && kind_ <= 5; }
  // What the tool is connected to, for reports.
  std::string Describe() const;

  CallerToken token() const;

 private:
  void WriteSqliteDataSource();
  void RemoveDataSourceFiles();

  bool connected_ = false;
  int kind_ = 0;
  std::string iniDir_;
  std::string databasePath_;
};

}  // namespace scadastore::cli
