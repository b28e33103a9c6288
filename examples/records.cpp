// Records of one's own type, with packed arrays inside, in a gzip file.
//
//   records [NAME]      writes three tracks to NAME (tracks.rec.gz) and reads them back

#include "binary_io.h"
#include "zqstreammanager.h"

#include <cmath>
#include <string>
#include <vector>

using namespace ZQPlatform;

namespace {

const unsigned char* bytesOf(const unsigned int& number)
{
    return reinterpret_cast<const unsigned char*>(&number);
}

unsigned char* bytesOf(unsigned int& number)
{
    return reinterpret_cast<unsigned char*>(&number);
}

// What a detector saw of one particle: where it passed, and which cells it hit.
//
//   4 + n  name           4  count
//   4      cellWidth      packed cells
//   4      heightWidth    packed heights
class Track : public ZQBinaryIO {
public:
    std::string name;
    std::vector<unsigned int> cells;
    std::vector<float> heights;  // one for each cell, in millimetres

    void Write(zqostream& out) const override
    {
        const unsigned int count = cellCount(), cellBits = cellWidth(), heightBits = heightWidth();
        ZQ_io_write_binary(out, name);
        ZQ_io_write_binary(out, bytesOf(count), sizeof count, 1);
        ZQ_io_write_binary(out, bytesOf(cellBits), sizeof cellBits, 1);
        ZQ_io_write_binary_compressed(out, cells.data(), cellBits, count);
        ZQ_io_write_binary(out, bytesOf(heightBits), sizeof heightBits, 1);
        ZQ_io_write_binary_compressed(out, heights.data(), heightBits, count);
    }

    unsigned int Read(zqistream& in) override
    {
        const long start = in.tell();
        unsigned int count = 0, bits = 0;
        ZQ_io_read_binary(in, name);
        ZQ_io_read_binary(in, bytesOf(count), sizeof count, 1);
        if (count > mostCells)  // a damaged file must not decide how much memory is used
            return static_cast<unsigned int>(in.tell() - start);
        cells.resize(count);
        heights.resize(count);
        ZQ_io_read_binary(in, bytesOf(bits), sizeof bits, 1);
        ZQ_io_read_binary_compressed(in, cells.data(), bits, count);
        ZQ_io_read_binary(in, bytesOf(bits), sizeof bits, 1);
        ZQ_io_read_binary_compressed(in, heights.data(), bits, count);
        return static_cast<unsigned int>(in.tell() - start);
    }

    // What Write() writes to memory, counted by a stream that drops it.
    unsigned int GetSize() const override
    {
        zqostream counter;
        Write(counter);
        return static_cast<unsigned int>(counter.tell());
    }

private:
    static constexpr unsigned int mostCells = 1000000;
    static constexpr float precision = 0.01f;

    unsigned int cellCount() const { return static_cast<unsigned int>(cells.size()); }
    unsigned int cellWidth() const { return ZQ_io_util_calc_NumBits(cells.data(), cellCount()); }
    // At least one bit: width 0 does not keep the values.
    unsigned int heightWidth() const
    {
        const unsigned int bits = ZQ_io_util_calc_NumBits(heights.data(), cellCount(), precision);
        return bits == 0 ? 1 : bits;
    }
};

Track sampleTrack(unsigned int number)
{
    Track track;
    track.name = "track " + std::to_string(number);
    for (unsigned int i = 0; i < 20 * number; ++i) {
        track.cells.push_back(1000 + 7 * i * number);
        track.heights.push_back(std::sin(0.1f * static_cast<float>(i)) * 25.0f);
    }
    return track;
}

bool write(const std::string& name)
{
    zqostream* out = ZQOpenOStream(name);
    if (!out)
        return false;
    for (unsigned int number = 1; number <= 3; ++number)
        *out << sampleTrack(number);
    const bool written = out->flush();
    ZQCloseOStream(out);
    return written;
}

// True if the track came back: cells as they were, heights within the precision.
bool isTrack(const Track& track, unsigned int number)
{
    const Track expected = sampleTrack(number);
    if (track.name != expected.name || track.cells != expected.cells)
        return false;
    for (std::size_t i = 0; i < expected.heights.size(); ++i)
        if (std::fabs(track.heights[i] - expected.heights[i]) > 0.01f)
            return false;
    return true;
}

bool readBack(const std::string& name)
{
    zqistream* in = ZQOpenIStream(name);
    if (!in)
        return false;
    bool same = true;
    for (unsigned int number = 1; number <= 3; ++number) {
        Track track;
        *in >> track;
        same = same && isTrack(track, number);
        zqout << track.name << ": " << track.cells.size() << " cells in " << track.GetSize()
              << " bytes" << zqendl;
    }
    ZQCloseIStream(in);
    return same;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string name = argc > 1 ? argv[1] : "tracks.rec.gz";
    if (write(name) && readBack(name))
        return 0;
    zqerr << "records: " << name << " was not written and read back" << zqendl;
    return 1;
}
