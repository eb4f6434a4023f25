// zonet ftp: one FTP (or explicit FTPS) request over the library's curl
// layer: a download to standard output or a file, an upload of a file, or the
// names of a directory. zonet sftp runs the same over SFTP.
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "ZoNetwork/XnFTPReq.h"
#include "ZoNetwork/XnSFTPReq.h"
#include "commands.h"
#include "transfer.h"

namespace zonet {

namespace {

struct Options {
  std::string verb, url, file, output, user;
  bool ssl = false, insecure = false, active = false;
};

int Parse(const char* name, bool sftp, const Args& args, Options& o) {
  std::vector<std::string> plain;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string& into) {
      if (i + 1 >= args.size()) return false;
      into = args[++i];
      return true;
    };
    if (a == "--user" || a == "-u") {
      if (!value(o.user)) return UsageError("%s: %s wants USER:PASSWORD", name, a.c_str());
    } else if (a == "-o" || a == "--output") {
      if (!value(o.output)) return UsageError("%s: %s wants a FILE", name, a.c_str());
    } else if (!sftp && a == "--ssl") {
      o.ssl = true;
    } else if (!sftp && a == "--active") {
      o.active = true;
    } else if (!sftp && (a == "--insecure" || a == "-k")) {
      o.insecure = true;
    } else if (a.size() > 1 && a[0] == '-') {
      return UsageError("%s: unknown option '%s'", name, a.c_str());
    } else {
      plain.push_back(a);
    }
  }
  if (plain.empty()) return UsageError("%s: get, put or ls wanted", name);
  o.verb = plain[0];
  if (o.verb == "get" || o.verb == "ls") {
    if (plain.size() != 2) return UsageError("%s: %s wants one URL", name, o.verb.c_str());
    o.url = plain[1];
  } else if (o.verb == "put") {
    if (plain.size() != 3) return UsageError("%s: put wants FILE and URL", name);
    o.file = plain[1];
    o.url = plain[2];
  } else {
    return UsageError("%s: unknown request '%s' (get, put or ls)", name, o.verb.c_str());
  }
  if (!o.output.empty() && o.verb != "get") return UsageError("%s: -o goes with get only", name);
  const std::string scheme = sftp ? "sftp://" : "ftp://";
  if (o.url.compare(0, scheme.size(), scheme) != 0 || ServerOf(o.url).size() <= scheme.size()) {
    return UsageError("%s: '%s' is no URL (%sHOST[:PORT]/PATH)", name, o.url.c_str(), scheme.c_str());
  }
  std::string user, password;
  if (!o.user.empty() && !SplitCredentials(o.user, user, password)) {
    return UsageError("%s: --user wants USER:PASSWORD", name);
  }
  return 0;
}

CZoError Configure(XnCURL::XnFTPReq& request, bool sftp, const Options& o) {
  CZoError e = request.initialize(0);
  if (e.IsError()) return e;
  // The whole URL goes as the path: its server replaces the registered one.
  request.setURL(ServerOf(o.url));
  std::string user, password;
  if (SplitCredentials(o.user, user, password)) {
    e = request.setCredentials(user, password);
    if (e.IsError()) return e;
  }
  if (sftp) {
    // The password, or the key of the home folder (~/.ssh/id_rsa).
    return request.setFTPAuth(static_cast<int>(CURLSSH_AUTH_PASSWORD | CURLSSH_AUTH_PUBLICKEY));
  }
  if (o.ssl) {
    e = request.setSSL();
    if (e.IsError()) return e;
  }
  if (o.insecure) {
    e = request.setSecured(false, "");
    if (e.IsError()) return e;
  }
  if (o.active) {
    e = request.setActiveMode("", "");
    if (e.IsError()) return e;
  }
  return CZoError::Success();
}

int Run(const char* name, bool sftp, const Args& args) {
  Options o;
  int status = Parse(name, sftp, args, o);
  if (status != 0) return status;
  XnCURL::XnSFTPReq secure;
  XnCURL::XnFTPReq plain;
  XnCURL::XnFTPReq& request = sftp ? static_cast<XnCURL::XnFTPReq&>(secure) : plain;
  const FXCodeLocation where = FXLOC(sftp ? "zonet::CmdSftp" : "zonet::CmdFtp");
  CZoError e = Configure(request, sftp, o);
  if (e.IsError()) return Fail(e.Push(where));
  const std::vector<XnCURL::commandInfo> none;

  if (o.verb == "ls") {
    e = PrintListing(request, o.url, false);
    if (e.IsError()) return Fail(e.Push(where));
    return 0;
  }

  if (o.verb == "get") {
    Transfer t;
    t.file = o.output.empty() ? stdout : std::fopen(o.output.c_str(), "wb");
    if (t.file == nullptr) return Fail(FXErrorUtil::ErrorWin32(where, errno, "cannot open %s", o.output.c_str()));
    request.setWriteFunctionPointer(&t, ReceiveInto);
    e = request.download(o.url.c_str(), none);
    ShowProgress(t, true);
    if (t.file != stdout && std::fclose(t.file) != 0 && !e.IsError()) {
      e = FXErrorUtil::ErrorWin32(where, errno, "cannot write %s", o.output.c_str());
    }
    if (e.IsError()) return Fail(e.Push(where, "download of %s", o.url.c_str()));
    if (!o.output.empty()) std::printf("%llu bytes saved to %s\n", t.bytes, o.output.c_str());
    return 0;
  }

  // put
  Transfer t;
  t.verb = "sent";
  t.file = std::fopen(o.file.c_str(), "rb");
  if (t.file == nullptr) return Fail(FXErrorUtil::ErrorWin32(where, errno, "cannot open %s", o.file.c_str()));
  std::fseek(t.file, 0, SEEK_END);
  const long size = std::ftell(t.file);
  std::rewind(t.file);
  request.setReadFunctionPointer(&t, SendFrom);
  e = request.uploadFile(o.file.c_str(), o.url.c_str(), size < 0 ? 0 : static_cast<size_t>(size), none);
  ShowProgress(t, true);
  std::fclose(t.file);
  if (e.IsError()) return Fail(e.Push(where, "upload to %s", o.url.c_str()));
  std::printf("%llu bytes sent to %s\n", t.bytes, o.url.c_str());
  return 0;
}

}  // namespace

int RunFileTransfer(const Args& args, bool sftp) { return Run(sftp ? "sftp" : "ftp", sftp, args); }

int CmdFtp(const Args& args) { return RunFileTransfer(args, false); }

}  // namespace zonet
