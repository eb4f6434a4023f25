// Real servers as test peers: nginx, a scriptable HTTP peer, a forward proxy,
// vsftpd and sshd. Each fixture makes its own temporary folder (configuration,
// keys, certificates, logs, served files), starts its server on 127.0.0.1 on
// a free port, waits until the port accepts connections (polled against a
// deadline, never a fixed sleep), and in its destructor stops the server,
// reaps every process it started and removes the folder. Nothing of the
// machine's own is used or changed: no system service, no account, no file
// outside the folder.
//
// The servers are children of the test process that die with it
// (PR_SET_PDEATHSIG), so a crashed test leaves nothing running. The death
// signal belongs to the thread that started the child: make a fixture on a
// thread that outlives it (the test's own thread, normally).
//
// The first fixture makes the test process a child subreaper
// (PR_SET_CHILD_SUBREAPER): a server's sessions that outlive it become the
// test's children, so that stopping the server reaps them too and leaves no
// zombie behind.
//
// Every fixture also has a lifetime limit (kServerLifetimeSeconds), after
// which a watchdog kills its server, so that a hung test cannot keep one.
//
// Usage:
//   ZOTEST_REQUIRE_TOOL("nginx");
//   zotest::NginxServer nginx({});
//   ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
//   ... nginx.Url("index.html") ...
#ifndef ZONET_TESTS_SERVERS_H
#define ZONET_TESTS_SERVERS_H

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zotest {

// How long a fixture's server may live before the watchdog kills it.
constexpr int kServerLifetimeSeconds = 300;
// How long a server has to start accepting connections.
constexpr int kServerStartSeconds = 15;

// "" when the tool can run here, else why not; a missing program names the
// Debian package that brings it. Tools: "nginx", "tinyproxy", "vsftpd",
// "sshd", "python3", "openssl", "curl", "ssh", "sftp", "ssh-keygen". For
// "vsftpd" and "sshd" it also tells whether their fixtures can run here
// (root and a mount namespace, see PrivateMountsUnavailableReason).
std::string ServerUnavailableReason(const std::string& tool);

// The full path of a program (searched in PATH, then /usr/sbin, /sbin,
// /usr/bin, /bin); "" when there is none.
std::string FindProgram(const std::string& name);

// What a program run to its end printed, and how it ended.
struct ProgramResult {
  int status = -1;         // exit status; -1 when it could not run, was killed or timed out
  bool timedOut = false;   // killed at the deadline
  std::string out, err;    // everything it printed on stdout and stderr
};
// Runs argv (argv[0] a path, or a name looked up with FindProgram) with stdin
// from /dev/null, and waits for it at most timeoutMs; past that it is killed.
ProgramResult RunProgram(const std::vector<std::string>& argv, int timeoutMs = 10000);

// The contents of a file; "" when it cannot be read.
std::string ReadFile(const std::string& path);

// Bytes of a fixed, position-dependent pattern (not a short repetition), for
// large files whose contents a test can check anywhere without keeping them:
// PatternBytes(offset, n) is bytes offset..offset+n-1 of every such file.
std::string PatternBytes(uint64_t offset, size_t length);
// Writes bytes of the pattern to path, in blocks (never the whole file in
// memory); whether it could.
bool WritePatternFile(const std::string& path, uint64_t bytes);

// A port on 127.0.0.1 that was free a moment ago (bound with port 0, then
// released); 0 when none could be had. A server started on it may still lose
// it to another process: the fixtures retry with a new port when that happens.
int PickFreePort();

// Whether something accepts TCP connections on 127.0.0.1:port right now.
bool PortAccepts(int port);

// A child process in a process group of its own, with its stdout and stderr
// in a log file. Stopping it (or destroying it) ends it and every process it
// started, and reaps it.
class ChildProcess {
public:
  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Starts argv[0] (a full path) with the arguments. Its output goes to
  // logFile (appended). When readyFd is not null, a pipe is made whose write
  // end is the child's descriptor 3 and whose read end is put in *readyFd
  // (the caller closes it). False, with the reason in Error(), when it
  // cannot start.
  bool Start(const std::vector<std::string>& argv, const std::string& logFile, int* readyFd = nullptr,
             int lifetimeSeconds = kServerLifetimeSeconds);
  // Whether it still runs (reaps it when it has ended).
  bool Running();
  // TERM to it and every process below it; KILL to what remains after
  // graceMs; then reaps it. Safe to call more than once.
  void Stop(int graceMs = 3000);
  // KILL to every process below it; it keeps running (a server that forks a
  // process per connection drops its connections and keeps listening).
  void KillDescendants();
  pid_t Pid() const { return m_pid; }
  const std::string& Error() const { return m_error; }
  // How it ended, for a message ("exited with status 1", "killed by signal 9").
  std::string HowItEnded() const { return m_ended; }

private:
  void Watch(int lifetimeSeconds);
  void NoteEnd(int status);

  pid_t m_pid = -1;
  bool m_reaped = true;
  std::string m_error, m_ended, m_name;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_stopping = false;
  std::thread m_watchdog;
};

// Waits until 127.0.0.1:port accepts connections while child runs, at most
// timeoutMs. "" when it does; else why not (the child ended, or the time ran out).
std::string WaitUntilAccepting(ChildProcess& child, int port, int timeoutMs);

// A private directory under TMPDIR with everything in it removed at the end.
// Unlike TempDir it makes no test fail, so fixtures can use it anywhere.
class FixtureDir {
public:
  explicit FixtureDir(const std::string& tag);
  ~FixtureDir();
  FixtureDir(const FixtureDir&) = delete;
  FixtureDir& operator=(const FixtureDir&) = delete;
  bool Ok() const { return !m_path.empty(); }
  const std::string& Path() const { return m_path; }
  std::string File(const std::string& name) const { return m_path + "/" + name; }
  // Writes contents to name below the directory (making the folders on the way); the full path, "" on failure.
  std::string Write(const std::string& name, const std::string& contents, int mode = 0644) const;
  // Makes a folder below the directory; the full path.
  std::string MakeDir(const std::string& name, int mode = 0755) const;

private:
  std::string m_path;
};

// What every server fixture keeps: its process (stopped by the fixture's
// destructor), whether it started and, when not, why (with its logs), and
// the loopback port it listens on.
class ServerProcess {
public:
  bool Ok() const { return m_ok; }
  // Why it did not start; "" when Ok().
  const std::string& Reason() const { return m_reason; }
  int Port() const { return m_port; }

protected:
  ChildProcess m_child;
  bool m_ok = false;
  int m_port = 0;
  std::string m_reason;
};

// A throwaway certificate authority and a server certificate for "localhost"
// (SAN DNS:localhost, IP:127.0.0.1), made with openssl in a temp dir that
// goes with the object. RSA 2048, valid for two days.
class ThrowawayCA {
public:
  ThrowawayCA();
  bool Ok() const { return m_ok; }
  // Why it could not be made (with openssl's output); "" when Ok().
  const std::string& Reason() const { return m_reason; }
  const std::string& CaFile() const { return m_caFile; }      // the CA's certificate (PEM)
  const std::string& CaKeyFile() const { return m_caKeyFile; }  // the CA's private key (PEM)
  const std::string& CertFile() const { return m_certFile; }  // the server's certificate (PEM)
  const std::string& KeyFile() const { return m_keyFile; }    // the server's private key (PEM, unencrypted)
  // The server's certificate followed by the CA's (a chain file).
  const std::string& ChainFile() const { return m_chainFile; }
  // Another server certificate from this CA for the given names (each
  // "DNS:name" or "IP:addr"), with its key; false on failure.
  bool Issue(const std::string& name, const std::vector<std::string>& altNames, std::string* certFile,
             std::string* keyFile);

private:
  FixtureDir m_dir{"ca"};
  bool m_ok = false;
  std::string m_reason, m_caFile, m_caKeyFile, m_certFile, m_keyFile, m_chainFile;
};

// nginx on 127.0.0.1, a free port, its own prefix/config/logs in a temp dir;
// serves Root(). Runs as one process (master_process off) as the test's
// user, so it reads and writes the temp dir as the test does.
//
// What it serves:
//   /...                     files below Root(), with directory listings
//   /private/...             the same, behind Basic auth when Options::user is set
//   /upload/...              PUT, DELETE, MKCOL, COPY, MOVE (Options::dav), no size limit
//   /redirect/PATH           302 to /PATH
//   /redirect301/PATH        301 to /PATH
//   /status/NNN              an answer with status NNN and nginx's own body, for
//                            200 201 204 301 302 303 307 308 400 401 403 404 405
//                            409 410 500 501 502 503
class NginxServer : public ServerProcess {
public:
  struct Options {
    bool tls = false;          // HTTPS with a certificate from a throwaway CA
    std::string user, password;  // Basic auth on /private/ when user is set
    bool dav = true;           // PUT, DELETE, MKCOL on /upload/
    std::string extraConfig;   // more directives inside the server block
  };
  explicit NginxServer(const Options& options);
  ~NginxServer();
  NginxServer(const NginxServer&) = delete;
  NginxServer& operator=(const NginxServer&) = delete;

  // "http://localhost:PORT/path" (https with tls); a leading '/' in path is allowed.
  std::string Url(const std::string& path) const;
  // The served directory; private/ and upload/ are below it.
  const std::string& Root() const { return m_root; }
  // Writes a file below Root() (folders made on the way); its full path.
  std::string AddFile(const std::string& relativePath, const std::string& contents) const;
  // Writes a file of bytes bytes of the pattern (PatternBytes) below Root(),
  // for large downloads; its full path, "" on failure.
  std::string AddPatternFile(const std::string& relativePath, uint64_t bytes) const;
  // The throwaway CA that signed its certificate (tls only; "" otherwise).
  std::string CaFile() const;
  // The contents of its access log so far (nginx's "combined" format).
  std::string AccessLog() const;
  // Waits up to timeoutMs for needle to appear in the access log (nginx
  // writes the line as the request ends, which can be just after the client
  // has its answer); whether it did.
  bool WaitForAccessLog(const std::string& needle, int timeoutMs = 3000) const;
  // The contents of its error log so far.
  std::string ErrorLog() const;

private:
  bool StartOnce(std::string* why);
  Options m_options;
  FixtureDir m_dir{"nginx"};
  std::unique_ptr<ThrowawayCA> m_ca;
  std::string m_root;
};

// A scriptable HTTP peer: python3 with the standard library only
// (tests/support/http_peer.py), for byte-exact cases. It reads each request
// whole (headers, then a body by Content-Length or chunked framing), records
// it, and sends the next scripted reply.
class ScriptedHttpPeer : public ServerProcess {
public:
  // Each response is raw bytes to send for one request, plus an action.
  struct Reply {
    std::string raw;        // sent as is
    int delayMs = 0;        // before sending
    bool closeAfter = true;  // close the connection after the reply; else read the next request on it
    bool stall = false;      // accept, read the request, never answer until stopped
    size_t cutAfter = 0;     // close after this many bytes of raw, 0 = send all
  };
  struct Options {
    // Answer "Expect: 100-continue" with "HTTP/1.1 100 Continue" before
    // reading the body (not part of the scripted replies).
    bool answerExpectContinue = true;
  };
  // Replies in order, one per request; the last repeats.
  explicit ScriptedHttpPeer(const std::vector<Reply>& replies);
  ScriptedHttpPeer(const std::vector<Reply>& replies, const Options& options);
  ~ScriptedHttpPeer();
  ScriptedHttpPeer(const ScriptedHttpPeer&) = delete;
  ScriptedHttpPeer& operator=(const ScriptedHttpPeer&) = delete;

  // "http://localhost:PORT/path".
  std::string Url(const std::string& path) const;
  // Every request received so far, raw bytes (request line, headers, body), in order.
  std::vector<std::string> Requests() const;
  // Waits up to timeoutMs until at least count requests have arrived; whether they have.
  bool WaitForRequests(size_t count, int timeoutMs = 3000) const;
  // How many connections it has accepted so far.
  int Connections() const;

  // A reply with status line "HTTP/1.1 <status> <reason>", the headers given
  // (each "Name: value"), Content-Length of body unless a header names one
  // or noLength is set, then body.
  static std::string Response(int status, const std::string& reason, const std::vector<std::string>& headers,
                              const std::string& body, bool noLength = false);
  // The same reply with the body in chunks of chunkSize bytes (the last may
  // be shorter) and the closing zero chunk.
  static std::string ChunkedResponse(int status, const std::string& reason, const std::vector<std::string>& headers,
                                     const std::string& body, size_t chunkSize);

private:
  FixtureDir m_dir{"peer"};
};

// A forward proxy with Basic authentication: tinyproxy in the foreground with
// a private configuration, logging what it forwards. Plain requests and
// CONNECT tunnels to any port are allowed, from 127.0.0.1 only.
class ForwardProxy : public ServerProcess {
public:
  // Basic auth with user and password; an empty user: no authentication.
  // Neither may hold blanks or quotes (tinyproxy's configuration cannot).
  ForwardProxy(const std::string& user, const std::string& password);
  ~ForwardProxy();
  ForwardProxy(const ForwardProxy&) = delete;
  ForwardProxy& operator=(const ForwardProxy&) = delete;

  // "http://127.0.0.1:PORT" (for a client's proxy setting).
  std::string Url() const;
  // What it forwarded, from its log: the URL of each plain request
  // ("http://localhost:1234/a") and the target of each tunnel ("localhost:443"),
  // in order. Requests it refused are not listed.
  std::vector<std::string> ForwardedUrls() const;
  // Its whole log so far.
  std::string Log() const;

private:
  FixtureDir m_dir{"proxy"};
};

// Why servers cannot be given a private view of the system's files here
// ("" when they can): that needs root and a mount namespace (unshare).
std::string PrivateMountsUnavailableReason();

// A login that exists only for one server: a line of a private copy of
// /etc/passwd and /etc/shadow, bind-mounted over the real ones in a mount
// namespace that only the server's processes see. The real files are never
// written; no account is added to the machine.
struct PrivateLogin {
  std::string user, password;
  int uid = 65534, gid = 65534;
  std::string home, shell = "/bin/sh";
};

// vsftpd on 127.0.0.1, a free port, with configuration, PAM service, logs and
// the served tree in a temp dir. Needs root: it runs in a private mount
// namespace where its PAM service, its login (Options::user, uid 65534) and
// its anonymous account exist, and both are jailed (chroot) in Root().
// Plain FTP, explicit FTPS (AUTH TLS) or implicit FTPS with a throwaway CA.
// Root() and everything below it belong to the login's uid, so the login may
// read, write, rename and delete anywhere in it. Anonymous sessions run as
// another uid: they read everything and write only in upload/ (mode 0777),
// because vsftpd refuses an anonymous root that the session could write to.
// vsftpd answers a wrong password after a one-second delay of its own.
class FtpServer : public ServerProcess {
public:
  struct Options {
    bool tls = false;          // explicit FTPS: AUTH TLS; the login must use it (anonymous may not)
    bool implicitTls = false;  // implicit FTPS (TLS from the first byte; Url() gives ftps://)
    std::string user = "tester", password = "secret";  // the login; empty user: anonymous only
    bool anonymous = true;     // anonymous (or "ftp") login without a password
    int maxRate = 0;           // bytes per second of each transfer, for login and anonymous; 0: no limit
  };
  explicit FtpServer(const Options& options);
  ~FtpServer();
  FtpServer(const FtpServer&) = delete;
  FtpServer& operator=(const FtpServer&) = delete;

  // "ftp://localhost:PORT/path" ("ftps://" with implicitTls); path is below Root().
  std::string Url(const std::string& path) const;
  // The served tree, which is "/" to its clients.
  const std::string& Root() const { return m_root; }
  // Writes a file below Root(), owned by the login's uid; its full path.
  std::string AddFile(const std::string& relativePath, const std::string& contents) const;
  // Makes a folder below Root(), owned by the login's uid; its full path.
  std::string AddDir(const std::string& relativePath) const;
  // The throwaway CA that signed its certificate (tls or implicitTls; "" otherwise).
  std::string CaFile() const;
  // Its log so far: every command and answer, and each transfer.
  std::string Log() const;

private:
  Options m_options;
  FixtureDir m_dir{"ftp"};
  std::unique_ptr<ThrowawayCA> m_ca;
  std::string m_root;
};

// OpenSSH's sshd on 127.0.0.1, a free port, with its own host key, config,
// authorized_keys and client keys in a temp dir; SFTP only (internal-sftp).
// Needs root: it runs in a private mount namespace where its login
// (Options::user, uid 0, home Root()) exists with a throwaway password, and
// where /run is a private tmpfs for its privilege-separation folder. The
// login is uid 0 so that it reaches the temp dir; it is not jailed, so paths
// are absolute: Url() puts Root() in front.
class SshServer : public ServerProcess {
public:
  struct Options {
    std::string user = "tester", password = "secret";  // the login
    bool passwordAuth = true;  // accept the password (keys are always accepted)
  };
  explicit SshServer(const Options& options);
  ~SshServer();
  SshServer(const SshServer&) = delete;
  SshServer& operator=(const SshServer&) = delete;

  const std::string& User() const { return m_options.user; }
  const std::string& Password() const { return m_options.password; }
  // "sftp://localhost:PORT" + Root() + "/" + path. Root() is also the
  // login's home, so "sftp://localhost:PORT/~/path" names the same file.
  std::string Url(const std::string& path) const;
  // The folder the tests use; the session starts there.
  const std::string& Root() const { return m_root; }
  // Writes a file below Root(); its full path.
  std::string AddFile(const std::string& relativePath, const std::string& contents) const;
  // The client's private key that authorized_keys accepts: RSA in the PEM
  // form that every libssh2 reads; and its public half.
  std::string ClientKeyFile() const { return m_dir.File("client_rsa"); }
  std::string ClientPublicKeyFile() const { return m_dir.File("client_rsa.pub"); }
  // An Ed25519 client key (OpenSSH form), also accepted; and its public half.
  std::string ClientEd25519KeyFile() const { return m_dir.File("client_ed25519"); }
  std::string ClientEd25519PublicKeyFile() const { return m_dir.File("client_ed25519.pub"); }
  // A private key that authorized_keys does not list.
  std::string StrangerKeyFile() const { return m_dir.File("stranger_rsa"); }
  // A known_hosts file with its one host key (Ed25519) for localhost and
  // 127.0.0.1 on its port.
  std::string KnownHostsFile() const { return m_dir.File("known_hosts"); }
  // The host key's SHA-256 fingerprint, base64 without padding (as curl's
  // --hostpubsha256 wants it), and its MD5 as 32 hex digits.
  const std::string& HostKeySha256() const { return m_hostSha256; }
  const std::string& HostKeyMd5() const { return m_hostMd5; }
  // Its log so far (sshd -e, LogLevel VERBOSE).
  std::string Log() const;
  // Ends every session at once, as a server that goes away mid-transfer;
  // the listener stays.
  void DropSessions() { m_child.KillDescendants(); }

private:
  Options m_options;
  FixtureDir m_dir{"ssh"};
  std::string m_root, m_hostSha256, m_hostMd5;
};

}  // namespace zotest

// Skips the current test, with the reason, when the tool cannot run here.
#define ZOTEST_REQUIRE_TOOL(tool)                                      \
  do {                                                                 \
    std::string zotest_tool_reason_ = zotest::ServerUnavailableReason(tool); \
    if (!zotest_tool_reason_.empty()) GTEST_SKIP() << zotest_tool_reason_;  \
  } while (0)

#endif  // ZONET_TESTS_SERVERS_H
