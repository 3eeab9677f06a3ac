// The monitor channel end to end: a receiver in this process, failures of a
// real SQLite connection delivered to it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <string>

#include "core/connection.h"
#include "core/settings.h"
#include "platform/monitor_channel.h"
#include "tools/monitor_receiver.h"

namespace scadastore {
namespace {

using Clock = std::chrono::steady_clock;

class MonitorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* sqlite = std::getenv("SCADASTORE_TEST_SQLITE");
    if (sqlite == nullptr) GTEST_SKIP() << "SCADASTORE_TEST_SQLITE is not set";
    ASSERT_TRUE(ParseSettings((std::string(sqlite) + ";1").c_str(), Settings()));
    ASSERT_EQ(db.Open(), 1) << db.ErrorText();
  }

  // Runs a failing statement while the receiver takes one delivery.
  bool FailAndReceive(MonitorReceiver::Reply reply, MonitorDelivery& delivery) {
    auto received = std::async(std::launch::async,
                               [&] { return receiver.Receive(3000, delivery, reply); });
    EXPECT_EQ(db.Execute("selec broken"), 0);
    return received.get();
  }

  double SecondsForFailingStatement() {
    auto start = Clock::now();
    EXPECT_EQ(db.Execute("selec broken"), 0);
    return std::chrono::duration<double>(Clock::now() - start).count();
  }

  MonitorReceiver receiver;
  DbConnection db;
};

TEST_F(MonitorTest, ReceiverGetsExactlyTheConnectionText) {
  std::string error;
  ASSERT_TRUE(receiver.Start(getpid(), error)) << error;
  MonitorDelivery delivery;
  ASSERT_TRUE(FailAndReceive(MonitorReceiver::Reply::Answer, delivery));
  EXPECT_EQ(delivery.message, 6119u);
  EXPECT_EQ(delivery.wParam, 21u);
  EXPECT_EQ(delivery.text, db.ErrorText());
  EXPECT_EQ(delivery.text.rfind("ret: -1, msg: ", 0), 0u);
}

TEST_F(MonitorTest, NothingIsSentWithoutAMessage) {
  std::string error;
  ASSERT_TRUE(receiver.Start(getpid(), error)) << error;
  ASSERT_EQ(db.Execute("create table monitor_quiet (id integer)"), 1) << db.ErrorText();
  // No row matches: return code 100 without a diagnostic, so no delivery.
  EXPECT_EQ(db.Execute("delete from monitor_quiet where id = 1"), 0);
  MonitorDelivery delivery;
  EXPECT_FALSE(receiver.Receive(200, delivery));
  db.Execute("drop table monitor_quiet");
}

TEST_F(MonitorTest, SilenceWithoutAReceiver) {
  shm_unlink(kMonitorBlockName);
  EXPECT_LT(SecondsForFailingStatement(), 2.0);

  std::string error;
  ASSERT_TRUE(receiver.Start(0, error)) << error;  // published id 0
  EXPECT_LT(SecondsForFailingStatement(), 2.0);
  receiver.Stop();

  // A stale id whose socket is gone.
  ASSERT_TRUE(receiver.Start(999999, error)) << error;
  unlink(MonitorSocketPath(999999).c_str());
  EXPECT_LT(SecondsForFailingStatement(), 2.0);
  EXPECT_STRNE(db.ErrorText(), "");
}

TEST_F(MonitorTest, SilentReceiverDelaysAtMostFiveSeconds) {
  std::string error;
  ASSERT_TRUE(receiver.Start(getpid(), error)) << error;
  MonitorDelivery delivery;
  auto start = Clock::now();
  ASSERT_TRUE(FailAndReceive(MonitorReceiver::Reply::Silent, delivery));
  double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_GE(seconds, 4.5);
  EXPECT_LT(seconds, 8.0);
}

TEST_F(MonitorTest, HungUpReceiverRaisesNoSigpipe) {
  signal(SIGPIPE, SIG_DFL);  // a SIGPIPE would end this process
  std::string error;
  ASSERT_TRUE(receiver.Start(getpid(), error)) << error;
  for (int i = 0; i < 5; ++i) {
    MonitorDelivery delivery;
    FailAndReceive(MonitorReceiver::Reply::HangUp, delivery);
  }
  SUCCEED();
}

TEST_F(MonitorTest, RefusedConnectIsAnnounced) {
  const char* postgres = std::getenv("SCADASTORE_TEST_POSTGRES");
  if (postgres == nullptr) GTEST_SKIP() << "SCADASTORE_TEST_POSTGRES is not set";
  std::string config = postgres;
  std::string dsn = config.substr(0, config.find(';'));
  std::string error;
  ASSERT_TRUE(receiver.Start(getpid(), error)) << error;
  MonitorDelivery delivery;
  auto received = std::async(std::launch::async, [&] { return receiver.Receive(10000, delivery); });
  DbConnection refused;
  EXPECT_EQ(refused.Open(dsn.c_str(), "nobody", "wrong"), 0);
  ASSERT_TRUE(received.get());
  EXPECT_EQ(delivery.text, refused.ErrorText());
  EXPECT_NE(delivery.text.find("nobody"), std::string::npos) << delivery.text;
}

}  // namespace
}  // namespace scadastore
