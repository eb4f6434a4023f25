// The short way of ZONET_str2ip (a dotted quad or plain IPv6 read without
// the resolver's list) against the resolver's way, on the same text: where
// the short way takes a text, both must give the same code, the same bytes
// in every one of the record's 112 and the same last result; where it
// declines, it must have written nothing. The public call must always give
// what the resolver's way gives. And the short way must take exactly the
// forms it claims: every text inet_pton reads as IPv4, and every IPv6 text
// inet_pton reads that has no dotted part.
#include <arpa/inet.h>
#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "ZoNetwork/ZoNetAddr.h"
#include "flat/FlatInternal.h"

namespace {

// A record whose every byte is known, so that a byte written by one way and
// not the other shows.
void Fill(ZONET_SockAddr* addr, uint8_t byte) { memset(addr, byte, sizeof *addr); }

bool Same(const ZONET_SockAddr& a, const ZONET_SockAddr& b) { return memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The short way is meant for the system's resolver; without it there is
  // nothing to compare.
  if (!zonet_internal::ResolverIsThePlatforms()) __builtin_trap();
  // The first byte chooses the filling, so that bytes left alone are tested
  // against more than one value; the rest is the text, up to an inner NUL.
  const uint8_t fill = size > 0 ? data[0] : 0xA5;
  std::string text = size > 1 ? std::string(reinterpret_cast<const char*>(data + 1), size - 1) : std::string();
  const char* c = text.c_str();

  ZONET_SockAddr full;
  Fill(&full, fill);
  errno = EIO;
  const int fullCode = zonet_internal::Str2ipFullPath(c, &full);
  const int fullErrno = errno;

  ZONET_SockAddr fast;
  Fill(&fast, fill);
  ZONET_SockAddr untouched;
  Fill(&untouched, fill);
  int fastCode = 0x7FFFFFFF;
  errno = EIO;
  const bool taken = zonet_internal::Str2ipCommonForm(c, &fast, &fastCode);
  const int fastErrno = errno;
  if (taken) {
    if (fastCode != fullCode) __builtin_trap();
    if (!Same(fast, full)) __builtin_trap();
    if (fastErrno != fullErrno) __builtin_trap();
  } else if (!Same(fast, untouched)) {
    __builtin_trap();
  }

  // The public call, whichever way it goes.
  ZONET_SockAddr pub;
  Fill(&pub, fill);
  errno = EIO;
  const int pubCode = ZONET_str2ip(c, &pub);
  if (pubCode != fullCode || !Same(pub, full) || errno != fullErrno) __builtin_trap();

  // The short way covers what it claims to cover.
  unsigned char bytes[16];
  const bool v4 = inet_pton(AF_INET, c, bytes) == 1;
  const bool v6 = inet_pton(AF_INET6, c, bytes) == 1 && strchr(c, '.') == nullptr;
  if ((v4 || v6) != taken) __builtin_trap();
  return 0;
}
