#pragma once
// The lowest layer of the geometry library: constants, guarded roots and inverse
// trigonometric functions, angle units, table-driven sine and tangent, random sources.
// All arithmetic is 32-bit float unless a function says otherwise.

namespace kv
{

// The constants are constant-initialised (constexpr), so they hold their values before
// any dynamic initialiser of any translation unit runs: a ScalarMath built by a static
// object elsewhere already sees TWO_PI. PI comes first and every other angle constant is
// derived from its float value, not from a more precise pi.
constexpr float PI = 3.14159265358979323846f; // the float nearest 4 * atan(1)
constexpr float HALF_PI = PI * 0.5f;
constexpr float TWO_PI = PI * 2.0f;
constexpr float DEG_TO_RAD = PI * 0.0055555557f; // the float nearest 1/180
constexpr float RAD_TO_DEG = 180.0f / PI;
constexpr float LN_2 = 0.693147180559945309f;

// tolerance >= abs(b - a); inclusive, and false whenever a NaN takes part.
bool FloatEquals(float a, float b, float tolerance);
// 1 / sqrt(x) worked in double precision, rounded once to float.
float InverseSqrt(float x);
// InverseSqrt for x above the smallest normal float, else 0.
float SafeInverseSqrt(float x);
float Sign(float x);
int Sign(int x);
bool IsFinite2(const float* v);
bool IsFinite3(const float* v);
bool IsFinite4(const float* v);
float SafeAcos(float x);
float SafeAsin(float x);

float UnitRandom();
float SymmetricRandom();
float RandomInRange(float a, float b);
// The minimal-standard-style multiplicative source; one process-wide sequence.
float LehmerUnitRandom();
float GaussianDensity(float x, float offset, float scale);

// The one instance of the trigonometric tables and the angle unit. The engine builds it
// with the table size of its choice; the state is class-wide so that free callers reach it
// without a pointer. Its fields are constant-initialised (zero / null), so an instance
// built during another unit's static initialisation cannot be undone by ours.
class ScalarMath
{
public:
    enum AngleUnit
    {
        ANGLE_DEGREE = 0,
        ANGLE_RADIAN = 1
    };

    explicit ScalarMath(int size);
    ~ScalarMath();
    ScalarMath(const ScalarMath&) = delete;
    ScalarMath& operator=(const ScalarMath&) = delete;

    static int GetAngleUnit();
    static void SetAngleUnit(int unit);
    static float RadiansToAngleUnits(float x);
    static float AngleUnitsToRadians(float x);
    static float AngleUnitsToDegrees(float x);
    static float DegreesToAngleUnits(float x);

    // Nearest-lower table entry, no interpolation. Without a live instance (or for a
    // non-finite argument) the tables cannot answer: the sine and tangent are then
    // computed directly, in float, so a caller never reads a missing table.
    static float TableSine(float x);
    static float TableTangent(float x);

    static int GetTableSize() { return tableSize; }
    static float GetTableFactor() { return tableFactor; }

private:
    static int TableIndex(float f);

    static int tableSize;
    static float tableFactor;
    static int angleUnit;
    static float* sineTable;
    static float* tangentTable;
};

} // namespace kv
