// What the transfer commands (http, ftp, sftp) share: the sinks and sources
// handed to the request layer with their progress line, URL and credential
// helpers, and the printing of a saved listing.
#ifndef ZONET_TOOLS_TRANSFER_H
#define ZONET_TOOLS_TRANSFER_H

#include <chrono>
#include <cstdio>
#include <string>

#include "ZoNetwork/XnProtocolReq.h"

namespace zonet {

// One direction of a transfer: the file the bytes go to or come from and how
// far it got, for the progress line.
struct Transfer {
  FILE* file = nullptr;
  unsigned long long bytes = 0;
  const char* verb = "received";
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now(), lastShown = start;
  bool shown = false;
};

// A transfer that runs longer than a second shows a progress line on standard
// error, renewed at most twice a second; last ends it with a line feed.
void ShowProgress(Transfer& t, bool last);
// The body sink: writes to t.file (a Transfer*) and shows progress.
size_t ReceiveInto(char* data, size_t size, size_t count, void* transfer);
// The upload source: reads from t.file (a Transfer*) and shows progress.
size_t SendFrom(void* data, size_t size, size_t count, void* transfer);

// The scheme and authority of a URL ("ftp://host:port"), or "" when it has no
// scheme.
std::string ServerOf(const std::string& url);
// "USER:PASSWORD" into its halves; false without a colon.
bool SplitCredentials(const std::string& text, std::string& user, std::string& password);

// Fetches the listing of url with request into a temporary file, reads it
// back with the request's own parser and prints one entry a line (a "/"
// behind a directory where the parser knows it when markDirectories is set).
// The error of either step.
CZoError PrintListing(XnCURL::XnProtocolReq& request, const std::string& url, bool markDirectories);

}  // namespace zonet

#endif  // ZONET_TOOLS_TRANSFER_H
