// How the programs behind the documents say that a document is wrong.

#include <zqplatform/zqstream.h>

#include <cstdlib>

inline void expect(bool holds, const char* what)
{
    if (holds)
        return;
    ZQPlatform::zqerr << "not so: " << what << ZQPlatform::zqendl;
    std::exit(1);
}
