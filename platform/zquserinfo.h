// The user that the process belongs to.
//
// Everything is asked anew at each call; what is not known is the empty string. ZQGetUserName may
// not run together with other look-ups in the password database, the others may at any time.

#ifndef ZQPLATFORM_ZQUSERINFO_H
#define ZQPLATFORM_ZQUSERINFO_H

#include "zqexport.h"

#include <string>

namespace ZQPlatform {

// The login name of the real user.
ZQPLATFORM_EXPORT std::string ZQGetUserName();

// The value of the environment variable HOME as it stands, if ZQFileIsDirectory accepts it (so
// never "/"). Deliberate: the password database is not asked.
ZQPLATFORM_EXPORT std::string ZQGetUserHomeDir();

// On this platform both are the home directory.
ZQPLATFORM_EXPORT std::string ZQGetUserAppDataDir();
ZQPLATFORM_EXPORT std::string ZQGetUserDocumentsDir();

}  // namespace ZQPlatform

#endif
