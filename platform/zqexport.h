// Marks what libzqplatform.so exports; everything else in the library is hidden.

#ifndef ZQPLATFORM_ZQEXPORT_H
#define ZQPLATFORM_ZQEXPORT_H

// Stands in front of every class, function and object that callers may use.
#define ZQPLATFORM_EXPORT __attribute__((visibility("default")))

// Stands in front of a private function of an exported class that no inline function calls.
#define ZQPLATFORM_INTERNAL __attribute__((visibility("hidden")))

#endif
