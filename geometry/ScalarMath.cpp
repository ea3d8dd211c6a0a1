#include "geometry/ScalarMath.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace kv
{

int ScalarMath::tableSize = 0;
float ScalarMath::tableFactor = 0.0f;
int ScalarMath::angleUnit = ScalarMath::ANGLE_DEGREE;
float* ScalarMath::sineTable = nullptr;
float* ScalarMath::tangentTable = nullptr;

namespace
{

// Constant-initialised, so the first draw always starts from the same word.
std::int32_t lehmerState = 0x0F0F0F0F;

bool ExponentAllSet(float v)
{
    std::uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return (bits & 0x7F800000u) == 0x7F800000u;
}

} // namespace

bool FloatEquals(float a, float b, float tolerance)
{
    return tolerance >= std::fabs(b - a);
}

float InverseSqrt(float x)
{
    return static_cast<float>(1.0 / std::sqrt(static_cast<double>(x)));
}

float SafeInverseSqrt(float x)
{
    // At or below the smallest normal float the reciprocal root would overflow or be NaN.
    return x > 1.1754944e-38f ? InverseSqrt(x) : 0.0f;
}

float Sign(float x)
{
    if (x > 0.0f)
        return 1.0f;
    if (x < 0.0f)
        return -1.0f;
    return 0.0f;
}

int Sign(int x)
{
    return x > 0 ? 1 : (x < 0 ? -1 : 0);
}

bool IsFinite2(const float* v)
{
    return !ExponentAllSet(v[0]) && !ExponentAllSet(v[1]);
}

bool IsFinite3(const float* v)
{
    return IsFinite2(v) && !ExponentAllSet(v[2]);
}

bool IsFinite4(const float* v)
{
    return IsFinite3(v) && !ExponentAllSet(v[3]);
}

float SafeAcos(float x)
{
    if (x <= -1.0f)
        return PI;
    if (x >= 1.0f)
        return 0.0f;
    return std::acos(x);
}

float SafeAsin(float x)
{
    if (x <= -1.0f)
        return -HALF_PI;
    if (x >= 1.0f)
        return HALF_PI;
    return std::asin(x);
}

float UnitRandom()
{
    // The scale (bits 0x38000100) maps 0..32767 onto 0..1 with both ends reachable. The
    // Windows runtime's rand() already stops at 32767; glibc's goes to 2^31 - 1, so keep
    // the low 15 bits to stay in the same range on every host.
    return static_cast<float>(std::rand() & 0x7FFF) * 3.051851e-5f;
}

float SymmetricRandom()
{
    return 2.0f * UnitRandom() - 1.0f;
}

float RandomInRange(float a, float b)
{
    return a + (b - a) * UnitRandom();
}

float LehmerUnitRandom()
{
    // Schrage's factorisation keeps state * 40692 mod 2147483399 inside 32 bits. The
    // products wrap by design, so they are formed unsigned (wrapping is defined there) and
    // the exact difference, which always fits, is read back as signed.
    const std::int32_t q = lehmerState / 52774;
    const std::uint32_t wrapped =
        static_cast<std::uint32_t>(lehmerState) * 40692u - static_cast<std::uint32_t>(q) * 2147483399u;
    std::int32_t next = static_cast<std::int32_t>(wrapped);
    if (next < 0)
        next += 2147483399;
    lehmerState = next;
    return static_cast<float>(next) * 4.6566134e-10f;
}

float GaussianDensity(float x, float offset, float scale)
{
    const float dx = x - offset;
    const float y = -(dx * dx) / (2.0f * scale * scale);
    // exp(y) = 2^(y * log2 e), taken in extended precision.
    const long double log2e = 1.4426950408889634073599246810018921L;
    const float e = static_cast<float>(std::exp2(static_cast<long double>(y) * log2e));
    return e / (scale * std::sqrt(2.0f * PI));
}

ScalarMath::ScalarMath(int size)
{
    // A second instance takes the tables over; the earlier ones would otherwise leak.
    delete[] sineTable;
    delete[] tangentTable;
    sineTable = nullptr;
    tangentTable = nullptr;

    tableSize = size;
    angleUnit = ANGLE_DEGREE;
    tableFactor = static_cast<float>(tableSize) / TWO_PI;
    if (tableSize <= 0)
    {
        // No table can answer; TableSine and TableTangent compute directly.
        tableSize = 0;
        return;
    }
    sineTable = new float[tableSize];
    tangentTable = new float[tableSize];
    for (int i = 0; i < tableSize; ++i)
    {
        const double angle = static_cast<double>(i) * static_cast<double>(TWO_PI) / static_cast<double>(tableSize);
        sineTable[i] = static_cast<float>(std::sin(angle));
        tangentTable[i] = static_cast<float>(std::tan(angle));
    }
}

ScalarMath::~ScalarMath()
{
    if (sineTable)
    {
        delete[] sineTable;
        sineTable = nullptr;
    }
    if (tangentTable)
    {
        delete[] tangentTable;
        tangentTable = nullptr;
    }
    tableSize = 0;
}

int ScalarMath::GetAngleUnit()
{
    return angleUnit;
}

void ScalarMath::SetAngleUnit(int unit)
{
    angleUnit = unit;
}

float ScalarMath::RadiansToAngleUnits(float x)
{
    return angleUnit == ANGLE_DEGREE ? x * RAD_TO_DEG : x;
}

float ScalarMath::AngleUnitsToRadians(float x)
{
    return angleUnit == ANGLE_DEGREE ? x * DEG_TO_RAD : x;
}

float ScalarMath::AngleUnitsToDegrees(float x)
{
    return angleUnit == ANGLE_RADIAN ? x * RAD_TO_DEG : x;
}

float ScalarMath::DegreesToAngleUnits(float x)
{
    return angleUnit == ANGLE_RADIAN ? x * DEG_TO_RAD : x;
}

int ScalarMath::TableIndex(float f)
{
    // trunc(f) mod tableSize for f >= 0. fmod on the truncated value is exact and stays
    // defined where a float would overflow an int.
    const double whole = std::trunc(static_cast<double>(f));
    return static_cast<int>(std::fmod(whole, static_cast<double>(tableSize)));
}

float ScalarMath::TableSine(float x)
{
    const float f = tableFactor * x;
    if (!sineTable || !std::isfinite(f))
        return std::sin(x);
    if (x >= 0.0f)
        return sineTable[TableIndex(f)];
    return sineTable[tableSize - TableIndex(-f) - 1];
}

float ScalarMath::TableTangent(float x)
{
    const float f = tableFactor * x;
    if (!tangentTable || !std::isfinite(f))
        return std::tan(x);
    if (x >= 0.0f)
        return tangentTable[TableIndex(f)];
    // Negative angles read the same way as TableSine: the entry at or just below the
    // angle wrapped into one turn.
    return tangentTable[tableSize - TableIndex(-f) - 1];
}

} // namespace kv
