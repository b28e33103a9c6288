// Cleans text that a user typed before it reaches the operating system.
//
// Deliberate: neither function is a security boundary. They drop the characters
//
//   tab  newline  blank  " & ' ( ) ; < > [ ] { | }
//
// and keep all others, the dollar sign, the backquote, the asterisk, the question mark and the
// backslash among them. So a shell still acts on what comes out.
//
// Both may be called from several threads as far as the platform's user database and
// environment allow it.

#ifndef ZQPLATFORM_ZQPROCESS_H
#define ZQPLATFORM_ZQPROCESS_H

#include "zqexport.h"

#include <string>

namespace ZQPlatform {

// The file name at the start of 'name': white space before it is skipped and the first one after
// it ends it. A leading "~user" becomes that user's home directory, or stays as it is where there
// is no such user; a leading "~" alone becomes the value of HOME, or "." where HOME is not set.
// What they become is copied as it is, with nothing dropped. Null gives the empty string.
ZQPLATFORM_EXPORT std::string ZQProcessFileName(const char* name);

// 'command' without the characters above and without white space before it. Deliberate: blanks
// are dropped inside it too, so that a single word is left ("ls -l" gives "ls-l"). Null gives the
// empty string.
ZQPLATFORM_EXPORT std::string ZQProcessSystemCommand(const char* command);

}  // namespace ZQPlatform

#endif
