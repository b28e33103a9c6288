// A program built without PIE holds the global streams itself, and the library uses them there.

#include <zqplatform/zqplatform.h>

int main()
{
    ZQPlatform::zqostream* out = ZQPlatform::ZQOpenOStream("");  // wraps the library's own zqout
    if (!dynamic_cast<ZQPlatform::zqowrapperstream*>(out)) return 1;
    *out << "One zqout ";
    ZQPlatform::ZQCloseOStream(out);
    ZQPlatform::zqout << "for all\n";
    return 0;
}
