// A plain libcurl client for looking at the simulator from outside. Sends exactly the bytes it is given, follows no
// redirects, trusts the sandbox's bundle.
#pragma once

#include <string>
#include <vector>

struct Exchange {
  int curlCode = 0;
  long status = 0;
  std::string head, body;
  double seconds = 0;
};

struct CurlOptions {
  std::vector<std::string> headers = {};
  long timeoutMs = 20000;
  std::string caFile = "/etc/ssl/certs/ca-certificates.crt";
  std::size_t mostBytes = 0;  ///< not 0: gives up after so much body
  std::string method = {};    ///< instead of GET or POST
};

/// POST with this body.
Exchange Post(const std::string& url, const std::string& body, const CurlOptions& options = {});
Exchange Get(const std::string& url, const CurlOptions& options = {});
