#include "support/streams.h"

// A record with any body, which reads as many bytes as it has size.
struct Blob : ZQBinaryIO {
    explicit Blob(string bytes) : body(bytes) {}
    void Write(zqostream& out) const override { out.write(body); }
    unsigned int Read(zqistream& in) override { return unsigned(in.read(body, body.size())); }
    unsigned int GetSize() const override { return unsigned(body.size()); }
    string body;
};

TEST(BinaryRecords, AreFramedByTheirSize)
{
    zqosstream out;
    const string bodies[] = {"", "headertwelve", "\xC8\xC9\xCA\xCB\xCC\xCD\xCE\xCF\xD0\xD1"};
    for (const string& body : bodies) EXPECT_EQ(&(out << Blob(body)), &out);
    EXPECT_EQ(hex(out.str()), hex(readFile(ZQPLATFORM_TEST_DATA "/records.bin")));
    ChunkSource in({out.str()});
    for (const string& body : bodies) {
        Blob blob(string(body.size(), '?'));
        EXPECT_TRUE(&(in >> blob) == &in && blob.body == body);
    }
}

TEST(BinaryDump, NamesItsReturnCodes)
{
    using namespace ZQBinaryDump::ReturnCode;
    string names;
    for (unsigned int code = Success; code <= UndefinedError + 1; ++code)
        names += Name(code) + string(" ");
    EXPECT_EQ(names, "Success UnsupportedVersion SizeMismatch ContainerSize64Bit EndOfStream "
                     "ExceededMaxRead ExceededMaxWrite UndefinedError UNKNOWN ");
    EXPECT_STREQ(Name(~0u), "UNKNOWN");
}
