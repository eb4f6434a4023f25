// The stack probes of CZoIPAddr. They belong to the address class but stand
// on the socket object, which itself uses addresses, so they live apart.
#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoSocket.h"

CZoError CZoIPAddr::IsAddrBindable(const CZoIPAddr& addr, bool& out) {
  // Bind opens a stream socket of the address's family on demand; the
  // socket goes whatever came of it.
  CZoSocket probe;
  CZoError error = probe.Bind(addr);
  probe.Close();
  out = false;
  if (!error.IsError()) {
    out = true;
    return CZoError::Success();
  }
  // A family the system has no stack for is an answer, not a failure.
  if (FXErrorUtil::IsErrNo(error, ZONET_ERRNO_AFNOSUPPORT)) return CZoError::Success();
  return error.Push(FXLOC("CZoIPAddr::IsAddrBindable"));
}

namespace {

CZoError IsLoopbackBindable(const char* loopback, bool& out, const FXCodeLocation& location) {
  out = false;
  CZoIPAddr addr;
  CZoError error = addr.SetAddressString(loopback);
  if (error.IsError()) return error.Push(location);
  error = CZoIPAddr::IsAddrBindable(addr, out);
  if (error.IsError()) return error.Push(location);
  return CZoError::Success();
}

}  // namespace

CZoError CZoIPAddr::IsIPv4StackPresent(bool& out) {
  return IsLoopbackBindable("127.0.0.1", out, FXLOC("CZoIPAddr::IsIPv4StackPresent"));
}

CZoError CZoIPAddr::IsIPv6StackPresent(bool& out) {
  return IsLoopbackBindable("::1", out, FXLOC("CZoIPAddr::IsIPv6StackPresent"));
}

CZoError CZoIPAddr::IsUnixStackPresent(bool& out) {
  out = ZONET_AreUnixSocketsSupported() != 0;
  return CZoError::Success();
}
