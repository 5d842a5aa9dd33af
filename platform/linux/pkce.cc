// A PKCE pair, S256. The verifier is a secret until the login is done: it is kept nowhere, and its random bytes are
// wiped. A cut verifier would only fail at the server, so buffers that are too small are refused.
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <cstring>

#include "error.h"

namespace {

constexpr int kTextLength = 43;  // of 32 bytes, without padding
static_assert(SHA256_DIGEST_LENGTH == 32, "verifier and challenge have one length");

void Base64Url(const unsigned char (&bytes)[32], char* out) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  unsigned int bits = 0;
  int count = 0;
  for (const unsigned char byte : bytes) {
    bits = (bits << 8 | byte) & 0xffff;
    for (count += 8; count >= 6;) {
      count -= 6;
      *out++ = kAlphabet[bits >> count & 63];
    }
  }
  *out++ = kAlphabet[bits << (6 - count) & 63];
  *out = '\0';
}

}  // namespace

int varn_challenge_verifier_no_save(char* challenge, int challengeSize, char* verifier, int verifierSize) {
  using varnplatform::Fail;
  if (challenge && challengeSize > 0) challenge[0] = '\0';
  if (verifier && verifierSize > 0) verifier[0] = '\0';
  if (!challenge || !verifier || challengeSize <= kTextLength || verifierSize <= kTextLength) {
    return Fail(VLIB_ERR_BAD_PARAMETER);
  }
  unsigned char secret[32], digest[SHA256_DIGEST_LENGTH];
  if (RAND_priv_bytes(secret, sizeof secret) != 1) return Fail(VLIB_ERR_CRYPTO);
  Base64Url(secret, verifier);
  OPENSSL_cleanse(secret, sizeof secret);
  if (!SHA256(reinterpret_cast<const unsigned char*>(verifier), kTextLength, digest)) return Fail(VLIB_ERR_CRYPTO);
  Base64Url(digest, challenge);
  return kTextLength;
}
