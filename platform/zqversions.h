// The version report: what components are loaded into the process, and in which versions.
//
// Each component registers a function from its start-up code; a program prints them all:
//
//   ZQPlatform::ZQVersion describe() { return {"Toolkit", "alpha", "3.0"}; }
//   const bool registered = (ZQPlatform::ZQRegisterVersion(describe), true);
//   ...
//   ZQPlatform::ZQGetVersions(zqout);
//
// Not synchronised: register on one thread, before anybody asks for a report.

#ifndef ZQPLATFORM_ZQVERSIONS_H
#define ZQPLATFORM_ZQVERSIONS_H

#include "zqexport.h"
#include "zqstream.h"

#include <string>

namespace ZQPlatform {

// One line of the report.
struct ZQVersion {
    std::string group;    // the heading to list it under; empty: above all headings
    std::string name;     // of the component
    std::string version;  // any text
};

// Adds a component for the rest of the process. 'function' may not be null. It is called at each
// report; others that it registers then are listed by the next one. Added twice, it is listed
// twice.
ZQPLATFORM_EXPORT void ZQRegisterVersion(ZQVersion (*function)());

// Writes the report, one line for each component, sorted by group and then by line, bytewise:
//
//   Build ID: 20200131-7         only if the library was built with one (CMake: BUILD_ID);
//                                an empty line follows
//   lone Version: 2.1            of the group ""
//   ========== Extras ==========
//   gamma Version: 0.9
//                                an empty line between groups
//   ========== Toolkit ==========
//   alpha Version: 3.0
//
// The heading lines end with a blank. Nothing registered and no identifier: nothing is written.
ZQPLATFORM_EXPORT void ZQGetVersions(zqostream& out);

// The release of the toolkit that this library belongs to, "2020.1.0".
ZQPLATFORM_EXPORT std::string ZQToolkitsGetRelease();

}  // namespace ZQPlatform

#endif
