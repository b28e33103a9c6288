// Calls in any order on every class of output stream, against a buffer of bytes.

#include "writer_model.h"

#include <memory>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    WriterModel model(ZQ_STREAM_BUFSIZE);
    MemoryFile target;
    zqosstream text, same;
    std::ostringstream standard;
    zqiofstream file;
    zqowrapperstream wrapper;
    zqmultiostream both;
    zqostdstream adaptor(&standard, false);
    zqostream nothing;
    CHECK(file.openfd(::dup(target.fd), true) && wrapper.set(&text, false));
    CHECK(wrapper.set(&text, true));  // attached already: it stays the caller's
    for (zqostream* stream : {static_cast<zqostream*>(&text), static_cast<zqostream*>(nullptr),
                              static_cast<zqostream*>(&same)})
        both.addstream(stream, false);
    zqostream* const streams[] = {&file, &text, &wrapper, &both, &adaptor, &nothing};
    const size_t kind = input.upTo(std::size(streams) - 1);

    zqostream& out = *streams[kind];
    model.relative = &out == &adaptor;
    while (!input.empty()) {
        writeOnce(input, out, model);
        CHECK(out.tell() == model.offset + long(model.at) && !out.eof());
    }
    out.flush();
    model.flush();
    string block(model.sent.size() + 1, '\0');
    if (&out == &file)
        CHECK(file.pread(block.data(), block.size(), 0) == long(model.sent.size()) &&
              block.compare(0, model.sent.size(), model.sent) == 0);
    CHECK(&out == &nothing || (&out == &file      ? target.text()
                               : &out == &adaptor ? standard.str()
                                                  : text.str()) == model.sent);
    CHECK(&out != &both || same.str() == model.sent);
    return 0;
}
