// Network namespaces that a test makes for itself, so that it can build the
// adapters, addresses and peers it needs (veth pairs, an adapter without
// carrier, a peer that answers ICMP as the test says) without touching the
// machine's own network. Traffic in them never leaves them.
//
// Each namespace is a named one ("ip netns add zo-TAG-PID-N"), deleted with
// every adapter in it when the object goes. Code runs inside one on a thread
// of its own that has entered it: the network namespace belongs to the thread,
// so sockets that thread makes live in the namespace, and gtest assertions
// made there still count. A child process (for a private hosts file, say) can
// Enter() one too.
//
// Usage:
//   ZOTEST_REQUIRE_NET_NAMESPACES();
//   zotest::NetNamespace a("ping"), b("peer");
//   ASSERT_TRUE(zotest::NetNamespace::Veth(a, "va", b, "vb"));
//   ASSERT_EQ(a.Ip("addr add 10.200.0.1/24 dev va"), 0);
//   a.Run([&] { ... sockets here are in a ... });
// Needs root (or CAP_SYS_ADMIN and CAP_NET_ADMIN) and the ip tool.
#ifndef ZONET_TESTS_NETNAMESPACE_H
#define ZONET_TESTS_NETNAMESPACE_H

#include <functional>
#include <string>

namespace zotest {

// Why test namespaces cannot be made here ("" when they can); worked out once
// per process.
std::string NetNamespaceUnavailableReason();

// Runs command with /bin/sh; its exit status, or -1 when it could not run or
// ended by a signal. What it prints goes to the test's own output.
int RunShell(const std::string& command);

class NetNamespace {
public:
  // Makes a fresh namespace with only a loopback adapter, which is down.
  explicit NetNamespace(const std::string& tag);
  // Deletes the namespace and every adapter in it.
  ~NetNamespace();
  NetNamespace(const NetNamespace&) = delete;
  NetNamespace& operator=(const NetNamespace&) = delete;

  // Whether the namespace was made.
  bool Ok() const { return m_ok; }
  const std::string& Name() const { return m_name; }

  // "ip -n NAME args": its exit status.
  int Ip(const std::string& args) const;
  // A shell command run inside the namespace ("ip netns exec"); its status.
  int Exec(const std::string& command) const;

  // Moves the calling thread into the namespace; false when it cannot.
  bool Enter() const;
  // Runs body on a new thread that has entered the namespace, and waits for
  // it. A failure to enter fails the current test.
  void Run(const std::function<void()>& body) const;

  // A veth pair with one end, nameA, in a and the other, nameB, in b, both
  // left down. False (with the reason in the test's output) when it fails.
  static bool Veth(const NetNamespace& a, const std::string& nameA, const NetNamespace& b,
                   const std::string& nameB);

private:
  std::string m_name;
  bool m_ok = false;
};

}  // namespace zotest

// Skips the current test, with the reason, when test namespaces cannot be made.
#define ZOTEST_REQUIRE_NET_NAMESPACES()                                         \
  do {                                                                          \
    std::string zotest_netns_reason_ = zotest::NetNamespaceUnavailableReason(); \
    if (!zotest_netns_reason_.empty()) GTEST_SKIP() << zotest_netns_reason_;    \
  } while (0)

#endif  // ZONET_TESTS_NETNAMESPACE_H
