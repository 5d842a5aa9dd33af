// Journal entries to JSON. The bytes as received come in base64, since they need not be text.
#include "sim/journal_json.h"

#include <openssl/evp.h>

#include <array>

namespace kivosim {
namespace {

std::string Base64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int size =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

Json::Value PairsToJson(const Pairs& pairs) {
  Json::Value json(Json::arrayValue);
  for (const auto& [name, value] : pairs) {
    Json::Value pair(Json::arrayValue);
    pair.append(name);
    pair.append(value);
    json.append(pair);
  }
  return json;
}

Json::Value RequestToJson(const Request& request) {
  Json::Value json;
  json["method"] = request.method;
  json["host"] = request.host;
  json["target"] = request.target;
  json["headers"] = PairsToJson(request.headers);
  json["query"] = PairsToJson(request.query);
  json["form"] = PairsToJson(request.form);
  json["body"] = request.body;
  json["raw_base64"] = Base64(request.raw);
  return json;
}

}  // namespace

Json::Value JournalEntryToJson(const JournalEntry& entry) {
  static const std::array<const char*, 4> kinds = {"request", "handshake-failed", "incomplete", "no-request"};
  Json::Value json;
  json["kind"] = kinds[static_cast<std::size_t>(entry.kind)];
  json["milliseconds"] = Json::Int64{entry.milliseconds};
  json["connection"] = Json::UInt64{entry.connection};
  json["sni"] = entry.sni;
  json["tls"] = entry.tlsVersion;
  json["application_bytes"] = Json::UInt64{entry.applicationBytes};
  if (!entry.request.raw.empty()) json["request"] = RequestToJson(entry.request);
  json["complaint"] = entry.complaint;
  json["status"] = entry.status;
  json["answer"] = entry.answer;
  json["error"] = entry.error;
  return json;
}

}  // namespace kivosim
