// The Windows socket list, wait cut and session check, on Winsock sockets of
// the test itself: under Wine the ODBC drivers are the host's Linux ones, whose
// sockets Winsock does not see.
#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <optional>

#include "core/connect.h"
#include "core/odbc_handle.h"
#include "core/server_wait.h"
#include "core/settings.h"
#include "platform/connection_socket.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

using Clock = std::chrono::steady_clock;

// A client socket connected to a server that never answers.
class SilentPeer : public ::testing::Test {
 protected:
  void SetUp() override {
    WSADATA data;
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    // Listens on a free port of 127.0.0.1 and never accepts.
    server_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof address;
    ASSERT_EQ(bind(server_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(server_, 8), 0);
    ASSERT_EQ(getsockname(server_, reinterpret_cast<sockaddr*>(&address), &length), 0);
    before_ = OpenSockets();
    client_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(connect(client_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  void TearDown() override {
    if (client_ != INVALID_SOCKET) closesocket(client_);
    if (server_ != INVALID_SOCKET) closesocket(server_);
    WSACleanup();
  }

  // A recv that blocks until something cuts it: its result, or nothing when
  // nothing did within 5 s (the socket is then closed to end the wait).
  std::optional<int> BlockedRecv(const std::function<void()>& cut) {
    auto received = std::async(std::launch::async, [this] {
      char byte;
      return recv(client_, &byte, 1, 0);
    });
    cut();
    if (received.wait_for(std::chrono::seconds(5)) == std::future_status::ready)
      return received.get();
    closesocket(client_);
    client_ = INVALID_SOCKET;
    return std::nullopt;
  }

  SOCKET server_ = INVALID_SOCKET;
  SocketList before_;
  SOCKET client_ = INVALID_SOCKET;
};

TEST_F(SilentPeer, ShutdownCutsARecvWaitingInAnotherThread) {
  const std::optional<int> received = BlockedRecv([this] {
    Sleep(300);
    ShutdownSocket(static_cast<int>(client_));
  });
  ASSERT_TRUE(received.has_value()) << "the recv was not cut";
  EXPECT_LE(*received, 0);
  char byte;
  EXPECT_LE(recv(client_, &byte, 1, 0), 0) << "a later wait must fail at once";
}

TEST_F(SilentPeer, AServerWaitLimitCutsTheWaitInTime) {
  const auto start = Clock::now();
  std::optional<ServerWaitLimit> limit;
  const std::optional<int> received =
      BlockedRecv([&] { limit.emplace(static_cast<int>(client_), 1); });
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  ASSERT_TRUE(received.has_value()) << "the recv was not cut";
  EXPECT_TRUE(limit->expired());
  EXPECT_GE(seconds, 0.9);
  EXPECT_LT(seconds, 2.5);
}

// The session's socket is listed until closed; its peer's close reads as input.
TEST_F(SilentPeer, TheSocketIsListedAndAPeersCloseIsSeenAsInput) {
  SocketList opened;
  for (const auto& entry : OpenSockets())
    if (std::find(before_.begin(), before_.end(), entry) == before_.end()) opened.push_back(entry);
  ASSERT_EQ(opened.size(), 1u);
  EXPECT_EQ(opened.front().second, static_cast<int>(client_));
  EXPECT_FALSE(SocketHasInput(static_cast<int>(client_))) << "an idle session has no input";
  closesocket(server_);  // the connection, never accepted, is reset
  server_ = INVALID_SOCKET;
  const auto deadline = Clock::now() + std::chrono::seconds(2);
  while (!SocketHasInput(static_cast<int>(client_)) && Clock::now() < deadline) Sleep(20);
  EXPECT_TRUE(SocketHasInput(static_cast<int>(client_)));
  closesocket(client_);
  for (const auto& entry : OpenSockets()) EXPECT_NE(entry.second, static_cast<int>(client_));
  client_ = INVALID_SOCKET;
}

// A server connection whose socket is not seen must not pass for a file
// database: it would be pooled and handed out without a check.
class DriverSocket : public DatabaseTest {};

TEST_P(DriverSocket, OnlyAFileDatabaseHasNoSocket) {
  OdbcHandle environment(SQL_HANDLE_ENV), connection(SQL_HANDLE_DBC);
  ASSERT_TRUE(environment.Allocate(SQL_NULL_HANDLE));
  SQLSetEnvAttr(environment.get(), SQL_ATTR_ODBC_VERSION,
                reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  ASSERT_TRUE(connection.Allocate(environment.get()));
  const ConnectionSettings& settings = Settings();
  int socket = 0;
  ASSERT_TRUE(SQL_SUCCEEDED(
      Connect(connection.get(), settings.dsn, settings.user, settings.password, 5, 5, socket)));
  // Under Wine the driver is a Linux library: its socket is not a Winsock one.
  EXPECT_EQ(socket, GetParam().sqlite() ? kNoSocket : kUnknownSocket);
  SQLDisconnect(connection.get());
}

INSTANTIATE_TEST_SUITE_P(Each, DriverSocket, ::testing::ValuesIn(Databases({1})), DatabaseName);

}  // namespace
}  // namespace scadastore::testing
