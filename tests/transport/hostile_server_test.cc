// Servers that are not who they should be, lead elsewhere, break off or never end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cloud.h"
#include "fake_platform.h"
#include "kivo_request.h"

using namespace testsupport;
using kivosim::CertificateKind;
using kivosim::ConnectionFault;
using kivosim::End;
using kivosim::Fault;
using kivosim::Framing;

namespace {

constexpr char kBundle[] = "/etc/ssl/certs/ca-certificates.crt";

KivoRequest Secret(bool get) {
  KivoRequest request{{{"passwd", "canary-parameter"}}, get};
  request.accountId = "1001";
  request.password = "canary-password";
  return request;
}

TEST(HostileServer, AWrongCertificateGetsNoByteOfTheRequest) {
  for (std::size_t kind = 0; kind < kivosim::CertificateKindNames().size(); ++kind) {
    SCOPED_TRACE(kivosim::CertificateKindNames()[kind]);
    const auto certificate = static_cast<CertificateKind>(kind);
    const bool good = certificate == CertificateKind::kGood || certificate == CertificateKind::kWithIntermediate;
    FakePlatform device;
    Cloud cloud;
    cloud.AnswerAll(200, "{}");
    cloud->QueueCertificate(certificate);
    const Answer answer = Secret(kind % 2 != 0).Send();
    EXPECT_EQ(good ? 99 : KIVO_ERR_SEND, answer.code);
    EXPECT_TRUE(cloud->WaitIdle());
    EXPECT_EQ(1u, cloud->Connections());
    EXPECT_EQ(good, cloud->ApplicationBytes() > 0);
    EXPECT_TRUE(good || answer.curlCode == 60 || answer.curlCode == 35) << answer.curlCode;
  }
}

TEST(HostileServer, EachConnectionIsCheckedAnew) {
  FakePlatform device;
  device.ShortenTimeOuts(15);
  Cloud cloud;
  cloud.AnswerAll(200, "{}");
  cloud->QueueFault("*", Fault::NeverAnswer());
  cloud->QueueCertificate(CertificateKind::kGood);
  cloud->QueueCertificate(CertificateKind::kExpired);
  EXPECT_EQ(60, Secret(false).Send().curlCode) << "the second attempt met another server";
  EXPECT_EQ(1u, cloud.Requests().size());

  const std::string trusted = ReadFile(kBundle);
  cloud->ClearJournal();
  WriteFile(kBundle, "");
  EXPECT_EQ(-1, Secret(false).Send().result) << "the CA was withdrawn";
  EXPECT_TRUE(cloud->WaitIdle());
  EXPECT_EQ(0u, cloud->ApplicationBytes());
  WriteFile(kBundle, trusted);
  EXPECT_EQ(0, Secret(false).Send().result);
}

TEST(HostileServer, RequestsStayWithinHttpsAndFiveHops) {
  const std::string inClear = "http://127.0.0.1:" + std::to_string(Cloud::Sim().PlainHttpPort());
  const struct {
    std::string host, location;  // asked, and redirected to
    int times, result;
    std::size_t requests;
  } cases[] = {{kHost, inClear + "/x", 1, -1, 1},
               {kHost, "file:///etc/hostname", 1, -1, 1},
               {kHost, "https://identity.kivo.example/elsewhere", 1, 0, 2},
               {kHost, "/device/api/test", 5, 0, 6},
               {kHost, "/device/api/test", -1, -1, 6},
               {inClear, "", 0, -1, 0},
               {"file:///etc", "", 0, -1, 0},
               {"127.0.0.1", "", 0, -1, 0},
               {"", "", 0, -1, 0}};
  for (const auto& row : cases)
    for (const bool get : {false, true}) {
      SCOPED_TRACE(row.host + " to " + row.location + " x" + std::to_string(row.times));
      FakePlatform device;
      device.MustNotLog("canary");
      Cloud cloud;
      cloud.AnswerAll(200, "arrived");
      Fault redirect = Fault::Redirect(row.location, 307);
      redirect.times = row.times;
      if (row.times != 0) cloud->QueueFault("*", redirect);
      KivoRequest request = Secret(get);
      request.host = row.host;
      if (row.host == "file:///etc") request.path = "hostname";
      const Answer answer = request.Send();
      EXPECT_EQ(row.result == 0 ? 99 : KIVO_ERR_SEND, answer.code);
      EXPECT_EQ(row.result == 0 ? "arrived" : "", answer.body);
      EXPECT_EQ(row.requests, cloud.Requests().size());
      EXPECT_EQ("", cloud->PlainHttpReceived());
    }
}

TEST(HostileServer, BrokenOffAnswersFailAtOnce) {
  Fault nothing = Fault::Answer(200, "x"), noHead = nothing;
  nothing.cutAfter = 0;
  noHead.cutAfter = 20;
  for (const Fault& fault : {Fault::CutBody(5), Fault::CutBody(9, Framing::kChunked), Fault::ResetAfterRequest(),
                             nothing, noHead, Fault::CutBody(5, Framing::kLength, End::kReset)}) {
    FakePlatform device;
    Cloud cloud;
    cloud.AnswerAll(200, "{\"error\":\"good\"}");
    cloud->QueueFault("*", fault);
    const Answer answer = KivoRequest{}.Send();
    EXPECT_EQ(KIVO_ERR_SEND, answer.code);
    EXPECT_FALSE(answer.hasBody);
    EXPECT_EQ(1u, cloud.Requests().size());
    const std::string noBody = ", Failed to get response";  // libcurl takes a head that ends early for a whole one
    EXPECT_EQ(LoggedUrl() + (answer.curlCode == 0 ? noBody : ", Failed to curl perform, " + CurlError(answer.curlCode)),
              device.LastLog());
  }
}

TEST(HostileServer, ABodyIsTakenUpToSixteenMebibytes) {
  constexpr std::size_t kMost = 16u << 20;
  for (const Fault& fault :
       {Fault::Answer(200, std::string(kMost, 'x')), Fault::Answer(200, std::string(kMost + 1, 'x')), Fault::Endless(),
        Fault::Endless(Framing::kUntilClose)}) {
    FakePlatform device;
    Cloud cloud;
    cloud.AnswerAll(200, "");
    cloud->QueueFault("*", fault);
    const Answer answer = KivoRequest{}.Send();
    const bool taken = answer.body.size() == kMost;
    EXPECT_TRUE(taken ? answer.result == 0 : answer.result == -1 && !answer.hasBody && answer.curlCode == 23);
    EXPECT_EQ(fault.body && fault.body->size() == kMost, taken);
    EXPECT_TRUE(cloud->WaitIdle());
    EXPECT_LT(cloud->BytesSent(), kMost + (8u << 20)) << "the transfer went on";
  }
}

TEST(HostileServer, SecretsAndControlCharactersOfAnAnswerStayOutOfTheLog) {
  const struct {
    std::string body, logged;
  } cases[] = {
      {"{\"access_token\":\"0123456789canary\",\"id_token\" : \"0123456789canary\",\"a\":1}",
       "{\"access_token\":\"0123456789...\",\"id_token\" : \"0123456789...\",\"a\":1}"},
      {"{\"refresh_token\":\"0123456789canary\",\"code_verifier\":\"0123456789canary\"}",
       "{\"refresh_token\":\"0123456789...\",\"code_verifier\":\"0123456789...\"}"},
      {"grant_code=0123456789canary&lu_token=0123456789canary&api_key=0123456789canary&x=1",
       "grant_code=0123456789...&lu_token=0123456789...&api_key=0123456789...&x=1"},
      {"{\"passwd\":\"canary\",\"passwd_new\":\"canary\",\"passwd_confirmation\":\"canary\",\"kivoPW\":\"canary\"}",
       "{\"passwd\":\"...\",\"passwd_new\":\"...\",\"passwd_confirmation\":\"...\",\"kivoPW\":\"...\"}"},
      {"passwd=\"canary\" kivoPW = canary", "passwd=\"...\" kivoPW = ..."},
      {"{'auth_key':'0123456789canary'} auth_key%3D0123456789canary&b",
       "{'auth_key':'0123456789...'} auth_key%3D0123456789...&b"},
      {"{\"passwd\":\"ca\\\"nary\"}", "{\"passwd\":\"...\"}"},
      {"a\r\nb\x7f\x01", "a\\x0d\\x0ab\\x7f\\x01"},
      {std::string(3000, 'x'), std::string(2048, 'x')},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.body);
    FakePlatform device;
    device.MustNotLog("canary");
    Cloud cloud;
    cloud.AnswerAll(500, row.body);
    EXPECT_EQ(-1, KivoRequest{}.Send().result);
    EXPECT_EQ(LoggedUrl() + ", Failed to request packages, httpResponseCode=500, data=" + row.logged, device.LastLog());
    EXPECT_EQ(-1, Secret(true).Send().result);
    EXPECT_THAT(device.LastLog(), testing::StartsWith(LoggedUrl() + "?lu_sn=")) << "the address shows no secret either";
  }
}

}  // namespace
