// The subcommands of zonet, one function each.
#ifndef ZONET_TOOLS_COMMANDS_H
#define ZONET_TOOLS_COMMANDS_H

#include <string>
#include <vector>

class CZoError;

namespace zonet {

// Prints error on standard error: a head line after "zonet: " with the
// error's domain, number and name ("errno 110 ETIMEDOUT", "resolver
// EAI_NONAME"), then every entry of its chain with its source place.
void PrintError(const CZoError& error);
// PrintError, then the exit status of a failure of the library (1).
int Fail(const CZoError& error);
// Prints one line, "zonet: " and the printf text, on standard error and
// returns the exit status of a usage error (2); main then adds the command's
// usage line.
int UsageError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The whole of text as a decimal number within [low, high], or false.
bool ParseNumber(const std::string& text, long long low, long long high, long long& value);

using Args = std::vector<std::string>;

struct Command {
  const char* name;
  const char* args;
  const char* help;
  int (*run)(const Args& args);
};

// Exit status 0 for success, 1 for a failure of the library, 2 for a usage
// error. A command that returns 2 has printed its one-line reason (UsageError);
// main prints the usage line from the table. main answers --help and -h itself.
int CmdVersion(const Args& args);
// addresses and resolution (flat layer)
int CmdResolve(const Args& args);
int CmdAddr(const Args& args);
// sockets, descriptor sets, socket pairs (flat layer)
int CmdPair(const Args& args);
// address object and blacklist
int CmdCidr(const Args& args);
int CmdBlacklist(const Args& args);
// socket object, selector, stack probes
int CmdBindable(const Args& args);
int CmdStacks(const Args& args);
int CmdAccept(const Args& args);
// interface discovery
int CmdIfaces(const Args& args);
// ping
int CmdPing(const Args& args);
// requests over libcurl
int CmdHttp(const Args& args);
int CmdFtp(const Args& args);
int CmdSftp(const Args& args);
// What ftp and sftp share (cmd_ftp.cpp).
int RunFileTransfer(const Args& args, bool sftp);
// platform HTTP client
int CmdZoHttp(const Args& args);
// the second platform HTTP client and its proxy look-ups
int CmdHttp2(const Args& args);
int CmdProxy(const Args& args);

}  // namespace zonet

#endif  // ZONET_TOOLS_COMMANDS_H
