#pragma once
// MD5 message digest (RFC 1321), fed in pieces. The shader cache names its entries by it.
#include <cstddef>
#include <cstdint>
#include <string>

class Md5
{
public:
    Md5();

    void Update(const std::string& text);
    void Update(const void* bytes, size_t length);
    // Closes the digest at the first call; later calls answer the same text until Reset.
    // 32 lower-case hex digits, high nibble of each byte first.
    std::string HexDigest();
    void Reset();

private:
    void Transform(const uint8_t block[64]);
    void Finish();

    uint32_t m_state[4];
    uint32_t m_count[2];  // bits fed so far, low word first
    uint8_t m_buffer[64]; // the block being filled
    uint8_t m_digest[16];
    bool m_finished;
};
