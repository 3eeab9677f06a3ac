// The servers of a data source that lists several (a cluster), in the order
// to try them. A server that left a connect waiting for the whole login
// time-out is tried last for a while, so a frozen node (one that accepts and
// never answers) costs one call the time-out, not every call.
#pragma once

#include <string>

namespace scadastore {

inline constexpr int kSilentHostSeconds = 60;

// The connection-text key and value that list `dsn`'s servers in the order to
// try now ("SERVER" for MariaDB's driver, "Servername" for psqlODBC), or an
// empty key when the data source names one server.
struct HostList {
  std::string key;
  std::string hosts;   // as listed in the data source
  std::string ordered; // silent ones last
};
HostList HostsToTry(const char* dsn);

// The first server of `list.ordered` did not answer within the login time-out.
void MarkFirstHostSilent(const HostList& list);

// A new configuration starts with every server answering.
void ForgetSilentHosts();

// The server at `peer` ("address:port") left a session's statement waiting for
// the whole statement bound. A server of `dsn`'s list matches by address and
// port, or by address alone (psqlODBC lists addresses on one port).
void MarkServerSilent(const char* dsn, const std::string& peer);

}  // namespace scadastore
