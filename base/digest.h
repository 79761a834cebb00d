// SHA-256 of a stream of bytes, as `sha256sum` gives it, so that anyone can
// check an exported file with the tools they already have. The hashing is
// nettle's; the recorder's build links it statically.
#ifndef TRELLIS_BASE_DIGEST_H_
#define TRELLIS_BASE_DIGEST_H_

#include <cstddef>
#include <string>

namespace tr {

class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void update(const void* data, size_t size);
  // 64 lower-case hex digits of everything updated so far; the hash then
  // starts again from nothing.
  std::string hex();

 private:
  struct State;
  State* state_;
};

}  // namespace tr

#endif  // TRELLIS_BASE_DIGEST_H_
