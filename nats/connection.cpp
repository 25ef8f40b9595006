#include "nats/connection.h"

#include <sched.h>

#include <algorithm>
#include <fstream>
#include <string_view>

#include "base/quoted_text.h"

namespace MD::tool {
namespace {

/// @throws UsageError when the call failed
void require(natsStatus status, const std::string& what) {
  if (status != NATS_OK) {
    throw UsageError(what + ": " + reasonOf(status));
  }
}

/// The first line of a file. @throws UsageError
std::string secretIn(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line) || line.empty()) {
    throw UsageError("cannot read a first line from " + path);
  }
  if (line.back() == '\r') {
    line.pop_back();
  }
  return line;
}

/// A list of addresses without the user names and passwords in them.
std::string withoutSecrets(const std::string& urls) {
  std::string shown;
  for (std::size_t begin = 0; begin <= urls.size();) {
    const std::size_t end = std::min(urls.find(',', begin), urls.size());
    const std::string url = urls.substr(begin, end - begin);
    const std::size_t scheme = url.find("://");
    const std::size_t host = scheme == url.npos ? 0 : scheme + 3;
    const std::size_t at = url.rfind('@');
    shown += (shown.empty() ? "" : ",") + url.substr(0, host) + url.substr(at == url.npos ? host : at + 1);
    begin = end + 1;
  }
  return printable(shown);
}

/// Without it the client library prints what happens in its threads to standard error.
void ignoreAsynchronousError(natsConnection*, natsSubscription*, natsStatus, void*) {}

}  // namespace

std::string reasonOf(natsStatus status) {
  natsStatus last = NATS_OK;
  const char* const text = nats_GetLastError(&last);
  std::string kind = natsStatus_GetText(status);
  std::string_view detail = text != nullptr && last == status ? text : "";
  // It begins with a place in the library's sources.
  if (const std::size_t end = detail.find("): "); !detail.empty() && detail.front() == '(' && end != detail.npos) {
    detail.remove_prefix(end + 3);
  }
  if (detail.empty() || detail == kind) {
    return kind;
  }
  return status == NATS_ERR ? printable(detail) : kind + ": " + printable(detail);
}

void preferThroughput() noexcept {
#ifdef SCHED_BATCH
  if (sched_getscheduler(0) == SCHED_OTHER) {
    const sched_param none{};
    static_cast<void>(sched_setscheduler(0, SCHED_BATCH, &none));
  }
#endif
}

Server::Server(const NatsServerOptions& options, bool isLatency, bool reconnects)
    : m_name(withoutSecrets(options.url)), m_retry(options.retry), m_isTls(options.isTls) {
  require(natsOptions_Create(NatsOut(m_options)), "cannot set up a connection");
  natsOptions* const to = m_options.get();
  require(natsOptions_SetURL(to, options.url.c_str()), "--url: " + m_name);
  natsOptions_SetName(to, "mdmsg");
  natsOptions_SetTimeout(to, 5000);
  natsOptions_SetAllowReconnect(to, reconnects);
  if (reconnects) {
    constexpr std::int64_t kWaitMs = 100;
    natsOptions_SetReconnectWait(to, kWaitMs);
    natsOptions_SetReconnectJitter(to, kWaitMs, kWaitMs);
    natsOptions_SetMaxReconnect(to, static_cast<int>(std::max<std::int64_t>(1, options.retry.count() / kWaitMs)));
  }
  natsOptions_SetSendAsap(to, isLatency);
  // A server that no longer reads counts as lost.
  natsOptions_SetWriteDeadline(to, 10000);
  natsOptions_SetPingInterval(to, 10000);
  natsOptions_SetErrorHandler(to, &ignoreAsynchronousError, nullptr);
  if (options.credentialsFile) {
    require(natsOptions_SetUserCredentialsFromFiles(to, options.credentialsFile->c_str(), nullptr),
            "--credentials " + *options.credentialsFile);
  }
  if (options.user) {
    const std::string password = options.passwordFile ? secretIn(*options.passwordFile) : std::string();
    require(natsOptions_SetUserInfo(to, options.user->c_str(), password.c_str()), "--user");
  }
  if (options.tokenFile) {
    require(natsOptions_SetToken(to, secretIn(*options.tokenFile).c_str()), "--token-file");
  }
  if (options.isTls) {
    require(natsOptions_SetSecure(to, true), "--tls");
  }
  if (options.caFile) {
    require(natsOptions_LoadCATrustedCertificates(to, options.caFile->c_str()), "--tls-ca " + *options.caFile);
  }
  if (options.certificateFile) {
    require(natsOptions_LoadCertificatesChain(to, options.certificateFile->c_str(), options.keyFile->c_str()),
            "--tls-certificate " + *options.certificateFile);
  }
}

NatsPointer<natsConnection> Server::connect() const {
  NatsPointer<natsConnection> connection;
  const natsStatus status = natsConnection_Connect(NatsOut(connection), m_options.get());
  if (status != NATS_OK) {
    // A server that refuses a client's certificate closes the connection, after the client has agreed to encryption.
    const bool isClosed = status == NATS_PROTOCOL_ERROR || status == NATS_IO_ERROR || status == NATS_CONNECTION_CLOSED;
    throw UsageError("cannot connect to " + m_name + ": " + reasonOf(status) +
                     (m_isTls && isClosed
                          ? "; the server may require a client certificate that it trusts (--tls-certificate)"
                          : ""));
  }
  return connection;
}

NatsPointer<natsConnection> Server::tryConnect() const {
  NatsPointer<natsConnection> connection;
  static_cast<void>(natsConnection_Connect(NatsOut(connection), m_options.get()));
  return connection;
}

}  // namespace MD::tool
