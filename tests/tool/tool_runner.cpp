#include "tool_runner.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace scadastore::tooltest {
namespace {

std::string ShellQuote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

void ToolTest::SetUp() {
  char pattern[] = "/tmp/scadastore-tool-test-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  dir_ = pattern;
  setenv("TZ", "UTC", 1);  // local times in the output are then UTC
}

void ToolTest::TearDown() { std::filesystem::remove_all(dir_); }

ToolRun ToolTest::RunBare(const std::vector<std::string>& args) {
  std::string command = ShellQuote(SCADASTORE_TOOL);
  for (const std::string& arg : args) command += " " + ShellQuote(arg);
  command += " >" + Path("stdout") + " 2>" + Path("stderr") + " </dev/null";
  int status = std::system(command.c_str());
  ToolRun run;
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  run.out = ReadFile(Path("stdout"));
  run.err = ReadFile(Path("stderr"));
  return run;
}

ToolRun ToolTest::Run(const std::vector<std::string>& args) {
  std::vector<std::string> all = {"--sqlite", Path("test.db")};
  all.insert(all.end(), args.begin(), args.end());
  return RunBare(all);
}

std::string ToolTest::Ok(const std::vector<std::string>& args) {
  ToolRun run = Run(args);
  EXPECT_EQ(run.status, 0) << run.err;
  return run.out;
}

nlohmann::json ToolTest::Json(std::vector<std::string> args) {
  args.insert(args.end(), {"--format", "json", "--epoch"});
  std::string out = Ok(args);
  try {
    return nlohmann::json::parse(out);
  } catch (const std::exception& error) {
    ADD_FAILURE() << "not JSON: " << out;
    return {};
  }
}

void ToolTest::WriteFile(const std::string& name, const std::string& text) const {
  std::ofstream(Path(name)) << text;
}

std::vector<std::vector<std::string>> SplitCsv(const std::string& text) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    rows.emplace_back();
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, ',');) rows.back().push_back(field);
    if (!line.empty() && line.back() == ',') rows.back().push_back("");
  }
  return rows;
}

}  // namespace scadastore::tooltest
