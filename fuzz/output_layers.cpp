// Wrappers and adaptors over other output streams: what they attach, own, move and let go of.

#include "fuzz.h"

#include <sstream>

namespace {

// A position in front of the buffer or behind it moves what is below, if it can go there. That
// tells false all the same.
void seekBelow(const string& lower, size_t position, const string& text)
{
    string block(200000, ' '), expected = block;
    zqostream memory;
    zqowrapperstream wrapper;
    CHECK(memory.open(reinterpret_cast<unsigned char*>(block.data()), block.size()));
    CHECK(wrapper.set(&memory, false) && wrapper.set(&memory, true));  // the first word stays
    CHECK(wrapper.write(lower) == lower.size() && wrapper.flush());
    CHECK(wrapper.seek(long(position)) == (position == lower.size()));
    CHECK(wrapper.tell() == long(position) && wrapper.write(text) == text.size());
    CHECK(!wrapper.seek(300000) && wrapper.tell() == long(position + text.size()));
    CHECK(wrapper.size() == block.size());
    CHECK(block == expected.replace(0, lower.size(), lower).replace(position, text.size(), text));
    wrapper.close();
    CHECK(wrapper.size() == 0 && !wrapper.seek(300000));
}

// An adaptor deletes what it owns, and lets through what is no failure of the stream.
void adapt(const string& text)
{
    struct Throwing : std::streambuf {
        int sync() override { throw 1; }
    } buffer;
    std::ostream throwing(&buffer);
    throwing.exceptions(std::ios::badbit);
    zqostdstream owner(new std::ostringstream, true), adaptor(&throwing, false);
    bool thrown = false;
    try {
        adaptor.flush();
    } catch (int) {
        thrown = true;
    }
    std::ostringstream standard;
    CHECK(thrown && adaptor.set(&standard, false) && adaptor.set(&standard, true));
    CHECK(adaptor.write(text) == text.size() && adaptor.flush() && standard.str() == text);
    standard.setstate(std::ios::failbit);
    CHECK(!adaptor.seek(300000) && adaptor.tell() == 0);  // counts from the latest flush
}

// Derived streams let go of what they hold: of the text, of the destination of a begun member.
void letGo(const string& text)
{
    struct Text : zqosstream {
        ~Text() override { CHECK((_zqclear(), str().empty())); }
    } dropped;
    CHECK(dropped.set(nullptr, 5) && dropped.str().empty());
    CHECK(dropped.write(text) == text.size() && dropped.str() == text);
    struct Gzip : zqogzstream {
        using zqogzstream::zqogzstream;
        ~Gzip() override { stream = nullptr; }
    };
    zqosstream lost;
    CHECK(Gzip(&lost, false).flush() && lost.str().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    printed();
    Input input(bytes, size);
    const string lower = input.text(1000), text = input.text(140000);
    seekBelow(lower, input.upTo(65535) % (lower.size() + 1), text);
    adapt(text);
    letGo(text);
    CHECK(!zqiofstream(string("/dev/null")).eof() && printed().empty());
    return 0;
}
