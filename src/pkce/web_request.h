// One HTTPS request of the classes: 30 seconds, the library's user agent, verified TLS.
#ifndef VARNKIVO_PKCE_WEB_REQUEST_H_
#define VARNKIVO_PKCE_WEB_REQUEST_H_

#include <string.h>

#include <string>
#include <utility>
#include <vector>

namespace varnkivo {

/// Names and values, in order; the values, secrets among them, are overwritten when it goes.
struct Pairs : std::vector<std::pair<std::string, std::string>> {
  using std::vector<std::pair<std::string, std::string>>::vector;
  Pairs(const Pairs&) = default;
  Pairs& operator=(const Pairs&) = default;
  ~Pairs() {
    for (auto& pair : *this) explicit_bzero(pair.second.data(), pair.second.capacity());
  }
};

struct WebAnswer {
  WebAnswer() = default;
  WebAnswer(WebAnswer&&) = default;
  WebAnswer& operator=(WebAnswer&&) = default;
  ~WebAnswer() { explicit_bzero(body.data(), body.capacity()); }

  bool arrived = false;  // false: `code` and `message` say why there is no status and no body
  int code = 0;          // of the transport
  std::string message;
  int status = 0;
  std::string body;

  /// The body as log lines and exceptions may show it.
  std::string Shown() const;
};

/// Sends `form` in its order, or an empty body where there is none. Follows at most 5 redirects, https only; a body of
/// more than 16 MiB fails. Throws KivoException 6 when the user agent cannot be read.
WebAnswer WebPost(const std::string& url, const Pairs& headers, const Pairs& form = {});
WebAnswer WebGet(const std::string& url, const Pairs& headers, const Pairs& query);

/// `pairs` percent-encoded as the query of a URL (RFC 3986).
std::string EncodeQuery(const Pairs& pairs);

/// Throws KivoException with `code` where `value` has a control character: in a header it would begin another one.
const std::string& RequireHeaderValue(const std::string& value, int code);

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_WEB_REQUEST_H_
