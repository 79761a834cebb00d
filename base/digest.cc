#include "base/digest.h"

#include <nettle/sha2.h>

namespace tr {

struct Sha256::State {
  sha256_ctx context;
};

Sha256::Sha256() : state_(new State) { sha256_init(&state_->context); }

Sha256::~Sha256() { delete state_; }

void Sha256::update(const void* data, size_t size) {
  sha256_update(&state_->context, size, static_cast<const uint8_t*>(data));
}

std::string Sha256::hex() {
  static const char kDigits[] = "0123456789abcdef";
  uint8_t digest[SHA256_DIGEST_SIZE];
  sha256_digest(&state_->context, sizeof digest, digest);  // and starts again
  std::string text;
  for (const uint8_t byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace tr
