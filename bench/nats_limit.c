/* What a NATS server does with raw bytes by the plain C client: the limit beside which scripts/bench-nats shows mdmsg.
 *
 *   nats_limit URL core COUNT BYTES      one connection publishes, another receives
 *   nats_limit URL stream COUNT BYTES    published with acknowledgements to the stream RAW, and read again
 *   nats_limit URL headers COUNT BYTES   the same with the headers of mdmsg publish, of which one is the message id
 *   nats_limit URL replay COUNT BYTES    reads the stream MD, which mdmsg publish has filled
 *
 * Prints messages per second: "published N" and "received N". */
#define _POSIX_C_SOURCE 200809L

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <nats/nats.h>

static double seconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

static void require(natsStatus status, const char* what) {
  if (status != NATS_OK) {
    fprintf(stderr, "%s: %s\n", what, natsStatus_GetText(status));
    exit(1);
  }
}

static void receive(natsSubscription* subscription, long count, double start) {
  for (long i = 0; i < count; ++i) {
    natsMsg* message = NULL;
    require(natsSubscription_NextMsg(&message, subscription, 10000), "receive");
    natsMsg_Destroy(message);
  }
  printf("received %.0f\n", (double)count / (seconds() - start));
}

static void publishWithHeaders(jsCtx* stream, const char* subject, const char* payload, int bytes, long number) {
  char id[64];
  natsMsg* message = NULL;
  snprintf(id, sizeof id, "machine.12345.1700000000000-%ld", number);
  require(natsMsg_Create(&message, subject, NULL, payload, bytes), "publish");
  require(natsMsgHeader_Set(message, "Md-Dictionary", "0123456789abcdef"), "publish");
  require(natsMsgHeader_Set(message, "Md-Publisher", "machine.12345.1700000000000"), "publish");
  require(natsMsgHeader_Set(message, "Nats-Msg-Id", id), "publish");
  require(js_PublishMsgAsync(stream, &message, NULL), "publish");
}

int main(int argc, char** argv) {
  if (argc != 5) {
    fprintf(stderr, "usage: nats_limit URL core|stream|headers|replay COUNT BYTES\n");
    return 2;
  }
  const int isReplay = strcmp(argv[2], "replay") == 0;
  const int hasHeaders = strcmp(argv[2], "headers") == 0;
  const int isStream = isReplay || hasHeaders || strcmp(argv[2], "stream") == 0;
  const char* const streamName = isReplay ? "MD" : hasHeaders ? "HEADERS" : "RAW";
  const char* subjects = isReplay ? "st.>" : hasHeaders ? "headers.>" : "raw.>";
  const long count = atol(argv[3]);
  const int bytes = atoi(argv[4]);
  char* const payload = calloc(1, (size_t)bytes);
  natsConnection* publisher = NULL;
  natsConnection* receiver = NULL;
  natsSubscription* subscription = NULL;
  jsCtx* stream = NULL;
  require(natsConnection_ConnectTo(&publisher, argv[1]), "connect");
  require(natsConnection_ConnectTo(&receiver, argv[1]), "connect");
  if (isReplay) {
    require(natsConnection_JetStream(&stream, publisher, NULL), "JetStream");
  } else if (isStream) {
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = streamName;
    config.Subjects = &subjects;
    config.SubjectsLen = 1;
    require(natsConnection_JetStream(&stream, publisher, NULL), "JetStream");
    require(js_AddStream(NULL, stream, &config, NULL, NULL), "create the stream");
  } else {
    require(natsConnection_SubscribeSync(&subscription, receiver, subjects), "subscribe");
    require(natsSubscription_SetPendingLimits(subscription, -1, -1), "subscribe");
    require(natsConnection_Flush(receiver), "subscribe");
  }
  double start = seconds();
  for (long i = 0; i < count && !isReplay; ++i) {
    char subject[32];
    snprintf(subject, sizeof subject, "%s.%ld.S%ld", hasHeaders ? "headers" : "raw", i % 3, i % 50);
    if (hasHeaders) {
      publishWithHeaders(stream, subject, payload, bytes, i);
      continue;
    }
    require(isStream ? js_PublishAsync(stream, subject, payload, bytes, NULL)
                     : natsConnection_Publish(publisher, subject, payload, bytes),
            "publish");
  }
  require(isStream ? js_PublishAsyncComplete(stream, NULL) : natsConnection_Flush(publisher), "publish");
  if (!isReplay) {
    printf("published %.0f\n", (double)count / (seconds() - start));
  }
  if (isStream) {
    jsCtx* reader = NULL;
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = streamName;
    options.Ordered = 1;
    require(natsConnection_JetStream(&reader, receiver, NULL), "JetStream");
    start = seconds();
    require(js_SubscribeSync(&subscription, reader, subjects, NULL, &options, NULL), "subscribe");
  }
  receive(subscription, count, start);
  return 0;
}
