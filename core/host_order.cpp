#include "core/host_order.h"

#include <chrono>
#include <map>
#include <mutex>
#include <sstream>
#include <vector>

#include "platform/odbc.h"  // before <odbcinst.h>, which needs its types on Windows

#include <odbcinst.h>

namespace scadastore {
namespace {

using Clock = std::chrono::steady_clock;

std::mutex silent_lock;
// Per host list (as written in the data source): host and when it fell silent.
std::map<std::string, std::map<std::string, Clock::time_point>> silent_hosts;

std::vector<std::string> Split(const std::string& list) {
  std::vector<std::string> hosts;
  std::stringstream stream(list);
  for (std::string host; std::getline(stream, host, ',');)
    if (!host.empty()) hosts.push_back(host);
  return hosts;
}

}  // namespace

HostList HostsToTry(const char* dsn) {
  HostList list;
  for (const char* key : {"SERVER", "Servername"}) {
    char value[512] = {};
    SQLGetPrivateProfileString(dsn, key, "", value, sizeof value, "odbc.ini");
    if (std::string(value).find(',') == std::string::npos) continue;
    list.key = key;
    list.hosts = value;
    break;
  }
  if (list.key.empty()) return list;
  std::vector<std::string> answering, silent;
  {
    std::lock_guard lock(silent_lock);
    auto& known = silent_hosts[list.hosts];
    const auto now = Clock::now();
    for (const std::string& host : Split(list.hosts)) {
      auto found = known.find(host);
      if (found != known.end() && now - found->second > std::chrono::seconds(kSilentHostSeconds))
        known.erase(found), found = known.end();
      (found == known.end() ? answering : silent).push_back(host);
    }
  }
  for (const auto& host : answering) list.ordered += (list.ordered.empty() ? "" : ",") + host;
  for (const auto& host : silent) list.ordered += (list.ordered.empty() ? "" : ",") + host;
  return list;
}

namespace {

void MarkSilent(const HostList& list, const std::string& host) {
  std::lock_guard lock(silent_lock);
  silent_hosts[list.hosts][host] = Clock::now();
}

}  // namespace

void MarkFirstHostSilent(const HostList& list) {
  if (!list.key.empty()) MarkSilent(list, Split(list.ordered).front());
}

void ForgetSilentHosts() {
  std::lock_guard lock(silent_lock);
  silent_hosts.clear();
}

void MarkServerSilent(const char* dsn, const std::string& peer) {
  if (peer.empty()) return;
  const HostList list = HostsToTry(dsn);
  const std::string address = peer.substr(0, peer.rfind(':'));
  for (const std::string& host : Split(list.hosts))
    if (host == peer || host == address) return MarkSilent(list, host);
}

}  // namespace scadastore
