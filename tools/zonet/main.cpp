// zonet: the library's command-line tool. Each subcommand is one job of the
// library, run from the shell; every failure is printed with its whole error
// chain and gives exit status 1, a usage error 2.
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
      {"accept", "PORT --timeout S", "listen on 127.0.0.1:PORT (0: any) and accept one client within S seconds",
       zonet::CmdAccept},
      // ping
      {"ping", "HOST [-c COUNT] [-s SIZE] [-W SECONDS]",
       "ICMP echo to HOST (raw socket: root or CAP_NET_RAW); a line per attempt and a summary", zonet::CmdPing},
  };
  count = sizeof commands / sizeof commands[0];
  return commands;
}

int Usage(FILE* out) {
  size_t count = 0;
  const zonet::Command* commands = Commands(count);
  std::fprintf(out, "usage: zonet COMMAND [ARGS]\n\ncommands:\n");
  for (size_t i = 0; i < count; ++i) {
    std::string head = std::string(commands[i].name) + (*commands[i].args ? " " : "") + commands[i].args;
    std::fprintf(out, "  %-40s %s\n", head.c_str(), commands[i].help);
  }
  return out == stdout ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage(stderr);
  std::string name = argv[1];
  if (name == "help" || name == "--help" || name == "-h") return Usage(stdout);

  CZoSockInit sockets;
  CZoError started = sockets.Init();
  if (started.IsError()) {
    std::fprintf(stderr, "zonet: %s\n", started.AsString().c_str());
    return 1;
  }

  size_t count = 0;
  const zonet::Command* commands = Commands(count);
  for (size_t i = 0; i < count; ++i) {
    if (name == commands[i].name) return commands[i].run(std::vector<std::string>(argv + 2, argv + argc));
  }
  std::fprintf(stderr, "zonet: unknown command '%s'\n\n", name.c_str());
  return Usage(stderr);
}
