// Faults: what a client sees of each, that they are used up in order, and that connections end when they should.
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "sim/curl_client.h"
#include "sim/simulator.h"

namespace {

using namespace std::chrono_literals;
using kivosim::CertificateKind;
using kivosim::ConnectionFault;
using kivosim::End;
using kivosim::Fault;
using kivosim::Framing;
using kivosim::JournalEntry;
using kivosim::Request;
using kivosim::Response;
using kivosim::Simulator;
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
  Exchange Send(long timeoutMs = 20000) { return Post(kUrl, "a=1", {{}, timeoutMs}); }
  Simulator cloud;
};

Fault With(void (*change)(Fault&)) {
  Fault fault;
  change(fault);
  return fault;
}

TEST_F(SimFaults, EachSpoilsTheAnswerInItsWay) {
  const struct {
    const char* name;
    Fault fault;
    int curlCode;
    long status;
    const char* body;
    const char* head;
  } rows[] = {
      {"status and body", Fault::Answer(503, "{}"), CURLE_OK, 503, "{}", "503 Service Unavailable"},
      {"no body", Fault::Answer(204, "ignored"), CURLE_OK, 204, "", "204 No Content"},
      {"odd status", Fault::Answer(999, "x"), CURLE_OK, 999, "x", "999 Status"},
      {"redirect", Fault::Redirect("https://a.example/"), CURLE_OK, 302, "", "Location: https://a.example/\r\n"},
      {"content type", With([](Fault& f) { f.contentType = "text/html"; }), CURLE_OK, 200, "0123456789", "text/html"},
      {"raw bytes", With([](Fault& f) {
         f.raw = "HTTP/1.0 202 Hm\r\n\r\nbye";
         f.end = End::kFin;
       }),
       CURLE_OK, 202, "bye", "202 Hm"},
      {"no HTTP at all", With([](Fault& f) {
         f.raw = "SSH-2.0-x\r\n";
         f.end = End::kFin;
       }),
       CURLE_UNSUPPORTED_PROTOCOL, 0, "", ""},
      {"chunked", With([](Fault& f) { f.framing = Framing::kChunked; }), CURLE_OK, 200, "0123456789",
       "Transfer-Encoding: chunked"},
      {"until close", With([](Fault& f) { f.framing = Framing::kUntilClose; }), CURLE_OK, 200, "0123456789",
       "Connection: close"},
      {"cut, length", Fault::CutBody(5, Framing::kLength), CURLE_PARTIAL_FILE, 200, "01234", "Content-Length: 10"},
      {"cut, chunked", Fault::CutBody(8, Framing::kChunked, End::kCloseNotify), CURLE_PARTIAL_FILE, 200, "01234", ""},
      {"cut, until close", Fault::CutBody(5, Framing::kUntilClose, End::kCloseNotify), CURLE_OK, 200, "01234", ""},
      {"cut, reset", Fault::CutBody(0, Framing::kLength, End::kReset), CURLE_RECV_ERROR, 200, "", ""},
      {"cut in the head", With([](Fault& f) {
         f.cutAfter = 9;
         f.end = End::kCloseNotify;
       }),
       CURLE_GOT_NOTHING, 0, "", ""},
      {"length too long", With([](Fault& f) {
         f.contentLength = 11;
         f.end = End::kCloseNotify;
       }),
       CURLE_PARTIAL_FILE, 200, "0123456789", ""},
      {"length too short", With([](Fault& f) {
         f.contentLength = 3;
         f.end = End::kFin;
       }),
       CURLE_OK, 200, "012", ""},
      {"cut, no end given", With([](Fault& f) { f.cutBodyAfter = 5; }), CURLE_PARTIAL_FILE, 200, "01234", ""},
      {"half, then silence", Fault::CutBody(5, Framing::kLength, End::kSilence), CURLE_OPERATION_TIMEDOUT, 200, "01234",
       ""},
      {"never", Fault::NeverAnswer(), CURLE_OPERATION_TIMEDOUT, 0, "", ""},
      {"reset", Fault::ResetAfterRequest(), CURLE_RECV_ERROR, 0, "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    cloud.QueueFault("x", row.fault);
    // Time enough for a handshake on a busy machine: what was received before the silence counts.
    const Exchange exchange = Send(row.curlCode == CURLE_OPERATION_TIMEDOUT ? 1500 : 20000);
    EXPECT_EQ(row.curlCode, exchange.curlCode);
    EXPECT_EQ(row.status, exchange.status);
    EXPECT_EQ(row.body, exchange.body);
    EXPECT_THAT(exchange.head, HasSubstr(row.head));
    EXPECT_EQ(CURLE_OK, Send().curlCode);  // and the next one is not struck
  }
  EXPECT_TRUE(cloud.WaitIdle());
}

TEST_F(SimFaults, SlowAnswersTakeTheirTime) {
  const struct {
    const char* name;
    Fault fault;
    double atLeast;
  } rows[] = {{"delay", Fault::Delay(400ms), 0.4},
              {"drip", Fault::Drip(20, 40ms), 0.12},  // 76 bytes or more in portions of 20
              {"splits", With([](Fault& f) {
                 f.splits = {5, 70};
                 f.splitPause = 60ms;
               }),
               0.12}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    cloud.QueueFault("x", row.fault);
    const Exchange exchange = Send();
    EXPECT_EQ("0123456789", exchange.body);
    EXPECT_GE(exchange.seconds, row.atLeast);
    EXPECT_LT(exchange.seconds, row.atLeast + 5);
  }
}

TEST_F(SimFaults, QueuesAreUsedUpInOrderAndThePathGoesBeforeTheStar) {
  Fault twice = Fault::Answer(500, "");
  twice.times = 2;
  Fault always = Fault::Answer(429, "");
  always.times = -1;
  cloud.QueueFault("x", twice);
  cloud.QueueFault("/x", Fault::Answer(503, ""));
  cloud.QueueFault("y", Fault::Answer(403, ""));
  cloud.QueueFault("*", always);
  for (const long status : {500L, 500L, 503L, 429L, 429L}) EXPECT_EQ(status, Send().status);
  EXPECT_EQ(2u, cloud.PendingFaults());
  cloud.ClearFaults();
  EXPECT_EQ(200, Send().status);
}

TEST_F(SimFaults, TheWorkIsDoneThoughTheAnswerIsLostUnlessSkipped) {
  int calls = 0, sent = 0;
  cloud.SetHook([&](const Request&) -> std::optional<Response> { return ++calls, Response{}; });
  Fault lost = Fault::ResetAfterRequest();
  lost.onSent = [&] { ++sent; };
  cloud.QueueFault("x", lost);
  EXPECT_EQ(CURLE_RECV_ERROR, Send().curlCode);
  lost.skipHandler = true;
  cloud.QueueFault("x", lost);
  EXPECT_EQ(CURLE_RECV_ERROR, Send().curlCode);
  ASSERT_TRUE(cloud.WaitIdle());
  EXPECT_EQ(1, calls);
  EXPECT_EQ(2, sent);
  EXPECT_EQ(2u, cloud.Requests("x").size());
}

TEST_F(SimFaults, AnEndlessBodyGoesOnUntilTheClientHasEnough) {
  for (const Framing framing : {Framing::kLength, Framing::kChunked, Framing::kUntilClose}) {
    cloud.QueueFault("x", Fault::Endless(framing));
    const Exchange exchange = Post(kUrl, "", {{}, 20000, CurlOptions().caFile, 8U << 20U});
    EXPECT_EQ(CURLE_WRITE_ERROR, exchange.curlCode);
    EXPECT_GT(exchange.body.size(), 8U << 20U);
  }
  EXPECT_TRUE(cloud.WaitIdle());
}

TEST_F(SimFaults, BadCertificatesAreRefusedBeforeAByteIsSent) {
  for (std::size_t i = 0; i < kivosim::CertificateKindNames().size(); ++i) {
    const auto kind = static_cast<CertificateKind>(i);
    SCOPED_TRACE(kivosim::CertificateKindNames()[i]);
    cloud.ClearJournal();
    cloud.QueueCertificate(kind);
    const bool good = kind == CertificateKind::kGood || kind == CertificateKind::kWithIntermediate;
    const bool oldTls = kind == CertificateKind::kTls10Only || kind == CertificateKind::kTls11Only;
    EXPECT_EQ(good ? CURLE_OK : oldTls ? CURLE_SSL_CONNECT_ERROR : CURLE_PEER_FAILED_VERIFICATION, Send().curlCode);
    ASSERT_TRUE(cloud.WaitIdle());
    const auto journal = cloud.Journal();
    ASSERT_EQ(1u, journal.size());
    EXPECT_EQ(good, journal[0].kind == JournalEntry::Kind::kRequest);
    EXPECT_EQ("identity.kivo.example", journal[0].sni);
    EXPECT_EQ(good, cloud.ApplicationBytes() > 0);
  }
  EXPECT_EQ(CURLE_OK, Send().curlCode);
}

TEST_F(SimFaults, OnlyAProperEndSendsTheClosureAlert) {
  for (const End end : {End::kFin, End::kCloseNotify}) {
    cloud.QueueFault("x", Fault::CutBody(5, Framing::kUntilClose, end));
    EXPECT_EQ(0, std::system("printf 'GET /x HTTP/1.1\\r\\nHost: identity.kivo.example\\r\\n\\r\\n' | "
                             "openssl s_client -quiet -connect 127.0.0.1:443 -servername identity.kivo.example "
                             ">/tmp/s_client.log 2>&1; grep -q 01234 /tmp/s_client.log"));
    EXPECT_EQ(end == End::kFin, std::system("grep -q 'unexpected eof' /tmp/s_client.log") == 0);
  }
}

/// Each kind has to be refused for what it is named after; a client that looks away there must get through.
TEST_F(SimFaults, BadCertificatesAreGoodButForTheOneThing) {
  std::ofstream("/tmp/sim-ca.pem") << cloud.CaPem();
  const struct {
    CertificateKind kind;
    const char* client;
    int status;
  } rows[] = {{CertificateKind::kExpired, "-attime 978300000", 0},
              {CertificateKind::kNotYetValid, "-attime 4070908800", 0},
              {CertificateKind::kClientOnly, "-purpose sslclient", 0},
              {CertificateKind::kSha1, "-auth_level 0 -cipher DEFAULT@SECLEVEL=0", 0},
              {CertificateKind::kRsa1024, "-auth_level 1 -cipher DEFAULT@SECLEVEL=1", 0},
              {CertificateKind::kTls11Only, "-tls1_1 -cipher DEFAULT@SECLEVEL=0", 0},
              {CertificateKind::kTls10Only, "-tls1 -cipher DEFAULT@SECLEVEL=0", 0},
              {CertificateKind::kWrongHost, "-verify_hostname other.example", 0},
              {CertificateKind::kUnknownCa, "-verify_hostname account.kivo.example", 1},
              {CertificateKind::kExpired, "", 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.client);
    cloud.QueueCertificate(row.kind);
    const std::string command = std::string(
                                    "openssl s_client -connect 127.0.0.1:443 -servername account.kivo.example "
                                    "-CAfile /tmp/sim-ca.pem -verify_return_error ") +
                                row.client + " </dev/null >/tmp/s_client.log 2>&1";
    EXPECT_EQ(row.status, std::system(command.c_str()) == 0 ? 0 : 1);
  }
}

TEST_F(SimFaults, ConnectionsFailBelowTls) {
  const struct {
    ConnectionFault::Kind kind;
    int curlCode;
  } rows[] = {{ConnectionFault::Kind::kResetInHandshake, CURLE_SSL_CONNECT_ERROR},
              {ConnectionFault::Kind::kSilentInHandshake, CURLE_OPERATION_TIMEDOUT},
              {ConnectionFault::Kind::kNotTls, CURLE_SSL_CONNECT_ERROR}};
  for (const auto& row : rows) cloud.QueueConnectionFault({row.kind, CertificateKind::kGood, 2});
  for (const auto& row : rows)
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(row.curlCode, Send(row.curlCode == CURLE_OPERATION_TIMEDOUT ? 300 : 20000).curlCode);
  EXPECT_EQ(CURLE_OK, Send().curlCode);
  ASSERT_TRUE(cloud.WaitIdle());
  EXPECT_EQ(7u, cloud.Connections());
  ASSERT_EQ(7u, cloud.Journal().size());
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(JournalEntry::Kind::kHandshakeFailed, cloud.Journal()[i].kind);
}

TEST_F(SimFaults, BytesThatAreNoWholeRequestAreJournalledToo) {
  const std::string base =
      "openssl s_client -quiet -no_ign_eof -connect 127.0.0.1:443 -servername account.kivo.example";
  const struct {
    const char* bytes;
    JournalEntry::Kind kind;
    bool complaint;
  } rows[] = {{"POST /half HTTP/1.1\\r\\nHost: account.kivo.example\\r\\nContent-Length: 9\\r\\n\\r\\nabc",
               JournalEntry::Kind::kIncomplete, false},
              {"no http\\r\\n\\r\\n", JournalEntry::Kind::kIncomplete, true},
              {"", JournalEntry::Kind::kNoRequest, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.bytes);
    cloud.ClearJournal();
    const std::string command = "printf '" + std::string(row.bytes) + "' | " + base;
    (void)!std::system((command + " >/dev/null 2>&1").c_str());
    ASSERT_TRUE(cloud.WaitIdle());
    const auto journal = cloud.Journal();
    ASSERT_EQ(1u, journal.size());
    EXPECT_EQ(row.kind, journal[0].kind);
    EXPECT_EQ(row.complaint, !journal[0].complaint.empty());
    EXPECT_EQ(journal[0].applicationBytes, journal[0].request.raw.size());
  }
}

TEST_F(SimFaults, RequestsThatComeTogetherAreAnsweredInOrderAndJournalledApart) {
  const std::string first = "GET /a HTTP/1.1\r\nHost: identity.kivo.example\r\n\r\n";
  const std::string second = "GET /b HTTP/1.1\r\nHost: identity.kivo.example\r\nConnection: close\r\n\r\n";
  cloud.QueueFault("a", Fault::Delay(50ms));
  std::ofstream("/tmp/two.txt", std::ios::binary) << first << second;
  EXPECT_EQ(0, std::system("openssl s_client -quiet -connect 127.0.0.1:443 -servername identity.kivo.example "
                           "</tmp/two.txt >/tmp/s_client.log 2>&1; "
                           "[ $(grep -c 0123456789 /tmp/s_client.log) = 2 ]"));
  ASSERT_TRUE(cloud.WaitIdle());
  const std::vector<Request> requests = cloud.Requests();
  ASSERT_EQ(2u, requests.size());
  EXPECT_EQ(first, requests[0].raw);
  EXPECT_EQ(second, requests[1].raw);
  EXPECT_EQ(1u, requests[1].connection);
  EXPECT_EQ(2u, requests[1].onConnection);
}

TEST_F(SimFaults, WhatIsSentInClearIsSeen) {
  EXPECT_EQ(403, Post("http://127.0.0.1:" + std::to_string(cloud.PlainHttpPort()) + "/y", "secret=1").status);
  EXPECT_THAT(cloud.PlainHttpReceived(), HasSubstr("POST /y HTTP/1.1\r\n"));
  EXPECT_THAT(cloud.PlainHttpReceived(), HasSubstr("\r\n\r\nsecret=1"));
  EXPECT_EQ(0u, cloud.Connections());
}

TEST_F(SimFaults, StartAndStopAreQuickEvenWithOpenConnections) {
  cloud.QueueFault("x", Fault::NeverAnswer());
  std::thread waiting([&] { EXPECT_EQ(CURLE_GOT_NOTHING, Send().curlCode); });
  while (cloud.Requests("x").empty()) std::this_thread::yield();
  const auto start = std::chrono::steady_clock::now();
  cloud.Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);  // the client would wait for 20 s
  waiting.join();
  EXPECT_EQ(CURLE_COULDNT_CONNECT, Send().curlCode);
  const auto again = std::chrono::steady_clock::now();
  cloud.Start();
  EXPECT_LT(std::chrono::steady_clock::now() - again, 500ms);
  EXPECT_EQ(CURLE_OK, Send().curlCode);  // the CA is still the one that is trusted
  ASSERT_TRUE(cloud.WaitIdle());
}

TEST_F(SimFaults, APortThatIsTakenIsNamed) {
  Simulator second;
  try {
    second.Start();
    FAIL() << "two simulators on one port";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ("cannot listen on 127.0.0.1:443: Address already in use (is another simulator running?)",
                 error.what());
  }
}

}  // namespace
