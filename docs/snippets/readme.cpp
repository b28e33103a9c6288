//! [first program]
#include <zqplatform/zqplatform.h>

using namespace ZQPlatform;

int main(int argc, char** argv)
{
    zqistream* in = argc == 4 ? ZQOpenIStream(argv[2]) : nullptr;  // finds "name.gz", too
    zqostream* out = in ? ZQOpenOStream(argv[3]) : nullptr;        // "name.gz" writes gzip
    std::string line;
    while (out && in->getline(line))
        if (line.find(argv[1]) != std::string::npos)
            *out << line << '\n';
    ZQCloseOStream(out);  // null does nothing
    ZQCloseIStream(in);
    return out ? 0 : 1;
}
//! [first program]
