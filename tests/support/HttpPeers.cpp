#include "support/HttpPeers.h"

#include <dirent.h>
#include <unistd.h>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <cstdlib>

namespace zotest {

namespace {

// Reads the port that a child wrote on its ready pipe.
int ReadPort(int fd) {
  char text[32] = {0};
  size_t used = 0;
  while (used < sizeof text - 1) {
    ssize_t n = ::read(fd, text + used, sizeof text - 1 - used);
    if (n <= 0) break;
    used += static_cast<size_t>(n);
    if (std::string(text).find('\n') != std::string::npos) break;
  }
  ::close(fd);
  return std::atoi(text);
}

const char kResetScript[] = R"(
import os, socket, struct, sys, threading
s = socket.socket(); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("127.0.0.1", 0)); s.listen(16)
os.write(3, b"%d\n" % s.getsockname()[1]); os.close(3)
def serve(c):
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = c.recv(65536)
        if not chunk: break
        data += chunk
    c.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    c.close()
while True:
    c, _ = s.accept()
    threading.Thread(target=serve, args=(c,), daemon=True).start()
)";

}  // namespace

ResettingPeer::ResettingPeer() {
  m_reason = ServerUnavailableReason("python3");
  if (!m_reason.empty()) return;
  std::string script = m_dir.Write("reset.py", kResetScript);
  int fd = -1;
  if (!m_child.Start({FindProgram("python3"), script}, m_dir.File("log"), &fd)) {
    m_reason = m_child.Error();
    return;
  }
  m_port = ReadPort(fd);
  m_ok = m_port > 0;
  if (!m_ok) m_reason = "the reset peer reported no port";
}

ResettingPeer::~ResettingPeer() { m_child.Stop(); }

TlsPeer::TlsPeer(const std::string& certFile, const std::string& keyFile, const std::string& clientCaFile) {
  m_reason = ServerUnavailableReason("openssl");
  if (!m_reason.empty()) return;
  for (int attempt = 0; attempt < 5 && !m_ok; ++attempt) {
    m_port = PickFreePort();
    std::vector<std::string> argv{FindProgram("openssl"), "s_server", "-accept", "127.0.0.1:" + std::to_string(m_port),
                                  "-cert", certFile, "-key", keyFile, "-www", "-quiet"};
    if (!clientCaFile.empty()) {
      argv.insert(argv.end(), {"-Verify", "1", "-CAfile", clientCaFile});
    }
    if (!m_child.Start(argv, m_dir.File("log"))) {
      m_reason = m_child.Error();
      return;
    }
    m_reason = WaitUntilAccepting(m_child, m_port, kServerStartSeconds * 1000);
    m_ok = m_reason.empty();
    if (!m_ok) m_child.Stop();
  }
  if (!m_ok) m_reason += " " + ReadFile(m_dir.File("log"));
}

TlsPeer::~TlsPeer() { m_child.Stop(); }

std::string MakeExpiredCertificate(const std::string& caCert, const std::string& caKey, const std::string& certFile,
                                   const std::string& keyFile) {
  FILE* f = std::fopen(caCert.c_str(), "r");
  if (!f) return "cannot read " + caCert;
  X509* ca = PEM_read_X509(f, nullptr, nullptr, nullptr);
  std::fclose(f);
  f = std::fopen(caKey.c_str(), "r");
  if (!f) {
    X509_free(ca);
    return "cannot read " + caKey;
  }
  EVP_PKEY* caPrivate = PEM_read_PrivateKey(f, nullptr, nullptr, nullptr);
  std::fclose(f);
  EVP_PKEY* key = EVP_RSA_gen(2048);
  X509* cert = X509_new();
  std::string why;
  if (!ca || !caPrivate || !key || !cert) why = "openssl objects";
  if (why.empty()) {
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 4242);
    X509_gmtime_adj(X509_getm_notBefore(cert), -3L * 86400);
    X509_gmtime_adj(X509_getm_notAfter(cert), -1L * 86400);
    X509_set_pubkey(cert, key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(cert), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
    X509_set_issuer_name(cert, X509_get_subject_name(ca));
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, ca, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &context, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
    if (ext) {
      X509_add_ext(cert, ext, -1);
      X509_EXTENSION_free(ext);
    }
    if (X509_sign(cert, caPrivate, EVP_sha256()) <= 0) why = "signing failed";
  }
  if (why.empty()) {
    FILE* out = std::fopen(certFile.c_str(), "w");
    FILE* outKey = std::fopen(keyFile.c_str(), "w");
    if (!out || !outKey || !PEM_write_X509(out, cert) ||
        !PEM_write_PrivateKey(outKey, key, nullptr, nullptr, 0, nullptr, nullptr)) {
      why = "cannot write the certificate";
    }
    if (out) std::fclose(out);
    if (outKey) std::fclose(outKey);
  }
  X509_free(cert);
  EVP_PKEY_free(key);
  EVP_PKEY_free(caPrivate);
  X509_free(ca);
  return why;
}

int ThreadCount() {
  int count = 0;
  DIR* dir = opendir("/proc/self/task");
  if (!dir) return -1;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(dir);
  return count;
}

}  // namespace zotest
