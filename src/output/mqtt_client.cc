#include "output/mqtt_client.h"

#include <mosquitto.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "platform/logger.h"
#include "platform/platform.h"

namespace tessera {
namespace {

constexpr int kLoopTimeoutMs = 1000;
constexpr auto kWaitSlice = std::chrono::milliseconds(100);
// Enough passes of the loop after the network thread has ended to write a DISCONNECT.
constexpr int kFlushPasses = 10;
constexpr int kFlushTimeoutMs = 100;

using Clock = std::chrono::steady_clock;

Clock::time_point after(double seconds) {
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

MqttClient::MqttClient(const MqttConfig& config, const char* readerName, const char* mac)
    : config_(config),
      topic_(expandTopic(config.Topic, readerName, mac)),
      statusTopic_(expandTopic(config.StatusTopic, readerName, mac)),
      clientId_(mqttClientId(config, mac)),
      readerName_(readerName ? readerName : "") {
  mosquitto_lib_init();
}

MqttClient::~MqttClient() {
  stop();
  if (mosq_ != nullptr) mosquitto_destroy(mosq_);
  mosquitto_lib_cleanup();
}

void MqttClient::setError(int code, const std::string& text) {
  std::lock_guard<std::mutex> guard(lock_);
  error_ = {code, text};
}

MqttError MqttClient::lastError() const {
  std::lock_guard<std::mutex> guard(lock_);
  return error_;
}

bool MqttClient::connected() const {
  std::lock_guard<std::mutex> guard(lock_);
  return connected_;
}

mosquitto* MqttClient::create() {
  mosquitto* m = mosquitto_new(clientId_.c_str(), true, this);
  if (m == nullptr) {
    setError(MOSQ_ERR_NOMEM, "no MQTT client could be made");
    return nullptr;
  }
  // The network thread and the relay worker share the client.
  mosquitto_threaded_set(m, true);
  static_cast<void>(mosquitto_int_option(m, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311));
  int rc = MOSQ_ERR_SUCCESS;
  if (config_.UserName[0] != '\0') {
    rc = mosquitto_username_pw_set(m, config_.UserName,
                                   config_.Password[0] != '\0' ? config_.Password : nullptr);
  }
  if (rc == MOSQ_ERR_SUCCESS) {
    rc = mosquitto_will_set(m, statusTopic_.c_str(), static_cast<int>(std::strlen(kMqttOffline)),
                            kMqttOffline, 1, true);
  }
  if (rc == MOSQ_ERR_SUCCESS && broker_.tls) {
    // Without a CA file the broker's chain must verify against the system's trusted roots.
    const char* caFile = caFile_.empty() ? nullptr : caFile_.c_str();
    const char* caPath = caFile_.empty() ? "/etc/ssl/certs" : nullptr;
    rc = mosquitto_tls_set(m, caFile, caPath, nullptr, nullptr, nullptr);
    if (rc != MOSQ_ERR_SUCCESS) {
      setError(rc, "CA file " + caFile_ + " cannot be used: " + mosquitto_strerror(rc));
      mosquitto_destroy(m);
      return nullptr;
    }
  }
  if (rc != MOSQ_ERR_SUCCESS) {
    setError(rc, mosquitto_strerror(rc));
    mosquitto_destroy(m);
    return nullptr;
  }
  mosquitto_connect_callback_set(m, onConnect);
  mosquitto_disconnect_callback_set(m, onDisconnect);
  mosquitto_publish_callback_set(m, onPublish);
  mosquitto_log_callback_set(m, onLog);
  return m;
}

int MqttClient::start() {
  if (!parseBrokerUrl(config_.BrokerURL, broker_)) {
    setError(MOSQ_ERR_INVAL, std::string("unusable broker URL ") + config_.BrokerURL);
    return -1;
  }
  if (config_.CAFile[0] != '\0') caFile_ = platform::path(config_.CAFile);
  mosquitto* m = create();
  if (m == nullptr) return -1;
  {
    std::lock_guard<std::mutex> guard(lock_);
    mosq_ = m;
  }
  thread_ = std::thread([this] { run(); });
  pthread_setname_np(thread_.native_handle(), "mqttLoop");
  return 0;
}

void MqttClient::waitBackoff(double seconds) {
  std::unique_lock<std::mutex> lock(lock_);
  changed_.wait_until(lock, after(platform::scaledSeconds(seconds)), [this] { return stopping_; });
}

// Connects, runs libmosquitto's loop while connected, and after a failure or a loss pauses for
// the back-off and connects again, until stop(). libmosquitto's own loop_forever ends for good
// on a TLS error, but a broker whose certificate is fixed later must still be reached.
void MqttClient::run() {
  double backoff = kMqttBackoffFirstSeconds;
  bool socketOpen = false;
  for (;;) {
    mosquitto* m;
    {
      std::lock_guard<std::mutex> guard(lock_);
      if (stopping_ || mosq_ == nullptr) return;
      m = mosq_;
    }
    int rc;
    if (!socketOpen) {
      rc = mosquitto_connect_async(m, broker_.host.c_str(), broker_.port, config_.KeepAlive);
      socketOpen = rc == MOSQ_ERR_SUCCESS;
    } else {
      rc = mosquitto_loop(m, kLoopTimeoutMs, 1);
    }
    if (rc == MOSQ_ERR_SUCCESS) {
      if (connected()) backoff = kMqttBackoffFirstSeconds;
      continue;
    }
    socketOpen = false;
    bool wasConnected;
    {
      std::lock_guard<std::mutex> guard(lock_);
      if (stopping_) return;
      wasConnected = sessionUp_;
      sessionUp_ = false;
      // Batches left unanswered would be sent again by libmosquitto after the reconnect, while
      // the worker sends them again inside a larger batch; a fresh client forgets them, so that
      // a batch arrives again only whole.
      if (!unacked_.empty()) {
        mosquitto_destroy(mosq_);
        mosq_ = nullptr;
        unacked_.clear();
      }
    }
    if (mosq_ == nullptr) {
      mosquitto* fresh = create();
      std::lock_guard<std::mutex> guard(lock_);
      mosq_ = fresh;
    }
    if (wasConnected) {
      backoff = kMqttBackoffFirstSeconds;
    } else if (rc != MOSQ_ERR_CONN_REFUSED) {  // a refusal was logged with its reason
      Logger::log(LogLevel::kInfo, "Tagrelay: MQTT connection to %s:%d failed - %d : %s\n", broker_.host.c_str(),
                  broker_.port, rc, mosquitto_strerror(rc));
    }
    waitBackoff(backoff);
    backoff = std::min(backoff * 2, kMqttBackoffMaxSeconds);
  }
}

MqttPublishResult MqttClient::publish(const std::string& text) {
  std::unique_lock<std::mutex> lock(lock_);
  if (mosq_ == nullptr || !connected_) {
    error_ = {MOSQ_ERR_NO_CONN, mosquitto_strerror(MOSQ_ERR_NO_CONN)};
    return MqttPublishResult::kFailed;
  }
  int mid = 0;
  int rc = mosquitto_publish(mosq_, &mid, topic_.c_str(), static_cast<int>(text.size()),
                             text.data(), static_cast<int>(config_.QoS), false);
  if (rc != MOSQ_ERR_SUCCESS) {
    error_ = {rc, mosquitto_strerror(rc)};
    return MqttPublishResult::kFailed;
  }
  unacked_.insert(mid);
  const uint64_t generation = generation_;
  const auto deadline = after(kMqttPubackSeconds);
  auto aborted = [this] { return stopping_ || (abortFlag_ != nullptr && abortFlag_->load()); };
  while (generation_ == generation && unacked_.count(mid) != 0 && !aborted() &&
         Clock::now() < deadline) {
    changed_.wait_for(lock, kWaitSlice);
  }
  // A loss decides first: a fresh client after it no longer knows the message.
  if (generation_ != generation) {
    error_ = {MOSQ_ERR_CONN_LOST, "connection lost before the broker answered"};
    return MqttPublishResult::kFailed;
  }
  if (unacked_.count(mid) == 0) return MqttPublishResult::kDelivered;
  error_ = aborted() ? MqttError{MOSQ_ERR_INVAL, "relay stopping"}
                     : MqttError{MOSQ_ERR_TIMEOUT, "no PUBACK within 10 seconds"};
  return MqttPublishResult::kFailed;
}

void MqttClient::stop() {
  {
    std::unique_lock<std::mutex> lock(lock_);
    if (stopped_) return;
    stopped_ = true;
    if (mosq_ != nullptr && connected_) {
      int mid = 0;
      if (mosquitto_publish(mosq_, &mid, statusTopic_.c_str(),
                            static_cast<int>(std::strlen(kMqttOffline)), kMqttOffline, 1,
                            true) == MOSQ_ERR_SUCCESS) {
        unacked_.insert(mid);
        const uint64_t generation = generation_;
        const auto deadline = after(kMqttOfflineSeconds);
        while (generation_ == generation && unacked_.count(mid) != 0 && Clock::now() < deadline) {
          changed_.wait_for(lock, kWaitSlice);
        }
      }
    }
    stopping_ = true;
    // A DISCONNECT tells the broker not to send the will.
    if (mosq_ != nullptr) static_cast<void>(mosquitto_disconnect(mosq_));
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
  // The network thread may have ended before it wrote the DISCONNECT.
  if (mosq_ != nullptr) {
    for (int i = 0; i < kFlushPasses; ++i) {
      if (mosquitto_loop(mosq_, kFlushTimeoutMs, 1) != MOSQ_ERR_SUCCESS) break;
    }
  }
}

void MqttClient::onConnect(mosquitto* m, void* self, int rc) {
  auto* client = static_cast<MqttClient*>(self);
  if (rc != 0) {
    Logger::log(LogLevel::kInfo, "Tagrelay: MQTT broker refused the connection - %d : %s\n", rc,
                mosquitto_connack_string(rc));
    return;
  }
  Logger::log(LogLevel::kInfo, "Tagrelay: MQTT connected to %s:%d\n", client->broker_.host.c_str(),
              client->broker_.port);
  // A refused "online" shows as a missing status; the batches do not depend on it.
  static_cast<void>(mosquitto_publish(m, nullptr, client->statusTopic_.c_str(),
                                      static_cast<int>(std::strlen(kMqttOnline)), kMqttOnline, 1,
                                      true));
  {
    std::lock_guard<std::mutex> guard(client->lock_);
    client->connected_ = true;
    client->sessionUp_ = true;
  }
  client->changed_.notify_all();
}

void MqttClient::onDisconnect(mosquitto*, void* self, int rc) {
  auto* client = static_cast<MqttClient*>(self);
  {
    std::lock_guard<std::mutex> guard(client->lock_);
    if (client->connected_ && rc != 0 && !client->stopping_) {
      Logger::log(LogLevel::kInfo, "Tagrelay: MQTT connection lost - %d : %s\n", rc, mosquitto_strerror(rc));
    }
    client->connected_ = false;
    ++client->generation_;
  }
  client->changed_.notify_all();
}

void MqttClient::onPublish(mosquitto*, void* self, int mid) {
  auto* client = static_cast<MqttClient*>(self);
  {
    std::lock_guard<std::mutex> guard(client->lock_);
    client->unacked_.erase(mid);
  }
  client->changed_.notify_all();
}

void MqttClient::onLog(mosquitto*, void*, int level, const char* text) {
  // libmosquitto's errors carry the reason behind a bare "TLS error" (the failed verification).
  if (level & (MOSQ_LOG_ERR | MOSQ_LOG_WARNING)) Logger::log(LogLevel::kInfo, "Tagrelay: MQTT %s\n", text);
}

}  // namespace tessera
