// The narrow face of the system under the curl layer: where ZoNetwork's own
// file lies and whether a file is there. Loading goes through ZoUtils'
// CZoLibrary. Not installed, not exported.
#ifndef ZONETWORK_CURL_CURLPLATFORM_H
#define ZONETWORK_CURL_CURLPLATFORM_H

#include <string>

namespace zonet_curl_platform {

// The path of the file that holds this code (the shared library, or the
// program when the code is linked statically); false when the system cannot
// say.
bool OwnModulePath(std::string& path);

// Whether path names an existing file (of any kind but a directory).
bool FileExists(const std::string& path);

// The file name of the target's libcurl.
const char* CurlFileName();

// The path separator of the platform.
const char* PathSeparator();

}  // namespace zonet_curl_platform

#endif  // ZONETWORK_CURL_CURLPLATFORM_H
