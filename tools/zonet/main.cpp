// zonet: the library's command-line tool. Each subcommand is one job of the
// library, run from the shell; every failure is printed with its whole error
// chain and gives exit status 1, a usage error 2 with the command's usage line.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ZoNetwork/ZoNetwork.h"
#include "commands.h"

namespace {

const zonet::Command* Commands(size_t& count) {
  static const zonet::Command commands[] = {
      {"version", "", "print the library's version", zonet::CmdVersion},
      // addresses and resolution (flat layer)
      {"resolve", "NAME [--family 4|6]", "resolve a host name (or take a local socket path) to its addresses",
       zonet::CmdResolve},
      {"addr", "TEXT", "parse a numeric address or a local socket path and show its record", zonet::CmdAddr},
      // sockets, descriptor sets, socket pairs (flat layer)
      {"pair", "", "make a loopback socket pair, send a message across it and close both ends", zonet::CmdPair},
      // address object and blacklist
      {"cidr", "ADDRESS BLOCK", "whether an IPv4 address lies within a CIDR block", zonet::CmdCidr},
      {"blacklist", "FILE [--grace N] [--expire S]", "load an address blacklist file and list it",
       zonet::CmdBlacklist},
      // socket object, selector, stack probes
      {"bindable", "ADDRESS", "whether a socket can be bound to an address (or local socket path)",
       zonet::CmdBindable},
      {"stacks", "", "whether the IPv4, IPv6 and local (Unix) socket stacks are present", zonet::CmdStacks},
      {"accept", "PORT --timeout S",
       "listen on 127.0.0.1:PORT (0: any free port) and accept one client within S seconds (0: no limit)",
       zonet::CmdAccept},
      // interface discovery
      {"ifaces", "[--pairs] [--macs] [--names]",
       "the adapters' addresses (--pairs: with companions), hardware addresses, sorted digest with names",
       zonet::CmdIfaces},
      // ping
      {"ping", "HOST [-c COUNT] [-s SIZE] [-W SECONDS]",
       "ICMP echo to HOST (raw socket: root or CAP_NET_RAW); a line per attempt and a summary", zonet::CmdPing},
      {"http",
       "get URL [-o FILE] | put FILE URL | head URL | ls URL [--insecure] [--user U:P] [--proxy [U:P@]HOST:PORT]",
       "one HTTP or HTTPS request: GET to standard output or FILE (a progress line on long transfers), PUT of a "
       "file, HEAD with the answer's headers, or the entries of a directory page",
       zonet::CmdHttp},
      {"ftp", "get URL [-o FILE] | put FILE URL | ls URL [--user U:P] [--ssl] [--insecure] [--active]",
       "one FTP request (--ssl: explicit FTPS): download to standard output or FILE, upload of a file, or the "
       "names of a directory; a progress line on long transfers",
       zonet::CmdFtp},
      {"sftp", "get URL [-o FILE] | put FILE URL | ls URL [--user U:P]",
       "one SFTP request with a password or the key in ~/.ssh: download, upload, or the names of a directory",
       zonet::CmdSftp},
      // platform HTTP client
      {"zohttp", "get BASEURL FILE | ls BASEURL | upload BASEURL LOGFILE [options]",
       "ZoHTTP: fetch FILE of BASEURL into --dir DIR (default .), list BASEURL's links, or post LOGFILE to its "
       "upload script (--tkid T); --jsp, --agent A, --user U, --password P, --insecure, --timeout MS",
       zonet::CmdZoHttp},
      {"http2", "get URL FILE | put FILE URL [--user U] [--password P] [--timeout S] [--post] [--raw-url]",
       "CZoHTTP2: fetch URL into FILE, or send FILE to URL (PUT; --post: POST); --raw-url: no escaping",
       zonet::CmdHttp2},
      {"proxy", "[URL] [--pac URL]",
       "the machine's and the user's proxy settings, and the proxy for URL by the script --pac URL (else the "
       "user's script, else auto-detection)",
       zonet::CmdProxy},
  };
  count = sizeof commands / sizeof commands[0];
  return commands;
}

// "usage: zonet NAME ARGS" for one command.
void PrintUsageLine(FILE* out, const zonet::Command& command) {
  std::fprintf(out, "usage: zonet %s%s%s\n", command.name, *command.args ? " " : "", command.args);
}

int Usage(FILE* out) {
  size_t count = 0;
  const zonet::Command* commands = Commands(count);
  std::fprintf(out, "usage: zonet COMMAND [ARGS]\n       zonet COMMAND --help\n       zonet --version\n\ncommands:\n");
  for (size_t i = 0; i < count; ++i) {
    std::string head = std::string(commands[i].name) + (*commands[i].args ? " " : "") + commands[i].args;
    std::fprintf(out, "  %-40s %s\n", head.c_str(), commands[i].help);
  }
  return out == stdout ? 0 : 2;
}

const zonet::Command* Find(const std::string& name) {
  size_t count = 0;
  const zonet::Command* commands = Commands(count);
  for (size_t i = 0; i < count; ++i) {
    if (name == commands[i].name) return &commands[i];
  }
  return nullptr;
}

bool IsHelp(const std::string& arg) { return arg == "--help" || arg == "-h"; }

// The usage line and the help text of one command, on standard output.
int CommandHelp(const zonet::Command& command) {
  PrintUsageLine(stdout, command);
  std::printf("\n%s\n", command.help);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage(stderr);
  const std::string name = argv[1];
  const std::vector<std::string> args(argv + 2, argv + argc);
  if (name == "help" || IsHelp(name)) {
    if (args.empty()) return Usage(stdout);
    const zonet::Command* command = Find(args[0]);
    if (command != nullptr && args.size() == 1) return CommandHelp(*command);
    if (command == nullptr) {
      std::fprintf(stderr, "zonet: help: no command '%s'\n\n", args[0].c_str());
    } else {
      std::fprintf(stderr, "zonet: help: one COMMAND only\n\n");
    }
    return Usage(stderr);
  }
  if (name == "--version") {
    if (args.empty()) return zonet::CmdVersion(args);
    std::fprintf(stderr, "zonet: --version takes no arguments\n");
    return 2;
  }

  const zonet::Command* command = Find(name);
  if (command == nullptr) {
    std::fprintf(stderr, "zonet: unknown command '%s'\n\n", name.c_str());
    return Usage(stderr);
  }
  // Asking for help is never a usage error, wherever it stands.
  for (const std::string& arg : args) {
    if (IsHelp(arg)) return CommandHelp(*command);
  }

  CZoSockInit sockets;
  CZoError started = sockets.Init();
  if (started.IsError()) return zonet::Fail(started);

  const int status = command->run(args);
  // The command has said what was wrong in one line; how to call it is the
  // table's to say.
  if (status == 2) PrintUsageLine(stderr, *command);
  return status;
}
