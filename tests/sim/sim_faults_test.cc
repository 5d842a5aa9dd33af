// Faults: what a client sees of each, that they are used up in order, and that bad certificates are bad in one thing.
#include <curl/curl.h>

#include <chrono>
#include <fstream>

#include "sim/sim_bench.h"

namespace {

using namespace std::chrono_literals;
using kivosim::CertificateKind;
using kivosim::End;
using kivosim::Fault;
using kivosim::Framing;
using kivosim::Request;
using kivosim::Response;
using testing::HasSubstr;

const std::string kUrl = "https://identity.kivo.example/x";

kivosim::Options WithPlainHttp() {
  kivosim::Options options;
  options.plainHttp = true;
  return options;
}

class SimFaults : public testing::Test {
 protected:
  SimFaults() : cloud(WithPlainHttp()) {
    cloud.SetHook([](const Request&) -> std::optional<Response> { return Response{200, "0123456789"}; });
    cloud.Start();
  }
  Exchange Send(long timeoutMs = 60000) { return ::Send({kUrl, "a=1", {}, nullptr, timeoutMs}); }
  kivosim::Simulator cloud;
};

Fault With(void (*change)(Fault&), std::optional<End> end = {}) {
  Fault fault;
  change(fault);
  if (end) fault.end = *end;
  return fault;
}

TEST_F(SimFaults, EachSpoilsTheAnswerInItsWay) {
  const std::string all = "0123456789";
  const struct {
    Fault fault;
    int curlCode;
    long status;
    std::string body, head;
    double seconds = 0;
  } rows[] = {
      {Fault::Answer(204, "ignored"), CURLE_OK, 204, "", "204 No Content"},
      {With([](Fault& f) { f.raw = "HTTP/1.0 202 Hm\r\n\r\nbye"; }, End::kFin), CURLE_OK, 202, "bye", "202 Hm"},
      {With([](Fault& f) { f.framing = Framing::kChunked; }), CURLE_OK, 200, all, "Transfer-Encoding: chunked"},
      {With([](Fault& f) { f.framing = Framing::kUntilClose; }), CURLE_OK, 200, all, "Connection: close"},
      {Fault::CutBody(8, Framing::kChunked, End::kCloseNotify), CURLE_PARTIAL_FILE, 200, "01234", ""},
      {Fault::CutBody(5, Framing::kUntilClose, End::kCloseNotify), CURLE_OK, 200, "01234", ""},
      {With([](Fault& f) { f.contentLength = 11; }, End::kCloseNotify), CURLE_PARTIAL_FILE, 200, all, ""},
      {With([](Fault& f) { f.contentLength = 3; }, End::kFin), CURLE_OK, 200, "012", ""},
      {Fault::CutBody(5, Framing::kLength, End::kSilence), CURLE_OPERATION_TIMEDOUT, 200, "01234", ""},
      {Fault::Drip(20, 40ms), CURLE_OK, 200, all, "", 0.12},  // 76 bytes or more in portions of 20
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    cloud.QueueFault("x", row.fault);
    // Time enough for a handshake on a busy machine: what was received before the silence counts.
    const Exchange exchange = Send(row.curlCode == CURLE_OPERATION_TIMEDOUT ? 3000 : 60000);
    EXPECT_EQ(row.curlCode, exchange.curlCode);
    EXPECT_EQ(row.status, exchange.status);
    EXPECT_EQ(row.body, exchange.body);
    EXPECT_THAT(exchange.head, HasSubstr(row.head));
    EXPECT_GE(exchange.seconds, row.seconds);
    EXPECT_EQ(CURLE_OK, Send().curlCode);  // and the next one is not struck
  }
  EXPECT_TRUE(cloud.WaitIdle());
}

/// Each kind has to be refused for what it is named after; a client that looks away there must get through.
TEST_F(SimFaults, BadCertificatesAreGoodButForTheOneThing) {
  std::ofstream("/tmp/sim-ca.pem") << cloud.CaPem();
  const struct {
    CertificateKind kind;
    const char* client;
  } rows[] = {{CertificateKind::kExpired, "-attime 978300000"},
              {CertificateKind::kNotYetValid, "-attime 4070908800"},
              {CertificateKind::kClientOnly, "-purpose sslclient"},
              {CertificateKind::kSha1, "-auth_level 0 -cipher DEFAULT@SECLEVEL=0"},
              {CertificateKind::kRsa1024, "-auth_level 1 -cipher DEFAULT@SECLEVEL=1"},
              {CertificateKind::kTls11Only, "-tls1_1 -cipher DEFAULT@SECLEVEL=0"},
              {CertificateKind::kTls10Only, "-tls1 -cipher DEFAULT@SECLEVEL=0"},
              {CertificateKind::kWrongHost, "-verify_hostname other.example"},
              {CertificateKind::kUnknownCa, nullptr}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.client ? row.client : "unknown CA");
    cloud.QueueCertificate(row.kind);
    EXPECT_NE(CURLE_OK, Send().curlCode);
    EXPECT_EQ(0u, cloud.ApplicationBytes());
    if (!row.client) continue;
    cloud.QueueCertificate(row.kind);
    const std::string command =
        "openssl s_client -connect 127.0.0.1:443 -servername identity.kivo.example -CAfile /tmp/sim-ca.pem "
        "-verify_return_error ";
    EXPECT_EQ(0, std::system((command + row.client + " </dev/null >/tmp/s_client.log 2>&1").c_str()));
  }
  cloud.QueueCertificate(CertificateKind::kWithIntermediate);
  EXPECT_EQ(CURLE_OK, Send().curlCode);
}

TEST_F(SimFaults, WhatIsSentInClearIsSeen) {
  EXPECT_EQ(403, Post("http://127.0.0.1:" + std::to_string(cloud.PlainHttpPort()) + "/y", "secret=1").status);
  EXPECT_THAT(cloud.PlainHttpReceived(), HasSubstr("POST /y HTTP/1.1\r\n"));
  EXPECT_THAT(cloud.PlainHttpReceived(), HasSubstr("\r\n\r\nsecret=1"));
  EXPECT_EQ(0u, cloud.Connections());
}

}  // namespace
