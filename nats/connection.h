// Connections to a server, and the client library's objects with their owners.
#ifndef MDMSG_NATS_CONNECTION_H
#define MDMSG_NATS_CONNECTION_H

#include <chrono>
#include <memory>
#include <string>

#include <nats/nats.h>

#include "base/errors.h"
#include "commands/nats_commands.h"

namespace MD::tool {

struct NatsDeleter {
  void operator()(natsOptions* options) const noexcept { natsOptions_Destroy(options); }
  void operator()(natsConnection* connection) const noexcept { natsConnection_Destroy(connection); }
  void operator()(natsSubscription* subscription) const noexcept { natsSubscription_Destroy(subscription); }
  void operator()(natsMsg* message) const noexcept { natsMsg_Destroy(message); }
  void operator()(natsStatistics* statistics) const noexcept { natsStatistics_Destroy(statistics); }
  void operator()(natsInbox* inbox) const noexcept { natsInbox_Destroy(inbox); }
  void operator()(jsCtx* context) const noexcept { jsCtx_Destroy(context); }
  void operator()(jsStreamInfo* info) const noexcept { jsStreamInfo_Destroy(info); }
  void operator()(jsConsumerInfo* info) const noexcept { jsConsumerInfo_Destroy(info); }
  void operator()(jsMsgMetaData* metaData) const noexcept { jsMsgMetaData_Destroy(metaData); }
};
template <class T>
using NatsPointer = std::unique_ptr<T, NatsDeleter>;

/// Where the client library stores a new object; `pointer` owns it from the end of the statement on.
template <class T>
class NatsOut {
 public:
  explicit NatsOut(NatsPointer<T>& pointer) : m_pointer(pointer) {}
  ~NatsOut() { m_pointer.reset(m_raw); }
  NatsOut(const NatsOut&) = delete;
  NatsOut& operator=(const NatsOut&) = delete;
  operator T**() { return &m_raw; }

 private:
  NatsPointer<T>& m_pointer;
  T* m_raw = nullptr;
};

/// Why the last call failed.
std::string reasonOf(natsStatus status);

/// The connection is lost and could not be made again in time.
class ServerLost : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Makes this thread, and those that it starts from here on, run on rather than give way to each thread that they wake.
/// The client library has a thread that destroys messages and is woken by nearly each of them. On a machine whose
/// processors are all busy, messages may arrive a few milliseconds later. For work of which only the rate matters; no
/// effect outside Linux.
void preferThroughput() noexcept;

/// Connects, and connects again when the connection is lost.
class Server {
 public:
  /// @param isLatency  whether each message is written to the connection at once
  /// @param reconnects whether the client library does so by itself, and keeps the subscriptions
  /// @throws UsageError when the options cannot be used
  Server(const NatsServerOptions& options, bool isLatency, bool reconnects);

  /// @throws UsageError when there is no connection
  NatsPointer<natsConnection> connect() const;
  /// One attempt after a loss. @return null when it failed
  NatsPointer<natsConnection> tryConnect() const;

  /// The server's address without a user's name and password, for reports.
  const std::string& name() const noexcept { return m_name; }
  std::chrono::milliseconds retry() const noexcept { return m_retry; }

 private:
  std::string m_name;
  std::chrono::milliseconds m_retry;
  bool m_isTls;
  NatsPointer<natsOptions> m_options;
};

}  // namespace MD::tool

#endif
