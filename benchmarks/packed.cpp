// Arrays of integers and floats in a few bits each, and half floats.

#include "race.h"

#include <algorithm>
#include <immintrin.h>

#ifdef BENCH_EIGEN
#include <Eigen/Core>
#endif

namespace {

constexpr unsigned int count = 16384;
using Bytes = unsigned char*;
using Words = std::vector<unsigned int>;
using Floats = std::vector<float>;
using Halves = std::vector<unsigned short>;

unsigned int maskOf(unsigned int width) { return (1u << width) - 1; }

// ---- what a program writes by itself: bits through a 64-bit accumulator, 32 at a time

void pack(Bytes to, unsigned int width, const Words& values)
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
void unpack(const Bytes image, unsigned int width, Words& values)
{
    const unsigned char* from = image;
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

// Floats: the largest and the smallest in front, then where each lies between them.
void pack(Bytes to, unsigned int width, const Floats& values)
{
    static Words quantised(count);
    const auto [min, max] = std::minmax_element(values.begin(), values.end());
    const float ends[] = {*max, *min};
    ZQ_io_write_binary(to, reinterpret_cast<const unsigned char*>(ends), 4, 2);
    const float factor = 1 / (*max - *min) * maskOf(width);
    for (unsigned int i = 0; i < count; ++i) quantised[i] = (values[i] - *min) * factor + 0.5f;
    pack(to + sizeof ends, width, quantised);
}
void unpack(const Bytes from, unsigned int width, Floats& values)
{
    static Words quantised(count);
    float ends[2];
    ZQ_io_read_binary(from, reinterpret_cast<unsigned char*>(ends), 4, 2);
    const float step = 1 / static_cast<float>(maskOf(width)) * (ends[0] - ends[1]);
    unpack(from + sizeof ends, width, quantised);
    for (unsigned int i = 0; i < count; ++i) values[i] = quantised[i] * step + ends[1];
}

// ---- both ways between an array and its image

template <class Values>
void bothWays(const string& job, unsigned int width, const Values& given, Goals packed,
              Goals unpacked)
{
    for (bool packs : {true, false})
        row("packed/" + job + (packs ? ", packed" : ", unpacked"), packs ? packed : unpacked,
            [=](Race& race) {
                Values values = given, copy = given;
                std::vector<unsigned char> image(4 * count + 16);
                const Bytes at = image.data();
                ZQ_io_write_binary_compressed(at, values.data(), width, count);
                packs ? race.leavesValues(image) : race.leavesValues(values);
                race.ours([&] {
                    packs ? ZQ_io_write_binary_compressed(at, values.data(), width, count)
                          : ZQ_io_read_binary_compressed(at, values.data(), width, count);
                });
                race.peer("64-bit accumulator",
                          [&] { packs ? pack(at, width, values) : unpack(at, width, values); });
                race.bareLimit([&] {
                    std::memcpy(copy.data(), values.data(), 4 * count);
                    benchmark::DoNotOptimize(copy.data());
                });
                race.run(count);
            });
}

void integers(unsigned int width)
{
    Words values(count);
    for (unsigned int& value : values) value = randomNumber() & maskOf(width);
    bothWays("integer of " + std::to_string(width) + " bits", width, values,
             width <= 16 ? Goals{0.35, 4.5} : Goals{0.5, 5.2},
             width <= 24 ? Goals{0.2, 2.6} : Goals{0.27, 4.5});
}

Floats readings()
{
    Floats values(count);
    for (float& value : values) value = randomNumber() % 2000000 * 1e-3f - 700;
    return values;
}

// ---- half floats, one at a time

[[gnu::target("f16c")]] void convertAll(const Floats& from, Halves& to)
{
    for (unsigned int i = 0; i < count; ++i)
        to[i] = __extension__ _cvtss_sh(from[i], _MM_FROUND_TO_NEAREST_INT);
}
[[gnu::target("f16c")]] void convertAll(const Halves& from, Floats& to)
{
    for (unsigned int i = 0; i < count; ++i) to[i] = _cvtsh_ss(from[i]);
}

template <class From, class To, class Ours, class Eigens>
void halves(const char* name, Goals goals, From from, To to, Ours ours, Eigens eigens)
{
    row(name, goals, [=](Race& race) mutable {
        const auto each = [&](auto convert) {
            return [&, convert] {
                for (unsigned int i = 0; i < count; ++i) to[i] = convert(from[i]);
            };
        };
        race.leavesValues(to);
        race.ours(each(ours));
        if (!std::is_same_v<Ours, Eigens>) race.peer("Eigen::half", each(eigens));
        if (__builtin_cpu_supports("avx2")) race.limit([&] { convertAll(from, to); });
        race.run(count);
    });
}

}  // namespace

void packedRows()
{
    for (unsigned int width : {1, 8, 12, 16, 17, 24, 31}) integers(width);
    const char* const near = "from run to run between 0.95 and 1.16 of the limit";
    row("packed/bit width of an array, a value", {0.15, 1.05, near}, [](Race& race) {
        Words values(count);
        for (unsigned int& value : values) value = randomNumber() & 0x17F7F;  // no byte is 0xFF
        race.ours([&] { return ZQ_io_util_calc_NumBits(values.data(), count); });
        race.peer("max_element", [&] {
            return 32 - __builtin_clz(*std::max_element(values.begin(), values.end()));
        });
        race.bareLimit([&] { return std::memchr(values.data(), 0xFF, count * 4) != nullptr; });
        race.run(count);
    });
    bothWays("float in 12 bits", 12, readings(), {0.2, 5.6}, {0.27, 3.2});

    const auto toHalf = [](float value) { return ZQHalfFloat(value).bits; };
    const auto toFloat = [](unsigned short bits) -> float {
        ZQHalfFloat half;
        half.bits = bits;
        return half;
    };
    // Never half way between two halves, where the roundings differ.
    Floats floats = readings();
    for (float& value : floats) value = ZQHalfFloat(value) * 1.0001f;
    Halves halfFloats(count);
    std::transform(floats.begin(), floats.end(), halfFloats.begin(), toHalf);
#ifdef BENCH_EIGEN
    const auto peerToHalf = [](float value) { return Eigen::half(value).x; };
    const auto peerToFloat = [](unsigned short bits) -> float {
        return Eigen::half(Eigen::half_impl::raw_uint16_to_half(bits));
    };
#else
    const auto peerToHalf = toHalf;
    const auto peerToFloat = toFloat;
#endif
    halves("packed/half float from float", {0.9, 4.0}, floats, Halves(count), toHalf, peerToHalf);
    halves("packed/half float to float", {1.02, 3.0}, halfFloats, Floats(count), toFloat,
           peerToFloat);
}
