// purge and retention: what goes, what an alarm's state keeps, refusal of
// unknown tables, and an interrupted run that leaves every remaining row intact.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <iterator>
#include <thread>

#include <fmt/format.h>

#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

constexpr long kCutoff = 1714550400;

class Purge : public EachDatabase {
 protected:
  std::string Cut() const { return std::to_string(kCutoff); }
  // "n\nROWS\n": the rows of a table that match, through the tool's own select.
  std::string Count(const std::string& table, const std::string& where = "1 = 1") {
    return Ok({"sql", fmt::format("select count(*) as n from {} where {}", table, where),
               "--format", "csv"});
  }
  // `rows` samples one second apart, half of them before the cut-off; v
  // repeats the time so that a changed row shows.
  void Samples(long rows) {
    FreshTable("data", "samples", "v:float");
    std::ofstream csv(Path("samples.csv"));
    csv << "time,v\n";
    for (long time = kCutoff - rows / 2; time < kCutoff + rows - rows / 2; ++time)
      csv << time << ',' << time << '\n';
    csv.close();
    Ok({"records", "import", "samples", Path("samples.csv")});
  }
};

TEST_P(Purge, RemovesOldRowsAndKeepsOpenAlarms) {
  FreshTable("alarm", "events");
  // id, status, recovertime, arisetime: 1 goes; 2, 3 and 4 are old but open; 5 is new.
  Ok({"sql", "--write",
      fmt::format("insert into events (id, station, tag, status, recovertime, arisetime) values "
                  "(1, 'n', 'a', 1, {0}, {1}), (2, 'n', 'a', 0, {0}, {1}), "
                  "(3, 'n', 'a', 1, 0, {1}), (4, 'n', 'a', 0, 0, {1}), (5, 'n', 'a', 1, {0}, {0})",
                  kCutoff, kCutoff - 100)});
  FreshTable("log", "journal");
  Ok({"sql", "--write",
      fmt::format("insert into journal (id, logtime) values (1, {}), (2, {}), (3, {})",
                  kCutoff - 1, kCutoff - 2, kCutoff)});
  Samples(10);

  nlohmann::json dry = Json({"purge", "--before", Cut(), "--dry-run", "events", "journal",
                             "samples"});
  EXPECT_EQ(dry, nlohmann::json::parse(R"([
    {"table": "events", "kind": "alarm", "older": 4, "would_remove": 1, "kept": 3,
     "unconfirmed": 2, "unrecovered": 2},
    {"table": "journal", "kind": "log", "older": 2, "would_remove": 2, "kept": 0,
     "unconfirmed": null, "unrecovered": null},
    {"table": "samples", "kind": "data", "older": 5, "would_remove": 5, "kept": 0,
     "unconfirmed": null, "unrecovered": null}])"));
  EXPECT_EQ(Count("events"), "n\n5\n");

  // A table of no known kind is refused before anything goes.
  Ok({"sql", "--write", "create table notes (a integer)"});
  ToolRun refused = Run({"purge", "--before", Cut(), "events", "notes"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_TRUE(Contains(refused.err, "notes is not an alarm, log or data table"));
  EXPECT_EQ(Count("events"), "n\n5\n");
  Run({"drop", "notes"});

  nlohmann::json done = Json({"purge", "--before", Cut(), "--batch", "2", "events", "journal",
                              "samples"});
  EXPECT_EQ(done[0]["removed"], 1);
  EXPECT_EQ(done[2]["removed"], 5);
  EXPECT_EQ(Ok({"sql", "select id from events order by id", "--format", "csv"}),
            "id\n2\n3\n4\n5\n");
  EXPECT_EQ(Count("journal"), "n\n1\n");
  EXPECT_EQ(Count("samples", fmt::format("time >= {}", kCutoff)), "n\n5\n");
  EXPECT_EQ(Count("samples"), "n\n5\n");

  // Retention policies apply purge's rules up to a time before now: by the
  // command line of the systemd service on PostgreSQL, by `retention run` on
  // the others. The policy table is none that purge takes.
  const long recent = time(nullptr) - 10 * 86400;
  Ok({"sql", "--write",
      fmt::format("insert into events (id, station, tag, status, recovertime, arisetime) values "
                  "(6, 'n', 'a', 1, {0}, {0})", recent)});
  Ok({"sql", "--write", fmt::format("insert into journal (id, logtime) values (4, {})", recent)});
  Ok({"sql", "--write", fmt::format("insert into samples (id, time, ms, modify, v) values "
                                    "(11, {0}, 0, 0, {0})", recent)});
  Ok({"retention", "set", "events", "journal", "--keep", "30d"});
  Ok({"retention", "set", "samples", "--keep", "2m"});
  EXPECT_EQ(Run({"retention", "set", "events", "--keep", "30"}).status, 2);
  EXPECT_EQ(Json({"retention"}).size(), 3u);

  ToolRun run;
  if (database() == Database::Postgres) {
    std::ifstream unit(SCADASTORE_RETENTION_SERVICE);
    std::string line, exec;
    while (std::getline(unit, line))
      if (line.starts_with("ExecStart=")) exec = line.substr(10);
    std::vector<std::string> args;
    for (size_t start = exec.find(' ') + 1; start > 0; start = exec.find(' ', start) + 1)
      args.push_back(exec.substr(start, exec.find(' ', start) - start));
    ASSERT_EQ(args[1], "${SCADASTORE_CONFIG}");
    args[1] = std::string(std::getenv("SCADASTORE_TEST_POSTGRES")) + ";5";
    run = RunBare(args);
  } else {
    run = Run({"retention", "run"});
  }
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Ok({"sql", "select id from events order by id", "--format", "csv"}),
            "id\n2\n3\n4\n6\n");
  EXPECT_EQ(Ok({"sql", "select id from journal", "--format", "csv"}), "id\n4\n");
  EXPECT_EQ(Ok({"sql", "select id from samples", "--format", "csv"}), "id\n11\n");

  EXPECT_EQ(Run({"purge", "--before", Cut(), "scadastore_retention"}).status, 2);
  EXPECT_EQ(Json({"retention"}).size(), 3u);
  Ok({"drop", "journal"});  // a policy whose table is gone fails the run
  EXPECT_EQ(Run({"retention", "run"}).status, 1);
  Ok({"retention", "remove", "journal"});
  EXPECT_EQ(Run({"retention", "run"}).status, 0);
  Ok({"drop", "scadastore_retention"});
}


TEST_P(Purge, InterruptedRunLeavesTheRestIntactAndARerunFinishes) {
  const long rows = SCADASTORE_SANITIZED ? 2000 : 20000;
  Samples(rows);
  pid_t tool = StartTool({"purge", "--before", Cut(), "--batch", "10", "samples"}, "purge");
  std::string err;
  for (int wait = 0; wait < 3000 && err.find("rows removed") == std::string::npos; ++wait) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::ifstream file(Path("purge.err"));
    err.assign(std::istreambuf_iterator<char>(file), {});
  }
  kill(tool, SIGINT);
  ToolRun stopped = Wait(tool, "purge");
  ASSERT_EQ(stopped.status, 130) << stopped.err;
  EXPECT_TRUE(Contains(stopped.err, "purge interrupted"));

  // Whole batches went, every newer row and every row's value stayed.
  std::string drift = fmt::format("v <> time or time >= {}", kCutoff);
  EXPECT_EQ(Count("samples", drift), fmt::format("n\n{}\n", rows - rows / 2));
  long older = std::stol(Count("samples", fmt::format("time < {}", kCutoff)).substr(2));
  EXPECT_GT(older, 0);
  EXPECT_LT(older, rows / 2);
  EXPECT_EQ((rows / 2 - older) % 10, 0);

  nlohmann::json rerun = Json({"purge", "--before", Cut(), "samples"});
  EXPECT_EQ(rerun[0]["removed"], older);
  EXPECT_EQ(Count("samples"), fmt::format("n\n{}\n", rows - rows / 2));
}

INSTANTIATE_ON_EACH_DATABASE(Purge);

}  // namespace
}  // namespace scadastore::tooltest
