// alarms and logs: add, query, confirm, recover and count through the tool.
#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

class Alarms : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    Ok({"ensure", "alarm", "events"});
    Add({"--station", "north", "--tag", "temp", "--value", "81.5", "--type", "1", "--level", "2",
         "--description", "high, it's hot", "--time", "2024-05-01 08:00:00"});
    Add({"--station", "south", "--tag", "pump", "--tagtype", "4", "--value", "1", "--type", "2",
         "--level", "1", "--time", "2024-05-01 09:00:00"});
    Add({"--station", "north", "--tag", "flow", "--value", "-3.25", "--type", "3", "--level",
         "3", "--time", "2024-05-01 10:00:00"});
  }
  void Add(std::vector<std::string> args) {
    args.insert(args.begin(), {"alarms", "add", "events"});
    Ok(args);
  }
  std::vector<int> Ids(std::vector<std::string> query) {
    query.insert(query.begin(), {"alarms", "events"});
    std::vector<int> ids;
    for (const auto& alarm : Json(query)) ids.push_back(alarm["id"]);
    return ids;
  }
};

// Every field in the order of the record: the flag of tag type 4 as 1, an
// open alarm without a recovery time; the query options select their alarms.
TEST_F(Alarms, StoredFieldsReadBackAndQueriesSelect) {
  Ok({"alarms", "ack", "events", "1", "--status", "2"});
  Ok({"alarms", "recover", "events", "1", "--time", "2024-05-01 08:05:00"});
  EXPECT_EQ(Ok({"alarms", "events", "--format", "csv"}),
            "id,station,tag,tagtype,value,type,level,arisetime,ms,status,recovertime,ip,"
            "description,batch\n"
            "1,north,temp,0,81.5,1,2,2024-05-01 08:00:00,0,2,2024-05-01 08:05:00,0,"
            "\"high, it's hot\",\n"
            "2,south,pump,4,1,2,1,2024-05-01 09:00:00,0,0,,0,,\n"
            "3,north,flow,0,-3.25,3,3,2024-05-01 10:00:00,0,0,,0,,\n");
  EXPECT_TRUE(Contains(Ok({"alarms", "events", "--format", "table"}), "south    pump"));
  EXPECT_EQ(Ok({"alarms", "count", "events"}), "3\n");

  EXPECT_EQ(Ids({"--level", "2"}), (std::vector<int>{1, 3}));
  EXPECT_EQ(Ids({"--station", "north", "--level", "3"}), (std::vector<int>{3}));
  EXPECT_EQ(Ids({"--station", "north", "--tag", "temp"}), (std::vector<int>{1}));
  EXPECT_EQ(Ids({"--type", "2", "--type", "3"}), (std::vector<int>{2, 3}));
  EXPECT_EQ(Ids({"--point", "south/pump/4"}), (std::vector<int>{2}));
  EXPECT_EQ(Ids({"--point", "south/pump/0"}), (std::vector<int>{}));
  // [--from, --to): the alarm at 09:00 is in the range that starts then, not in the one ending then.
  EXPECT_EQ(Ids({"--from", "2024-05-01 09:00", "--to", "2024-05-01 09:01"}), (std::vector<int>{2}));
  EXPECT_EQ(Ids({"--from", "2024-05-01 08:30", "--to", "2024-05-01 09:00"}), (std::vector<int>{}));
  EXPECT_EQ(Ids({"--first", "2"}), (std::vector<int>{1, 2}));

  // Combinations that one query cannot express are refused.
  EXPECT_EQ(Run({"alarms", "events", "--type", "1", "--station", "north"}).status, 2);
  EXPECT_EQ(Run({"alarms", "events", "--tag", "temp"}).status, 2);
}

class Logs : public ToolTest {};

// Every field in the order of the record; [--from, --to) as for alarms.
TEST_F(Logs, FieldsReadBackInTheirRangeAndCount) {
  Ok({"ensure", "log", "journal"});
  EXPECT_EQ(Ok({"logs", "add", "journal", "--type", "2", "--source", "console", "--info",
                "pump 3, it's started", "--operator", "anna", "--time", "2024-05-01 10:00:00",
                "--ms", "250"}),
            "1\n");
  EXPECT_EQ(Ok({"log", "journal", "--type", "1", "--source", "system", "--info", "shift change",
                "--time", "1714561200"}),
            "2\n");
  EXPECT_EQ(Ok({"logs", "journal", "--format", "csv"}),
            "id,time,ms,type,source,info,operator,monitor,verify,ip,ackinfo,batch\n"
            "1,2024-05-01 10:00:00,250,2,console,\"pump 3, it's started\",anna,,,0,,\n"
            "2,2024-05-01 11:00:00,0,1,system,shift change,,,,0,,\n");
  nlohmann::json first = Json({"logs", "journal", "--from", "2024-05-01 09:00", "--to",
                               "2024-05-01 11:00"});
  ASSERT_EQ(first.size(), 1u);
  EXPECT_EQ(first[0]["id"], 1);
  EXPECT_EQ(Ok({"logs", "count", "journal"}), "2\n");
  EXPECT_EQ(Run({"logs", "journal", "--from", "2024-05-01 11:00", "--to", "2024-05-01"}).status, 2);
}

}  // namespace
}  // namespace scadastore::tooltest
