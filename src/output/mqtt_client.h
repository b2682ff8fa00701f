// src/output/mqtt_client.h — the relay's MQTT channel: one libmosquitto client per relay start,
// kept connected by its own network thread "mqttLoop" (reconnecting with an exponential
// back-off), publishing one closed JSON batch per call, with a retained "online"/"offline" on
// the status topic and "offline" as the last will.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "config/config_records.h"
#include "config/mqtt_conf.h"

struct mosquitto;
struct mosquitto_message;

namespace tessera {

// The outcome of one publish.
enum class MqttPublishResult {
  kDelivered,  // QoS 1: the broker's PUBACK arrived; QoS 0: the message was written to the socket
  kFailed,     // not connected, refused, connection lost or no PUBACK in time: send it again
};

// The last failure: a libmosquitto error number (or -1) and its text.
struct MqttError {
  int code = 0;
  std::string text;
};

// The status texts on the status topic, retained.
inline constexpr const char* kMqttOnline = "online";
inline constexpr const char* kMqttOffline = "offline";
// How long a publish waits for its PUBACK before the batch is kept for the next pass.
inline constexpr double kMqttPubackSeconds = 10.0;
// How long a stop waits for the PUBACK of its "offline".
inline constexpr double kMqttOfflineSeconds = 2.0;
// Reconnect back-off: the first pause, doubled after each failed attempt up to the last.
inline constexpr double kMqttBackoffFirstSeconds = 1.0;
inline constexpr double kMqttBackoffMaxSeconds = 32.0;

class MqttClient {
 public:
  // Takes the section as read, the reader name and the MAC address for the topics and the
  // client id; nothing connects before start().
  MqttClient(const MqttConfig& config, const char* readerName, const char* mac);
  // Stops (see stop()) and frees the libmosquitto client.
  ~MqttClient();
  MqttClient(const MqttClient&) = delete;
  MqttClient& operator=(const MqttClient&) = delete;

  // Creates the libmosquitto client and starts the network thread, which connects in the
  // background; -1 (with lastError) when the URL or the TLS settings cannot be used.
  [[nodiscard]] int start();
  // Publishes one batch on the topic and waits for its outcome, at most kMqttPubackSeconds, or
  // about 0.1 s after *abort becomes true.
  [[nodiscard]] MqttPublishResult publish(const std::string& text);
  // Publishes a retained "offline" on the status topic (when connected), disconnects cleanly,
  // so that the broker does not send the will, and ends the network thread. Idempotent.
  void stop();
  // The last failure of start() or publish().
  MqttError lastError() const;
  // Whether the client holds a connection accepted by the broker.
  bool connected() const;
  // A publish in progress gives up soon after *flag becomes true (the flag outlives the client).
  void setAbortFlag(const std::atomic<bool>* flag) { abortFlag_ = flag; }
  // The topics after substitution, and the client id.
  const std::string& topic() const { return topic_; }
  const std::string& statusTopic() const { return statusTopic_; }
  const std::string& clientId() const { return clientId_; }

 private:
  [[nodiscard]] mosquitto* create();  // a configured client, or nullptr with lastError set
  void run();                         // the network thread
  void waitBackoff(double seconds);   // a pause that stop() ends early
  void setError(int code, const std::string& text);

  static void onConnect(mosquitto*, void* self, int rc);
  static void onDisconnect(mosquitto*, void* self, int rc);
  static void onPublish(mosquitto*, void* self, int mid);
  static void onLog(mosquitto*, void* self, int level, const char* text);

  const MqttConfig config_;
  const std::string topic_;
  const std::string statusTopic_;
  const std::string clientId_;
  const std::string readerName_;
  MqttBroker broker_;
  std::string caFile_;  // under the root
  const std::atomic<bool>* abortFlag_ = nullptr;

  // Guards mosq_ (the network thread replaces it after a loss with messages still unanswered),
  // connected_, generation_, unacked_, error_ and stopping_.
  mutable std::mutex lock_;
  std::condition_variable changed_;  // a PUBACK, a connect or a loss, or the stop
  mosquitto* mosq_ = nullptr;
  bool connected_ = false;
  bool sessionUp_ = false;   // the broker accepted the current socket; the network thread resets it
  uint64_t generation_ = 0;  // counts connection losses; a publish fails when it moves
  std::set<int> unacked_;    // message ids of batches published and not yet answered
  MqttError error_;
  bool stopping_ = false;
  bool stopped_ = false;  // stop() ran to its end
  std::thread thread_;
};

}  // namespace tessera
