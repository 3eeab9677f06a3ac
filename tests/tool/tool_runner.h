// Runs the scadastore tool against a SQLite file of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace scadastore::tooltest {

struct ToolRun {
  int status = -1;  // exit status
  std::string out;
  std::string err;
};

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The tool with --sqlite on the test's database, then `args`.
  ToolRun Run(const std::vector<std::string>& args);
  // The tool with exactly `args`.
  ToolRun RunBare(const std::vector<std::string>& args);
  // Runs with --format json --epoch, expects success and parses the output.
  nlohmann::json Json(std::vector<std::string> args);
  // Runs expecting success and returns stdout.
  std::string Ok(const std::vector<std::string>& args);

  std::string Path(const std::string& name) const { return dir_ + "/" + name; }
  void WriteFile(const std::string& name, const std::string& text) const;

 private:
  std::string dir_;
};

// Whether `text` contains `part`; the failure shows the whole text.
inline ::testing::AssertionResult Contains(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "'" << part << "' not in:\n" << text;
}

// Splits CSV output that has no quoted fields into rows of fields.
std::vector<std::vector<std::string>> SplitCsv(const std::string& text);

}  // namespace scadastore::tooltest
