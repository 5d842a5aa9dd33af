// JWTs by libjwt over a P-256 key of OpenSSL's. Both hand out C pointers; each is owned from the line it appears in.
#include "sim/token_signer.h"

#include <jwt.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "sim/digest.h"
#include "sim/json_text.h"
#include "sim/random_text.h"

namespace kivosim {
namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Memory = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Token = std::unique_ptr<jwt_t, decltype(&jwt_free)>;
using Text = std::unique_ptr<char, decltype(&std::free)>;

void Check(bool good) {
  if (!good) throw std::runtime_error("id token not signed");
}

std::string PrivatePem(EVP_PKEY* key) {
  const Memory memory(BIO_new(BIO_s_mem()), BIO_free);
  Check(memory && PEM_write_bio_PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1);
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

std::string Coordinate(EVP_PKEY* key, const char* name) {
  BIGNUM* number = nullptr;
  Check(EVP_PKEY_get_bn_param(key, name, &number) == 1);
  unsigned char bytes[32];
  const int size = BN_bn2binpad(number, bytes, sizeof bytes);
  BN_free(number);
  Check(size == sizeof bytes);
  return Base64Url({reinterpret_cast<const char*>(bytes), sizeof bytes});
}

Json::Value PublicKeySet(EVP_PKEY* key, const std::string& keyId) {
  Json::Value jwk;
  jwk["kty"] = "EC";
  jwk["crv"] = "P-256";
  jwk["alg"] = "ES256";
  jwk["use"] = "sig";
  jwk["kid"] = keyId;
  jwk["x"] = Coordinate(key, OSSL_PKEY_PARAM_EC_PUB_X);
  jwk["y"] = Coordinate(key, OSSL_PKEY_PARAM_EC_PUB_Y);
  Json::Value set;
  set["keys"].append(jwk);
  return set;
}

}  // namespace

TokenSigner::TokenSigner() : keyId_("sim-" + RandomText(8)) {
  const Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  Check(key != nullptr);
  privatePem_ = PrivatePem(key.get());
  keySet_ = PublicKeySet(key.get(), keyId_);
}

std::string TokenSigner::Sign(const Json::Value& claims) const {
  jwt_t* made = nullptr;
  Check(jwt_new(&made) == 0);
  const Token token(made, jwt_free);
  const auto* pem = reinterpret_cast<const unsigned char*>(privatePem_.data());
  Check(jwt_set_alg(made, JWT_ALG_ES256, pem, static_cast<int>(privatePem_.size())) == 0);
  Check(jwt_add_header(made, "kid", keyId_.c_str()) == 0);
  Check(jwt_add_grants_json(made, JsonText(claims).c_str()) == 0);
  const Text text(jwt_encode_str(made), std::free);
  Check(text != nullptr);
  return text.get();
}

}  // namespace kivosim
