// The query text of a legacy request: who the device is, who the account is, then the caller's parameters.
#ifndef VARNKIVO_TRANSPORT_KIVO_HTTPS_QUERY_H_
#define VARNKIVO_TRANSPORT_KIVO_HTTPS_QUERY_H_

#include "internal/platform_handles.h"

#include <curl/curl.h>

#include <string>

namespace varnkivo {

constexpr const char* kSenderSource = "kivo_https_req_send";

/// "NAME=VALUE&...", names as they stand, values percent-encoded. Wiped when dropped: it holds passwords and keys.
class QueryText {
 public:
  QueryText();  ///< 1024 bytes to begin with; Text() is null when there is no memory
  QueryText(const QueryText&) = delete;
  QueryText& operator=(const QueryText&) = delete;
  ~QueryText();

  const char* Text() const { return text_; }
  /// False, with a log line, when it could not be encoded or appended.
  bool Append(CURL* curl, const char* name, const char* value);

 private:
  bool Concat(const char* text);

  int size_ = 1024;
  char* text_;
};

/// Appends the device's serial number and token, the account where given, and every parameter (`params` may be null).
/// A name that the caller also put into `params` is sent twice. False, with a log line, when a step fails.
bool AppendParameters(QueryText& query, CURL* curl, const std::string& accountId, const std::string& accountPassword,
                      const VLIBSzHash* params);

}  // namespace varnkivo

#endif  // VARNKIVO_TRANSPORT_KIVO_HTTPS_QUERY_H_
