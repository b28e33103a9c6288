// Arrays of integers and floats in a few bits each, and half floats.

#include "race.h"

#include <algorithm>
#include <cstring>
#include <immintrin.h>

#ifdef BENCH_EIGEN
#include <Eigen/Core>
#endif

namespace {

constexpr unsigned int count = 16384;
using Words = std::vector<unsigned int>;
using Floats = std::vector<float>;
using Image = std::vector<unsigned char>;

unsigned int maskOf(unsigned int width) { return (1u << width) - 1; }

// ---- what a program writes by itself: bits through a 64-bit accumulator, 32 at a time

void packBits(unsigned char* to, unsigned int width, const Words& values)
{
    std::uint64_t bits = 0;
    unsigned int used = 0;
    for (unsigned int value : values) {
        bits |= std::uint64_t(value) << used;
        if ((used += width) < 32) continue;
        std::memcpy(to, &bits, 4);
        to += 4;
        bits >>= 32;
        used -= 32;
    }
    std::memcpy(to, &bits, used / 8 + 1);
}

// Reads up to 4 bytes behind the image.
void unpackBits(const unsigned char* from, unsigned int width, Words& values)
{
    std::uint64_t bits = 0;
    unsigned int held = 0;
    for (unsigned int& value : values) {
        if (held < width) {
            std::uint32_t more;
            std::memcpy(&more, from, sizeof more);
            bits |= std::uint64_t(more) << held;
            from += 4;
            held += 32;
        }
        value = static_cast<unsigned int>(bits) & maskOf(width);
        bits >>= width;
        held -= width;
    }
}

// The range in front, then the quantised values.
void packFloats(unsigned char* to, unsigned int width, const Floats& values)
{
    static Words quantised(count);
    const auto [min, max] = std::minmax_element(values.begin(), values.end());
    const float ends[] = {*max, *min};
    std::uint32_t bits[2];
    std::memcpy(bits, ends, sizeof bits);
    for (std::uint32_t& each : bits) each = __builtin_bswap32(each);
    std::memcpy(to, bits, sizeof bits);
    const float factor = 1 / (*max - *min) * static_cast<float>(maskOf(width));
    for (unsigned int i = 0; i < count; ++i)
        quantised[i] = static_cast<unsigned int>((values[i] - *min) * factor + 0.5f);
    packBits(to + sizeof bits, width, quantised);
}
void unpackFloats(const unsigned char* from, unsigned int width, Floats& values)
{
    static Words quantised(count);
    std::uint32_t bits[2];
    std::memcpy(bits, from, sizeof bits);
    for (std::uint32_t& each : bits) each = __builtin_bswap32(each);
    float ends[2];
    std::memcpy(ends, bits, sizeof ends);
    const float step = 1 / static_cast<float>(maskOf(width)) * (ends[0] - ends[1]);
    unpackBits(from + sizeof bits, width, quantised);
    for (unsigned int i = 0; i < count; ++i)
        values[i] = static_cast<float>(quantised[i]) * step + ends[1];
}

// ---- both ways between an array and its image

template <class Values> void leavesValues(Race& race, Values& values)
{
    race.leaves(
        [&] {
            const auto first = reinterpret_cast<const char*>(values.data());
            return string(first, values.size() * sizeof values[0]);
        },
        [&] { values.assign(values.size(), 0); });
}

template <class Values, class Pack, class Unpack>
void bothWays(const string& job, unsigned int width, const Values& given, Goals packed,
              Goals unpacked, Pack pack, Unpack unpack)
{
    for (bool packs : {true, false})
        row("packed", job + (packs ? ", packed" : ", unpacked"), packs ? packed : unpacked,
            [=](Race& race) {
                Values values = given, copy = given;
                Image image(4 * count + 16);
                unsigned char* const to = image.data();
                if (packs) {
                    leavesValues(race, image);
                    race.ours([&] {
                        ZQ_io_write_binary_compressed(to, values.data(), width, count);
                        return 0;
                    });
                    race.peer("64-bit accumulator", [&] { return pack(to, width, values), 0; });
                } else {
                    ZQ_io_write_binary_compressed(to, values.data(), width, count);
                    leavesValues(race, values);
                    race.ours([&] {
                        ZQ_io_read_binary_compressed(to, values.data(), width, count);
                        return 0;
                    });
                    race.peer("64-bit accumulator", [&] { return unpack(to, width, values), 0; });
                }
                race.bareLimit([&] {
                    std::memcpy(copy.data(), values.data(), 4 * count);
                    benchmark::DoNotOptimize(copy.data());
                    return 0;
                });
                race.run(count);
            });
}

void integers(unsigned int width)
{
    Words values(count);
    for (unsigned int& value : values)
        value = static_cast<unsigned int>(randomNumber()) & maskOf(width);
    bothWays("integer of " + std::to_string(width) + " bits", width, values,
             width <= 16 ? Goals{0.35, 4.5} : Goals{0.5, 5.2},
             width <= 24 ? Goals{0.2, 2.6} : Goals{0.27, 4.5}, packBits, unpackBits);
}

Floats readings()
{
    Floats values(count);
    for (float& value : values) value = static_cast<float>(randomNumber() % 2000000) * 1e-3f - 700;
    return values;
}

void bitWidth()
{
    row("packed", "bit width of an array, a value", {0.15, 1.05}, [](Race& race) {
        Words values(count);
        for (unsigned int& value : values) value = randomNumber() & 0x17F7F;  // no byte is 0xFF
        race.ours([&] { return ZQ_io_util_calc_NumBits(values.data(), count); });
        race.peer("max_element", [&] {
            return 32 - __builtin_clz(*std::max_element(values.begin(), values.end()));
        });
        race.bareLimit([&] { return std::memchr(values.data(), 0xFF, count * 4) != nullptr; });
        race.run(count);
    });
}

// ---- half floats, one at a time

using Halves = std::vector<unsigned short>;

__attribute__((target("f16c"))) std::uint64_t toHalves(const Floats& from, Halves& to)
{
    for (unsigned int i = 0; i < count; ++i)
        to[i] = __extension__ _cvtss_sh(from[i], _MM_FROUND_TO_NEAREST_INT);
    return 0;
}
__attribute__((target("f16c"))) std::uint64_t toFloats(const Halves& from, Floats& to)
{
    for (unsigned int i = 0; i < count; ++i) to[i] = _cvtsh_ss(from[i]);
    return 0;
}

template <class From, class To, class Convert> Pass each(const From& from, To& to, Convert convert)
{
    return [&, convert] {
        for (unsigned int i = 0; i < count; ++i) to[i] = convert(from[i]);
        return 0;
    };
}

void halves()
{
    row("packed", "half float from float", {0.9, 4.0}, [](Race& race) {
        Floats values = readings();
        Halves out(count);
        // Never half way between two halves, where the roundings differ.
        for (float& value : values) value = ZQHalfFloat(value) * 1.0001f;
        leavesValues(race, out);
        race.ours(each(values, out, [](float value) { return ZQHalfFloat(value).bits; }));
#ifdef BENCH_EIGEN
        race.peer("Eigen::half",
                  each(values, out, [](float value) { return Eigen::half(value).x; }));
#endif
        if (__builtin_cpu_supports("avx2")) race.limit([&] { return toHalves(values, out); });
        race.run(count);
    });
    row("packed", "half float to float", {1.02, 3.0}, [](Race& race) {
        const Floats floats = readings();
        Halves values(count);
        Floats out(count);
        each(floats, values, [](float value) { return ZQHalfFloat(value).bits; })();
        leavesValues(race, out);
        race.ours(each(values, out, [](unsigned short bits) -> float {
            ZQHalfFloat half;
            half.bits = bits;
            return half;
        }));
#ifdef BENCH_EIGEN
        race.peer("Eigen::half", each(values, out, [](unsigned short bits) -> float {
                      return Eigen::half(Eigen::half_impl::raw_uint16_to_half(bits));
                  }));
#endif
        if (__builtin_cpu_supports("avx2")) race.limit([&] { return toFloats(values, out); });
        race.run(count);
    });
}

}  // namespace

void packedRows()
{
    for (unsigned int width : {1, 8, 12, 16, 17, 24, 31}) integers(width);
    bitWidth();
    bothWays("float in 12 bits", 12, readings(), {0.2, 5.6}, {0.27, 3.2}, packFloats, unpackFloats);
    halves();
}
