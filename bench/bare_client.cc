// Asks the library once for what goes over the wire, so that only the way to send it is compared.
#include "bare_client.h"

#include <json/json.h>
#include <varnkivo/varnkivo.h>

#include <sstream>
#include <stdexcept>

namespace bench {

std::string UserAgent() {
  char agent[256] = {};
  if (VARNKIVOUserAgentNameGet(agent, sizeof agent) < 0) throw std::runtime_error("no user agent");
  return agent;
}

std::string DeviceForm(const std::vector<std::pair<std::string, std::string>>& parameters) {
  char serial[36] = {}, token[33] = {};
  if (VARNKIVOGenerateToken("", "", serial, sizeof serial, token, sizeof token) < 0)
    throw std::runtime_error("no device token");
  std::string form = std::string("lu_sn=") + serial + "&lu_token=" + token;
  for (const auto& [name, value] : parameters) form += "&" + name + "=" + value;
  return form;
}

std::string RefreshToken(const std::string& set) {
  Json::Value members;
  std::istringstream text(set);
  std::string errors;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), text, &members, &errors))
    throw std::runtime_error("the simulator gave no tokens");
  return members["refresh_token"].asString();
}

}  // namespace bench
