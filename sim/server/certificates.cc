// Certificates by OpenSSL. Every kind differs from the good one in the one thing it is named after, so that a client
// that refuses it does so for that reason.
#include "sim/server/certificates.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <stdexcept>
#include <utility>

namespace kivosim {
namespace {

constexpr const char* kRootName = "Kivo Simulator CA";

struct Recipe {
  std::string subject;
  std::vector<std::string> hosts = {};
  bool isCa = false;
  const char* usage = "serverAuth";
  const char* notBefore = "20000101000000Z";
  const char* notAfter = "20991231235959Z";
  const EVP_MD* digest = EVP_sha256();
  bool rsa1024 = false;
};

void Check(bool good) {
  if (good) return;
  char text[256];
  ERR_error_string_n(ERR_get_error(), text, sizeof text);
  throw std::runtime_error(std::string("certificate not made: ") + text);
}

void SetName(X509* certificate, const std::string& name) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(name.c_str());
  Check(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC, bytes, -1, -1, 0) == 1);
}

void SetSerial(X509* certificate) {
  unsigned char bytes[8];
  Check(RAND_bytes(bytes, sizeof bytes) == 1);
  bytes[0] = static_cast<unsigned char>((bytes[0] & 0x3f) | 0x40);  // positive, and never shorter
  BIGNUM* number = BN_bin2bn(bytes, sizeof bytes, nullptr);
  const bool set = number && BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate));
  BN_free(number);
  Check(set);
}

void AddExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
  const bool added = extension && X509_add_ext(certificate, extension, -1) == 1;
  X509_EXTENSION_free(extension);
  Check(added);
}

void AddExtensions(X509* certificate, X509* issuer, const Recipe& recipe) {
  AddExtension(certificate, issuer, NID_basic_constraints, recipe.isCa ? "critical,CA:TRUE" : "critical,CA:FALSE");
  AddExtension(certificate, issuer, NID_key_usage,
               recipe.isCa ? "critical,keyCertSign,cRLSign" : "critical,digitalSignature");
  AddExtension(certificate, issuer, NID_subject_key_identifier, "hash");
  AddExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
  if (!recipe.isCa) AddExtension(certificate, issuer, NID_ext_key_usage, recipe.usage);
  std::string names;
  for (const std::string& host : recipe.hosts) names += (names.empty() ? "DNS:" : ",DNS:") + host;
  if (!names.empty()) AddExtension(certificate, issuer, NID_subject_alt_name, names);
}

/// Issued by `issuer`, or self-signed without one.
Identity Issue(const Recipe& recipe, const Identity* issuer) {
  Identity made{X509Ptr(X509_new()), KeyPtr(recipe.rsa1024 ? EVP_RSA_gen(1024) : EVP_EC_gen("P-256"))};
  Check(made.certificate && made.key);
  X509* certificate = made.certificate.get();
  X509* parent = issuer ? issuer->certificate.get() : certificate;
  SetName(certificate, recipe.subject);
  SetSerial(certificate);
  Check(X509_set_version(certificate, X509_VERSION_3) == 1);
  Check(X509_set_issuer_name(certificate, X509_get_subject_name(parent)) == 1);
  Check(ASN1_TIME_set_string_X509(X509_getm_notBefore(certificate), recipe.notBefore) == 1);
  Check(ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate), recipe.notAfter) == 1);
  Check(X509_set_pubkey(certificate, made.key.get()) == 1);
  AddExtensions(certificate, parent, recipe);
  Check(X509_sign(certificate, issuer ? issuer->key.get() : made.key.get(), recipe.digest) > 0);
  return made;
}

Identity MakeRoot() {
  Recipe recipe{kRootName};
  recipe.isCa = true;
  return Issue(recipe, nullptr);
}

std::string ToPem(X509* certificate) {
  BIO* memory = BIO_new(BIO_s_mem());
  char* bytes = nullptr;
  Check(memory && PEM_write_bio_X509(memory, certificate) == 1);
  const long size = BIO_get_mem_data(memory, &bytes);
  std::string pem(bytes, static_cast<std::size_t>(size));
  BIO_free(memory);
  return pem;
}

}  // namespace

Authority::Authority(std::vector<std::string> hosts)
    : hosts_(std::move(hosts)), root_(MakeRoot()), pem_(ToPem(root_.certificate.get())) {}

Chain Authority::Make(CertificateKind kind) const {
  Recipe leaf{"kivo.example", hosts_};
  Recipe intermediate{"Kivo Simulator Intermediate CA"};
  intermediate.isCa = true;
  Chain chain;
  const auto issueBelow = [&](const Recipe& recipe, bool send) {
    Identity above = Issue(recipe, &root_);
    chain.leaf = Issue(leaf, &above);
    if (send) chain.extra.push_back(std::move(above.certificate));
    return std::move(chain);
  };
  switch (kind) {
    case CertificateKind::kWithIntermediate:
      return issueBelow(intermediate, true);
    case CertificateKind::kMissingIntermediate:
      return issueBelow(intermediate, false);
    case CertificateKind::kIssuedByNonCa:
      return issueBelow(Recipe{"kivo.example", hosts_}, true);
    case CertificateKind::kSelfSigned:
      chain.leaf = Issue(leaf, nullptr);
      return chain;
    case CertificateKind::kUnknownCa: {
      const Identity stranger = MakeRoot();
      chain.leaf = Issue(leaf, &stranger);
      return chain;
    }
    case CertificateKind::kExpired:
      leaf.notAfter = "20010101000000Z";
      break;
    case CertificateKind::kNotYetValid:
      leaf.notBefore = "20980101000000Z";
      break;
    case CertificateKind::kWrongHost:
      leaf.hosts = {"other.example"};
      break;
    case CertificateKind::kClientOnly:
      leaf.usage = "clientAuth";
      break;
    case CertificateKind::kSha1:
      leaf.digest = EVP_sha1();
      break;
    case CertificateKind::kRsa1024:
      leaf.rsa1024 = true;
      break;
    case CertificateKind::kGood:
    case CertificateKind::kTls10Only:
    case CertificateKind::kTls11Only:
      break;
  }
  chain.leaf = Issue(leaf, &root_);
  return chain;
}

}  // namespace kivosim
