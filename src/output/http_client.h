// src/output/http_client.h — the relay's HTTP(S) POST channel: one libcurl easy handle set up
// once per relay start, then one JSON batch per post. Only transport failures count as
// failures; any HTTP status means the batch was delivered.
#pragma once

#include <curl/curl.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "config/config_records.h"

namespace tessera {

constexpr size_t kHttpTextSize = 260;

// The last failure: libcurl's result code (or -1) and its description.
struct HttpErrorRecord {
  int32_t code = 0;
  char text[kHttpTextSize] = {};
};

class HTTPClient {
 public:
  // Creates the easy handle; TLS, authentication and proxy come from `config`, which the caller
  // keeps alive as long as the client, when the client is opened and prepared.
  explicit HTTPClient(const HttpPostConfig& config);
  // Releases the handle, a pending header list and the request URL copy.
  virtual ~HTTPClient();
  HTTPClient(const HTTPClient&) = delete;
  HTTPClient& operator=(const HTTPClient&) = delete;

  // Keeps the URL (with "/" appended) and sets the TLS options for an https URL; 0 or -1.
  [[nodiscard]] int open(int method, const char* url, bool tls);
  // Hands the URL, the 30 s time-out, authentication and proxy to the handle; 0.
  [[nodiscard]] int prepare(const char* url);
  // Posts a NUL-terminated JSON text; 0 when the transfer completed, -1 on a transport failure.
  [[nodiscard]] int post(const char* body, size_t length);
  // The HTTP status of the last completed post; 0 before one.
  long lastStatus() const { return status_; }
  // Copies the last failure's code and text; nothing when out is null.
  void lastError(HttpErrorRecord* out) const;
  // A post in progress gives up, as a transport failure, within about a second of *flag
  // becoming true (the flag outlives the client); null, the default: posts run to completion.
  void setAbortFlag(const std::atomic<bool>* flag) { abortFlag_ = flag; }

 private:
  void setError(int32_t code, const char* text);
  static size_t collect(char* data, size_t size, size_t count, void* self);
  static int progress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

  const HttpPostConfig& config_;
  CURL* handle_ = nullptr;
  char url_[kHttpTextSize] = {};
  std::unique_ptr<char[]> requestUrl_;  // the text libcurl was given as CURLOPT_URL
  bool tls_ = false;
  int method_ = 1;  // 1: POST
  HttpErrorRecord error_;
  long status_ = 0;
  curl_slist* headers_ = nullptr;  // only during a post
  char* response_ = nullptr;       // body of the post in progress, zero-terminated
  size_t responseLength_ = 0;
  const std::atomic<bool>* abortFlag_ = nullptr;
};

}  // namespace tessera
