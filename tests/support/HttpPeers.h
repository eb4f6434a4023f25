// Peers for the platform HTTP layer's tests beyond those of Servers.h: a raw
// TCP peer that resets the connection, a TLS peer (openssl s_server) with a
// certificate of the test's choosing, and an expired certificate from a
// throwaway CA. All on 127.0.0.1, stopped and removed at the end.
#ifndef ZONET_TESTS_HTTPPEERS_H
#define ZONET_TESTS_HTTPPEERS_H

#include <memory>
#include <string>
#include <vector>

#include "support/Servers.h"

namespace zotest {

// A peer that accepts connections, reads one request head from each and then
// resets it (SO_LINGER 0, close): the client sees ECONNRESET.
class ResettingPeer : public ServerProcess {
public:
  ResettingPeer();
  ~ResettingPeer();

private:
  FixtureDir m_dir{"reset"};
};

// openssl s_server -www on 127.0.0.1 with the given certificate and key
// (and, with clientCaFile, a demand for a client certificate).
class TlsPeer : public ServerProcess {
public:
  TlsPeer(const std::string& certFile, const std::string& keyFile, const std::string& clientCaFile = "");
  ~TlsPeer();

private:
  FixtureDir m_dir{"tls"};
};

// A certificate for localhost and 127.0.0.1 from the CA whose certificate
// and key are given, valid from three days ago until yesterday; written to
// certFile and keyFile. Why not, or "".
std::string MakeExpiredCertificate(const std::string& caCert, const std::string& caKey, const std::string& certFile,
                                   const std::string& keyFile);

// Threads of this process now (/proc/self/task).
int ThreadCount();

}  // namespace zotest

#endif  // ZONET_TESTS_HTTPPEERS_H
