#include "kxmd/platform/KXSHA1TextDigestPrivate.h"

#include "kxmd/base/KXBigEndianPrivate.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <span>

namespace {

constexpr std::size_t blockLength = 64;

/// SHA-1 (FIPS 180-4, 6.1). Names things; nothing of it needs to withstand an attack.
class SHA1 {
public:
    using Words = std::array<std::uint32_t, 5>;

    void addBlock(std::span<std::uint8_t const, blockLength> block)
    {
        std::array<std::uint32_t, 80> schedule;
        for (std::size_t i = 0; i < 16; ++i)
            schedule[i] = bigEndian32(std::span<std::uint8_t const, 4>(&block[i * 4], 4));
        for (std::size_t i = 16; i < schedule.size(); ++i)
            schedule[i] = std::rotl(
                schedule[i - 3] ^ schedule[i - 8] ^ schedule[i - 14] ^ schedule[i - 16], 1);
        auto [a, b, c, d, e] = _words;
        for (std::size_t i = 0; i < schedule.size(); ++i) {
            std::uint32_t const mixed
                = std::rotl(a, 5) + functionOfRound(i, b, c, d) + e + schedule[i];
            e = d;
            d = c;
            c = std::rotl(b, 30);
            b = a;
            a = mixed;
        }
        _words = { _words[0] + a, _words[1] + b, _words[2] + c, _words[3] + d, _words[4] + e };
    }

    Words const& words() const { return _words; }

private:
    /// With the constant of the round (4.1.1 and 4.2.1).
    static std::uint32_t functionOfRound(
        std::size_t round, std::uint32_t x, std::uint32_t y, std::uint32_t z)
    {
        if (round < 20)
            return ((x & y) ^ (~x & z)) + 0x5a827999;
        if (round < 40)
            return (x ^ y ^ z) + 0x6ed9eba1;
        if (round < 60)
            return ((x & y) ^ (x & z) ^ (y & z)) + 0x8f1bbcdc;
        return (x ^ y ^ z) + 0xca62c1d6;
    }

    Words _words { 0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0 };
};

}

std::string KXSHA1TextDigest::sha1HexString(std::string_view text) const
{
    std::span<std::uint8_t const> rest(
        reinterpret_cast<std::uint8_t const*>(text.data()), text.size());
    SHA1 sum;
    for (; rest.size() >= blockLength; rest = rest.subspan(blockLength))
        sum.addBlock(rest.first<blockLength>());
    // What is left, a bit, zeros, and the length in bits in eight bytes at the end of a block
    // (5.1.1).
    std::array<std::uint8_t, 2 * blockLength> end {};
    *std::ranges::copy(rest, end.begin()).out = 0x80;
    std::span<std::uint8_t const> const padded
        = std::span(end).first(rest.size() + 9 <= blockLength ? blockLength : 2 * blockLength);
    std::uint64_t const bits = std::uint64_t { text.size() } * 8;
    for (std::size_t i = 0; i < 8; ++i)
        end[padded.size() - 1 - i] = static_cast<std::uint8_t>(bits >> (8 * i));
    for (std::size_t i = 0; i < padded.size(); i += blockLength)
        sum.addBlock(std::span<std::uint8_t const, blockLength>(&padded[i], blockLength));
    std::string digits;
    for (std::uint32_t const word : sum.words()) {
        for (int shift = 28; shift >= 0; shift -= 4)
            digits += "0123456789abcdef"[word >> shift & 0xF];
    }
    return digits;
}
