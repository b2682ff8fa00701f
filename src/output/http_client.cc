#include "output/http_client.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/platform.h"

namespace tessera {
namespace {

constexpr long kTimeoutSeconds = 30;
// Nothing reads the server's answer; keeping at most this much of it bounds the memory that a
// talkative server can take, while the rest is still accepted so the transfer completes.
constexpr size_t kResponseKeep = 64 * 1024;

// Copies text into a fixed buffer, cutting it to fit.
void copyText(char* out, size_t size, const char* text) {
  snprintf(out, size, "%s", text != nullptr ? text : "");
}

}  // namespace

HTTPClient::HTTPClient(const HttpPostConfig& config) : config_(config) {
  handle_ = curl_easy_init();
}

HTTPClient::~HTTPClient() {
  if (handle_ != nullptr) curl_easy_cleanup(handle_);
  if (headers_ != nullptr) curl_slist_free_all(headers_);
  free(response_);
}

void HTTPClient::setError(int32_t code, const char* text) {
  error_.code = code;
  copyText(error_.text, sizeof error_.text, text);
}

int HTTPClient::open(int method, const char* url, bool tls) {
  if (handle_ == nullptr) {
    setError(-1, "InternetOpen");
    return -1;
  }
  // An empty proxy keeps http_proxy and friends from the environment out of the way; prepare()
  // sets the configured proxy, if any.
  CURLcode rc = curl_easy_setopt(handle_, CURLOPT_PROXY, "");
  if (rc != CURLE_OK) {
    setError(rc, curl_easy_strerror(rc));
    return -1;
  }
  // Room is kept for the "/" appended below.
  copyText(url_, sizeof url_ - 1, url);
  if (tls) {
    tls_ = true;
    const std::string caFile = platform::path("/etc/ssl/server.crt");
    curl_easy_setopt(handle_, CURLOPT_VERBOSE, 0L);
    curl_easy_setopt(handle_, CURLOPT_HEADER, 0L);
    curl_easy_setopt(handle_, CURLOPT_NOPROGRESS, 1L);
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle_, CURLOPT_SSLCERTTYPE, "PEM");
    curl_easy_setopt(handle_, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(handle_, CURLOPT_SSL_VERIFYPEER, config_.VerifyPeer ? 1L : 0L);
    curl_easy_setopt(handle_, CURLOPT_SSL_VERIFYHOST, config_.VerifyHost ? 2L : 0L);
  }
  const size_t length = strlen(url_);
  url_[length] = '/';
  url_[length + 1] = '\0';
  method_ = method;
  return 0;
}

int HTTPClient::prepare(const char* url) {
  const size_t size = strlen(url != nullptr ? url : "") + 20;
  requestUrl_ = std::make_unique<char[]>(size);
  copyText(requestUrl_.get(), size, url_);

  CURLcode rc = curl_global_init(CURL_GLOBAL_ALL);
  if (rc != CURLE_OK) fprintf(stderr, "curl_global_init() failed: %s\n", curl_easy_strerror(rc));
  if (handle_ == nullptr) return 0;

  curl_easy_setopt(handle_, CURLOPT_URL, requestUrl_.get());
  curl_easy_setopt(handle_, CURLOPT_TIMEOUT, kTimeoutSeconds);
  char credentials[2 * sizeof config_.HTTPUserName + 2];
  if (config_.HTTPAuthenticationType != 0) {
    curl_easy_setopt(handle_, CURLOPT_HTTPAUTH,
                     static_cast<unsigned long>(config_.HTTPAuthenticationType));
    snprintf(credentials, sizeof credentials, "%.127s:%.127s", config_.HTTPUserName,
             config_.HTTPPassword);
    curl_easy_setopt(handle_, CURLOPT_USERPWD, credentials);
  }
  if (config_.ProxyEnabled) {
    char proxy[sizeof config_.HTTPProxyServerURL];
    copyText(proxy, sizeof proxy, config_.HTTPProxyServerURL);
    curl_easy_setopt(handle_, CURLOPT_PROXY, proxy);
    curl_easy_setopt(handle_, CURLOPT_PROXYPORT, static_cast<long>(config_.HTTPProxyPort));
    if (config_.HTTPProxyTunnel) curl_easy_setopt(handle_, CURLOPT_HTTPPROXYTUNNEL, 1L);
    if (config_.HTTPProxyAuthenticationType != 0) {
      curl_easy_setopt(handle_, CURLOPT_PROXYAUTH,
                       static_cast<unsigned long>(config_.HTTPProxyAuthenticationType));
      snprintf(credentials, sizeof credentials, "%.127s:%.127s", config_.HTTPProxyUserName,
               config_.HTTPProxyPassword);
      curl_easy_setopt(handle_, CURLOPT_PROXYUSERPWD, credentials);
    }
  }
  // libcurl keeps its own copies of option texts, so the credentials may go out of scope.
  memset(credentials, 0, sizeof credentials);
  return 0;
}

size_t HTTPClient::collect(char* data, size_t size, size_t count, void* self) {
  HTTPClient& client = *static_cast<HTTPClient*>(self);
  const size_t delivered = size * count;
  const size_t keep = client.responseLength_ >= kResponseKeep
                          ? 0
                          : std::min(delivered, kResponseKeep - client.responseLength_);
  if (keep == 0) return delivered;
  char* grown = static_cast<char*>(realloc(client.response_, client.responseLength_ + keep + 1));
  if (grown == nullptr) {
    fputs("not enough memory (realloc returned NULL)", stdout);
    fflush(stdout);
    return 0;
  }
  client.response_ = grown;
  memcpy(client.response_ + client.responseLength_, data, keep);
  client.responseLength_ += keep;
  client.response_[client.responseLength_] = '\0';
  return delivered;
}

int HTTPClient::progress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const std::atomic<bool>* flag = static_cast<HTTPClient*>(self)->abortFlag_;
  return flag != nullptr && flag->load() ? 1 : 0;
}

int HTTPClient::post(const char* body, size_t /*length: libcurl measures the text itself*/) {
  if (handle_ == nullptr) {
    setError(-1, "InternetOpen");
    return -1;
  }
  curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, body);
  headers_ = curl_slist_append(headers_, "Accept: application/json");
  headers_ = curl_slist_append(headers_, "Content-Type: application/json");
  headers_ = curl_slist_append(headers_, "charsets: utf-8");
  curl_easy_setopt(handle_, CURLOPT_CUSTOMREQUEST, "POST");
  curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, headers_);

  free(response_);
  responseLength_ = 0;
  response_ = static_cast<char*>(malloc(1));
  if (response_ == nullptr) {
    fputs("malloc() failed\n", stderr);
    exit(EXIT_FAILURE);
  }
  response_[0] = '\0';
  curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &HTTPClient::collect);
  curl_easy_setopt(handle_, CURLOPT_WRITEDATA, this);
  if (abortFlag_ != nullptr) {
    // The progress callback is libcurl's only way out of a transfer waiting on a stalled server.
    curl_easy_setopt(handle_, CURLOPT_XFERINFOFUNCTION, &HTTPClient::progress);
    curl_easy_setopt(handle_, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(handle_, CURLOPT_NOPROGRESS, 0L);
  }
  const CURLcode rc = curl_easy_perform(handle_);
  // The handle keeps the option; it must not point at a list that is freed below.
  curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, nullptr);
  curl_slist_free_all(headers_);
  headers_ = nullptr;
  // The answer is not used; it is released at once rather than held until the next post.
  free(response_);
  response_ = nullptr;
  responseLength_ = 0;
  if (rc != CURLE_OK) {
    setError(rc, curl_easy_strerror(rc));
    return -1;
  }
  status_ = 0;
  curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status_);
  return 0;
}

void HTTPClient::lastError(HttpErrorRecord* out) const {
  if (out == nullptr) return;
  *out = error_;
}

}  // namespace tessera
