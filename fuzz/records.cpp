// Records whose bodies read more or less than they announce, and streams that end inside them.

#include "fuzz.h"

namespace {

// Announces one size, writes a body, and reads a number of bytes.
struct Record : ZQBinaryIO {
    void Write(zqostream& out) const override { out.write(body); }
    unsigned int Read(zqistream& in) override
    {
        in.read(body, wanted);
        return static_cast<unsigned int>(in.count()) + lie;
    }
    unsigned int GetSize() const override { return announced; }

    string body;
    unsigned int announced = 0, lie = 0;
    size_t wanted = 0;
};

void readRecord(Input& input, zqistream& in, const string& bytes, size_t& at)
{
    Record record;
    record.wanted = input.size();
    record.lie = input.upTo(3) == 3 ? input.byte() : 0;
    string head = bytes.substr(at, 4), lines;
    at += head.size();
    head.resize(4);
    size_t announced = 0;
    for (char c : head) announced = announced << 8 | static_cast<unsigned char>(c);
    const string body = bytes.substr(at, record.wanted);
    at += body.size();
    if (body.size() + record.lie != announced)
        lines = "WARNING operator>>(zqistream& istr, ZQBinaryIO& obj) \nRecord size (" +
                std::to_string(announced) + ") is not equal to number of bytes read (" +
                std::to_string(body.size() + record.lie) + ")\n";
    CHECK(&(in >> record) == &in && record.body == body);
    CHECK(printed() == lines && in.tell() == long(at));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    printed();
    Input input(bytes, size);
    zqosstream out;
    string written;
    for (size_t n = input.upTo(4); n > 0; --n) {
        Record record;
        record.body = input.text(70000);
        record.announced =
            static_cast<unsigned int>(input.flag() ? record.body.size() : input.size());
        CHECK(&(out << record) == &out);
        written += bigEndian(record.announced) + record.body;
    }
    CHECK(out.str() == written && printed().empty());

    const std::vector<size_t> spans = Spans::choose(input);
    const string script = input.bytes(input.byte());
    written += input.rest();
    Spans in(written, spans);
    Input choices(reinterpret_cast<const unsigned char*>(script.data()), script.size());
    for (size_t at = 0; !choices.empty();) readRecord(choices, in, written, at);

    using namespace ZQBinaryDump;
    const unsigned int code = input.byte();
    CHECK((string(ReturnCode::Name(code)) == "UNKNOWN") == (code > ReturnCode::UndefinedError));
    return 0;
}
