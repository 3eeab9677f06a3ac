#include "tool_runner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace scadastore::tooltest {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void ToolTest::SetUp() {
  char pattern[] = "/tmp/scadastore-tool-test-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  dir_ = pattern;
  database_ = {"--sqlite", Path("test.db")};
  setenv("TZ", "UTC", 1);  // local times in the output are then UTC
}

void ToolTest::TearDown() { std::filesystem::remove_all(dir_); }

bool ToolTest::Use(Database database) {
  if (database == Database::Sqlite) return true;
  const bool postgres = database == Database::Postgres;
  const char* settings = std::getenv(postgres ? "SCADASTORE_TEST_POSTGRES" : "SCADASTORE_TEST_MARIADB");
  if (settings == nullptr || *settings == '\0') return false;
  database_ = {"--config", std::string(settings) + (postgres ? ";5" : ";2")};
  database_kind_ = database;
  return true;
}

std::string DatabaseName(const ::testing::TestParamInfo<Database>& info) {
  return info.param == Database::Sqlite ? "sqlite" : info.param == Database::Postgres ? "postgres" : "mariadb";
}

pid_t ToolTest::Start(const std::string& program, const std::vector<std::string>& args,
                      const std::string& name) {
  std::vector<std::string> all = args;
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (std::string& arg : all) argv.push_back(arg.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, Path(name + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&files, 2, Path(name + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = -1;
  EXPECT_EQ(posix_spawnp(&pid, program.c_str(), &files, nullptr, argv.data(), environ), 0) << program;
  posix_spawn_file_actions_destroy(&files);
  return pid;
}

pid_t ToolTest::StartTool(const std::vector<std::string>& args, const std::string& name) {
  std::vector<std::string> all = database_;
  all.insert(all.end(), args.begin(), args.end());
  return Start(SCADASTORE_TOOL, all, name);
}

ToolRun ToolTest::Wait(pid_t pid, const std::string& name) {
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  ToolRun run;
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  run.out = ReadFile(Path(name + ".out"));
  run.err = ReadFile(Path(name + ".err"));
  return run;
}

ToolRun ToolTest::RunBare(const std::vector<std::string>& args) {
  return Wait(Start(SCADASTORE_TOOL, args));
}

ToolRun ToolTest::Run(const std::vector<std::string>& args) { return Wait(StartTool(args, "run")); }

std::string ToolTest::Ok(const std::vector<std::string>& args) {
  ToolRun run = Run(args);
  EXPECT_EQ(run.status, 0) << run.err;
  return run.out;
}

nlohmann::json ToolTest::Json(std::vector<std::string> args) {
  args.insert(args.end(), {"--format", "json", "--epoch"});
  std::string out = Ok(args);
  nlohmann::json parsed = nlohmann::json::parse(out, nullptr, false);
  EXPECT_FALSE(parsed.is_discarded()) << "not JSON: " << out;
  return parsed;
}

void ToolTest::FreshTable(const std::string& kind, const std::string& table,
                          const std::string& columns) {
  Run({"drop", table});
  std::vector<std::string> args = {"ensure", kind, table};
  if (!columns.empty()) args.insert(args.end(), {"--columns", columns});
  Ok(args);
}

void ToolTest::WriteFile(const std::string& name, const std::string& text) const {
  std::ofstream(Path(name)) << text;
}

}  // namespace scadastore::tooltest
