// The monitor channel end to end: a receiver in this process gets a real SQLite
// connection's failures, over a channel that misbehaves in every way.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "core/connection.h"
#include "core/settings.h"
#include "platform/monitor_channel.h"
#include "platform/system_calls.h"
#include "tools/monitor_receiver.h"

namespace scadastore {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

size_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

class MonitorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* sqlite = std::getenv("SCADASTORE_TEST_SQLITE");
    if (sqlite == nullptr) GTEST_SKIP() << "SCADASTORE_TEST_SQLITE is not set";
    ASSERT_TRUE(ParseSettings((std::string(sqlite) + ";1").c_str(), Settings()));
    ASSERT_EQ(db.Open(), 1) << db.ErrorText();
  }
  void TearDown() override {
    receiver.Stop();
    shm_unlink(kMonitorBlockName);
  }

  void StartReceiver(uint64_t id) {
    std::string error;
    ASSERT_TRUE(receiver.Start(id, error)) << error;
  }

  double SecondsForFailingStatement() {
    auto start = Clock::now();
    EXPECT_EQ(db.Execute("selec broken"), 0);
    return SecondsSince(start);
  }

  // Runs a failing statement while `peer` handles the receiver's side.
  template <typename Peer>
  double FailWhile(Peer peer) {
    auto side = std::async(std::launch::async, peer);
    double seconds = SecondsForFailingStatement();
    side.get();
    return seconds;
  }

  // What the receiver gets while the failing `call` runs; "" when nothing
  // comes within `milliseconds`.
  std::string DeliveredDuring(const std::function<int()>& call, int milliseconds = 3000) {
    MonitorDelivery delivery;
    auto received =
        std::async(std::launch::async, [&] { return receiver.Receive(milliseconds, delivery); });
    EXPECT_EQ(call(), 0);
    if (!received.get()) return "";
    EXPECT_EQ(delivery.message, 6119u);
    EXPECT_EQ(delivery.wParam, 21u);
    return delivery.text;
  }

  MonitorReceiver receiver;
  DbConnection db;
};

// A receiver gets the connection's own text, exactly: for a failed statement
// and for a column refused before the driver sees it.
TEST_F(MonitorTest, ReceiversGetTheExactTextOrCostAtMostFiveSeconds) {
  StartReceiver(getpid());
  EXPECT_EQ(DeliveredDuring([&] { return db.Execute("selec broken"); }), db.ErrorText());
  uint32_t value = 0;
  EXPECT_EQ(DeliveredDuring([&] {
              return db.OpenQuery("select 1") && db.MoveToFirstRow() &&
                     db.GetInteger(2, &value, sizeof value);
            }),
            "column 2 is not in the result (1 columns)");
  // No row matches: return code 100 without a diagnostic, so no delivery.
  ASSERT_EQ(db.Execute("create table monitor_quiet (id integer)"), 1) << db.ErrorText();
  EXPECT_EQ(DeliveredDuring([&] { return db.Execute("delete from monitor_quiet where id = 1"); }, 200),
            "");
  db.Execute("drop table monitor_quiet");

  // Every way a receiver can fail to answer costs the host at most 5 seconds,
  // and none raises SIGPIPE.
  signal(SIGPIPE, SIG_DFL);  // a SIGPIPE would end this process

  // Reads the text and never answers.
  double seconds = FailWhile([&] {
    int peer = receiver.Accept(3000);
    MonitorDelivery delivery;
    EXPECT_TRUE(MonitorReceiver::Read(peer, delivery));
    pollfd hangUp{peer, POLLIN, 0};  // the sender's close ends the wait
    poll(&hangUp, 1, 7000);
    close(peer);
  });
  EXPECT_GE(seconds, 4.5);
  EXPECT_LT(seconds, 5.5);

  // Hangs up before reading.
  for (int i = 0; i < 5; ++i)
    EXPECT_LT(FailWhile([&] { close(receiver.Accept(3000)); }), 1.0);

  // Listens but never accepts: its backlog is full.
  std::vector<int> queued;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, MonitorSocketPath(getpid()).c_str());
  for (;;) {
    int client = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    ASSERT_GE(client, 0);
    if (connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      close(client);
      break;
    }
    queued.push_back(client);
  }
  auto announced = std::async(std::launch::async, [&] { return SecondsForFailingStatement(); });
  bool bounded = announced.wait_for(std::chrono::seconds(8)) == std::future_status::ready;
  receiver.Stop();  // releases a blocked connect
  for (int client : queued) close(client);
  ASSERT_TRUE(bounded) << "the announcement blocked on a listener that never accepts";
  EXPECT_LT(announced.get(), 5.5);
}

// Whatever call of the channel fails or misleads, the statement's own result
// and text stand, the host waits no longer and keeps no descriptor. Texts
// carry data: a block or a socket of another user never gets them.
TEST_F(MonitorTest, FailingSystemCallsLeaveTheHostUnharmed) {
  StartReceiver(getpid());
  auto expectUnharmed = [&](const char* name, auto& entry, auto replacement, bool delivered) {
    SCOPED_TRACE(name);
    size_t descriptors = OpenDescriptors();
    {
      SystemCallOverride broken(entry, replacement);
      MonitorDelivery delivery;
      bool received = true;
      double seconds = FailWhile([&] { received = receiver.Receive(500, delivery); });
      EXPECT_LT(seconds, 1.0);
      EXPECT_EQ(received, delivered) << delivery.text;
      EXPECT_EQ(std::string(db.ErrorText()).rfind("ret: -1, msg: ", 0), 0u) << db.ErrorText();
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
  };
  expectUnharmed("shm_open", systemCalls.shm_open,
                 +[](const char*, int, mode_t) { errno = EMFILE; return -1; }, false);
  expectUnharmed("fstat", systemCalls.fstat, +[](int, struct stat*) { errno = EIO; return -1; },
                 false);
  expectUnharmed("block of another user", systemCalls.fstat,
                 +[](int fd, struct stat* status) {
                   const int result = fstat(fd, status);
                   status->st_uid = 12345;
                   return result;
                 },
                 false);
  expectUnharmed("short pread", systemCalls.pread,
                 +[](int, void*, size_t, off_t) -> ssize_t { return 4; }, false);
  expectUnharmed("socket", systemCalls.socket,
                 +[](int, int, int) { errno = ENFILE; return -1; }, false);
  expectUnharmed("connect", systemCalls.connect,
                 +[](int, const sockaddr*, socklen_t) { errno = ECONNREFUSED; return -1; }, false);
  expectUnharmed("peer of another user", systemCalls.getsockopt,
                 +[](int, int, int, void* value, socklen_t* length) {
                   ucred other{1, 12345, 12345};
                   std::memcpy(value, &other, *length = sizeof other);
                   return 0;
                 },
                 false);
  expectUnharmed("sendmsg", systemCalls.sendmsg,
                 +[](int, const msghdr*, int) -> ssize_t { errno = ENOBUFS; return -1; }, false);
  expectUnharmed("poll", systemCalls.poll, +[](pollfd*, nfds_t, int) { errno = ENOMEM; return -1; },
                 true);
  expectUnharmed("recv", systemCalls.recv,
                 +[](int, void*, size_t, int) -> ssize_t { errno = ECONNRESET; return -1; }, true);
}

}  // namespace
}  // namespace scadastore
