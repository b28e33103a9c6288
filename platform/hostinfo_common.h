// The machine that the process runs on.
//
//   const char* host = ZQGetHostName();
//   zqout << (host ? host : "unknown") << ", " << ZQGetPlatformInfo() << zqendl;
//
// Nothing prints or throws; what is not known is null, empty or 0. Every function may be called
// from any thread at any time.

#ifndef ZQPLATFORM_HOSTINFO_COMMON_H
#define ZQPLATFORM_HOSTINFO_COMMON_H

#include "zqexport.h"
#include "zquserinfo.h"

#include <string>

namespace ZQPlatform {

// ---- Found out at the first call, which can take long, and never again. The pointers stay valid
// and what they point to stays the same to the end of the process.

// The host name up to its first '.', at most 127 bytes. Null where that is empty.
ZQPLATFORM_EXPORT const char* ZQGetHostName();

// The NIS domain name; where there is none, what follows the first '.' of the name that the
// resolver gives for an empty name. At most 127 bytes. Null where there is neither.
// Deliberate: the domain in the host's own full name is not looked at.
ZQPLATFORM_EXPORT const char* ZQGetDomainName();

// The 4 bytes, in network order, of the first IPv4 address of an interface outside 127.0.0.0/8,
// else of the last one inside. Null where there is neither.
ZQPLATFORM_EXPORT const unsigned char* ZQGetIPAddress();

// ---- Found out at each call.

// The processors online, else those configured, else those in "/proc/cpuinfo".
// Deliberate: where the platform cannot tell and reports -1, that is the result: 4294967295.
ZQPLATFORM_EXPORT unsigned int ZQGetNumProcessors();

// Always empty on this platform.
ZQPLATFORM_EXPORT std::string ZQGetMachineName();

// What the distribution calls itself in "/etc/lsb-release", with its quotation marks, or else the
// name of the system; then the release of the kernel: "\"Debian 12\" (6.1.0-18)".
ZQPLATFORM_EXPORT std::string ZQGetPlatformInfo();

// The architecture, as the kernel names it: "x86_64".
ZQPLATFORM_EXPORT std::string ZQGetProcessorInfo();

}  // namespace ZQPlatform

#endif
