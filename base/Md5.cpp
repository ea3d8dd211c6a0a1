#include "base/Md5.h"

#include <cstring>

namespace
{
inline uint32_t RotateLeft(uint32_t x, unsigned n)
{
    return (x << n) | (x >> (32 - n));
}

inline uint32_t F(uint32_t x, uint32_t y, uint32_t z)
{
    return (x & y) | (~x & z);
}
inline uint32_t G(uint32_t x, uint32_t y, uint32_t z)
{
    return (x & z) | (y & ~z);
}
inline uint32_t H(uint32_t x, uint32_t y, uint32_t z)
{
    return x ^ y ^ z;
}
inline uint32_t I(uint32_t x, uint32_t y, uint32_t z)
{
    return y ^ (x | ~z);
}

// Per-step shift amounts of the four rounds.
const unsigned kShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// The sine table: floor(abs(sin(i + 1)) * 2^32).
const uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

void EncodeLittleEndian(uint8_t* out, const uint32_t* in, size_t words)
{
    for (size_t i = 0; i < words; ++i)
    {
        out[i * 4] = static_cast<uint8_t>(in[i]);
        out[i * 4 + 1] = static_cast<uint8_t>(in[i] >> 8);
        out[i * 4 + 2] = static_cast<uint8_t>(in[i] >> 16);
        out[i * 4 + 3] = static_cast<uint8_t>(in[i] >> 24);
    }
}
} // namespace

Md5::Md5()
{
    Reset();
}

void Md5::Reset()
{
    m_state[0] = 0x67452301;
    m_state[1] = 0xefcdab89;
    m_state[2] = 0x98badcfe;
    m_state[3] = 0x10325476;
    m_count[0] = m_count[1] = 0;
    std::memset(m_buffer, 0, sizeof(m_buffer));
    std::memset(m_digest, 0, sizeof(m_digest));
    m_finished = false;
}

void Md5::Transform(const uint8_t block[64])
{
    uint32_t x[16];
    for (int i = 0; i < 16; ++i)
        x[i] = static_cast<uint32_t>(block[i * 4]) | (static_cast<uint32_t>(block[i * 4 + 1]) << 8) |
               (static_cast<uint32_t>(block[i * 4 + 2]) << 16) | (static_cast<uint32_t>(block[i * 4 + 3]) << 24);

    uint32_t a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3];
    for (int i = 0; i < 64; ++i)
    {
        uint32_t f;
        int k;
        const int round = i / 16;
        switch (round)
        {
        case 0:
            f = F(b, c, d);
            k = i;
            break;
        case 1:
            f = G(b, c, d);
            k = (5 * i + 1) % 16;
            break;
        case 2:
            f = H(b, c, d);
            k = (3 * i + 5) % 16;
            break;
        default:
            f = I(b, c, d);
            k = (7 * i) % 16;
            break;
        }
        const uint32_t rotated = RotateLeft(a + f + kSine[i] + x[k], kShift[round][i % 4]);
        a = d;
        d = c;
        c = b;
        b = b + rotated;
    }
    m_state[0] += a;
    m_state[1] += b;
    m_state[2] += c;
    m_state[3] += d;
}

void Md5::Update(const std::string& text)
{
    Update(text.data(), text.size());
}

void Md5::Update(const void* bytes, size_t length)
{
    // Feeding a closed digest starts nothing new: the caller resets first.
    if (m_finished || length == 0 || !bytes)
        return;
    const uint8_t* input = static_cast<const uint8_t*>(bytes);

    size_t index = (m_count[0] >> 3) & 0x3F;
    // The bit count is 64 bits kept as two words; lengths beyond 2^61 bytes wrap, as RFC 1321 allows.
    const uint64_t bits = (static_cast<uint64_t>(m_count[1]) << 32 | m_count[0]) + static_cast<uint64_t>(length) * 8u;
    m_count[0] = static_cast<uint32_t>(bits);
    m_count[1] = static_cast<uint32_t>(bits >> 32);

    const size_t partLength = 64 - index;
    size_t i = 0;
    if (length >= partLength)
    {
        std::memcpy(&m_buffer[index], input, partLength);
        Transform(m_buffer);
        for (i = partLength; i + 63 < length; i += 64)
            Transform(&input[i]);
        index = 0;
    }
    std::memcpy(&m_buffer[index], &input[i], length - i);
}

void Md5::Finish()
{
    uint8_t bits[8];
    EncodeLittleEndian(bits, m_count, 2);
    // Pad to 56 bytes modulo 64 with a one bit and zeros, then append the length.
    static const uint8_t kPadding[64] = {0x80};
    const size_t index = (m_count[0] >> 3) & 0x3F;
    const size_t padLength = index < 56 ? 56 - index : 120 - index;
    Update(kPadding, padLength);
    Update(bits, 8);
    EncodeLittleEndian(m_digest, m_state, 4);
    m_finished = true;
}

std::string Md5::HexDigest()
{
    if (!m_finished)
        Finish();
    static const char kDigits[] = "0123456789abcdef";
    std::string text(32, '0');
    for (int i = 0; i < 16; ++i)
    {
        text[i * 2] = kDigits[m_digest[i] >> 4];
        text[i * 2 + 1] = kDigits[m_digest[i] & 0x0F];
    }
    return text;
}
